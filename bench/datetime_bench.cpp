// DateTime against its baselines, measured in the same run: reading and writing dateTime
// texts (with and without zones) against QDateTime's ISO 8601 form and against Howard
// Hinnant's date library (parse + format), and adding one month against QDate::addMonths.
#include <benchmark/benchmark.h>

#include <QDate>
#include <QDateTime>
#include <QString>

#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include <date/date.h>

#include "base/datetime/datetimetext.h"

namespace {

// Texts that every reader here accepts: negative zones are left out, since this library
// reads only one-digit negative hours (-5:30).
const char* const kTexts[] = {
    "2006-07-04T10:20:30Z",      "1999-12-31T23:59:59Z",      "2038-01-19T03:14:07Z",
    "2006-07-04T10:20:30+05:30", "2012-02-29T12:00:00+01:00", "1970-01-01T00:00:01+09:00",
    "2006-07-04T10:20:30",       "2024-11-24T02:30:00",
};

const std::vector<QString>& qtexts() {
    static const std::vector<QString> texts = [] {
        std::vector<QString> v;
        for (const char* t : kTexts) v.push_back(QString::fromLatin1(t));
        return v;
    }();
    return texts;
}

void BM_ParseFormat_DateTime(benchmark::State& state) {
    const auto& texts = qtexts();
    for (auto _ : state) {
        for (const QString& t : texts) {
            mirel::DateTime d;
            t >> d;
            QString s = d.toString();
            benchmark::DoNotOptimize(s);
        }
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(texts.size()));
}

void BM_ParseFormat_QDateTime(benchmark::State& state) {
    const auto& texts = qtexts();
    for (auto _ : state) {
        for (const QString& t : texts) {
            const QDateTime d = QDateTime::fromString(t, Qt::ISODate);
            QString s = d.toString(Qt::ISODate);
            benchmark::DoNotOptimize(s);
        }
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(texts.size()));
}

void BM_ParseFormat_HinnantDate(benchmark::State& state) {
    struct Text {
        std::string text;
        const char* format;
    };
    std::vector<Text> texts;
    for (const char* t : kTexts) {
        const std::string s(t);
        const char* format = s.back() == 'Z' ? "%FT%TZ" : (s.size() > 19 ? "%FT%T%Ez" : "%FT%T");
        texts.push_back({s, format});
    }
    for (auto _ : state) {
        for (const Text& t : texts) {
            std::istringstream in(t.text);
            date::sys_seconds tp;
            in >> date::parse(t.format, tp);
            std::string s = date::format("%FT%TZ", tp);
            benchmark::DoNotOptimize(s);
        }
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(texts.size()));
}

// One month later, from days that clamp (Jan 31), cross a year end, and land in leap Feb.
const int kStarts[][3] = {{2006, 1, 31}, {2004, 1, 31}, {2006, 12, 15}, {2000, 3, 30},
                          {1999, 11, 30}, {2024, 8, 31}, {1900, 1, 29}, {2006, 7, 4}};

void BM_AddMonth_DateTime(benchmark::State& state) {
    std::vector<mirel::DateTime> starts;
    for (const auto& s : kStarts) {
        mirel::DateTime d;
        d.set(s[0], s[1], s[2], 10, 20, 30);
        starts.push_back(d);
    }
    for (auto _ : state) {
        for (const mirel::DateTime& s : starts) {
            mirel::DateTime d(s);
            d.add(0, 1, 0, 0, 0, 0);
            benchmark::DoNotOptimize(d);
        }
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(starts.size()));
}

void BM_AddMonth_QDate(benchmark::State& state) {
    std::vector<QDate> starts;
    for (const auto& s : kStarts) starts.emplace_back(s[0], s[1], s[2]);
    for (auto _ : state) {
        for (const QDate& s : starts) {
            QDate d = s.addMonths(1);
            benchmark::DoNotOptimize(d);
        }
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(starts.size()));
}

BENCHMARK(BM_ParseFormat_DateTime);
BENCHMARK(BM_ParseFormat_QDateTime);
BENCHMARK(BM_ParseFormat_HinnantDate);
BENCHMARK(BM_AddMonth_DateTime);
BENCHMARK(BM_AddMonth_QDate);

}  // namespace

BENCHMARK_MAIN();
