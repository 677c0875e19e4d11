// Coordinate pairs per second: LatLngPair::Parse (scanner in front of the patterns) and the
// pattern path alone, against GeographicLib's DMS::DecodeLatLon on the same positions, each
// written in its own notation; and the published pair pattern scanning 10 MB of text.
#include <benchmark/benchmark.h>

#include <GeographicLib/DMS.hpp>

#include <QRegularExpression>
#include <QString>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "base/coords/coordpatterns_p.h"
#include "base/coords/latlngpair.h"

namespace {

constexpr int kPairs = 12000;

struct Corpus {
    std::vector<QString> texts;                                 // ours, all six forms
    std::vector<std::pair<std::string, std::string>> geo;       // GeographicLib's halves
};

// One angle in a notation: 0 DF, 1 DMF, 2 DMSF; `comma` for a decimal comma.
std::string angle(double v, int notation, bool comma, bool geo) {
    char buf[64];
    const double d = std::floor(v);
    const double minutes = (v - d) * 60.0;
    const double m = std::floor(minutes);
    const double s = (minutes - m) * 60.0;
    // GeographicLib takes no blank inside an angle.
    const char* deg = geo ? "d" : "\u00b0 ";
    switch (notation) {
    case 0: std::snprintf(buf, sizeof buf, "%.4f%s", v, geo ? "" : "\u00b0"); break;
    case 1: std::snprintf(buf, sizeof buf, "%.0f%s%.3f'", d, deg, minutes); break;
    default: std::snprintf(buf, sizeof buf, "%.0f%s%.0f'%s%.2f%s", d, deg, m, geo ? "" : " ", s, geo ? "\"" : "''"); break;
    }
    std::string out(buf);
    if (comma) {
        for (char& c : out) {
            if (c == '.') c = ',';
        }
    }
    return out;
}

const Corpus& corpus() {
    static const Corpus c = [] {
        Corpus c;
        std::mt19937_64 random(42);
        std::uniform_real_distribution<double> latitude(-89.9, 89.9), longitude(-179.9, 179.9);
        for (int i = 0; i < kPairs; ++i) {
            const double lat = latitude(random), lng = longitude(random);
            const int form = i % 6;           // DA, DB, SB with a point, then with a comma
            const int notation = (i / 6) % 3;  // DF, DMF, DMSF
            const bool comma = form >= 3;
            const bool swapped = (i / 18) % 2 == 1 && form % 3 != 2;
            const std::string a = angle(std::fabs(lat), notation, comma, false);
            const std::string b = angle(std::fabs(lng), notation, comma, false);
            const std::string ga = angle(std::fabs(lat), notation, false, true);
            const std::string gb = angle(std::fabs(lng), notation, false, true);
            const char ns = lat < 0 ? 'S' : 'N', ew = lng < 0 ? 'W' : 'E';
            std::string text;
            std::pair<std::string, std::string> g;
            if (form % 3 == 2) {
                text = (lat < 0 ? "-" : "") + a + (comma ? " " : ", ") + (lng < 0 ? "-" : "") + b;
                g = {(lat < 0 ? "-" : "") + ga, (lng < 0 ? "-" : "") + gb};
            } else {
                const std::string la = form % 3 == 0 ? a + " " + ns : std::string(1, ns) + " " + a;
                const std::string lb = form % 3 == 0 ? b + " " + ew : std::string(1, ew) + " " + b;
                text = swapped ? lb + " " + la : la + " " + lb;
                const std::string gla = ga + ns, glb = gb + ew;
                g = swapped ? std::make_pair(glb, gla) : std::make_pair(gla, glb);
            }
            c.texts.push_back(QString::fromUtf8(text.c_str()));
            c.geo.push_back(g);
        }
        return c;
    }();
    return c;
}

// Every text must read, through every path, before anything is timed.
bool corpusReads() {
    const Corpus& c = corpus();
    for (std::size_t i = 0; i < c.texts.size(); ++i) {
        double lat = 0, lng = 0, glat = 0, glng = 0;
        mirel::LatLngPair p;
        if (!mirel::LatLngPair::Parse(c.texts[i], &lat, &lng) || !mirel::coords::parsePairByPatterns(p, c.texts[i])) {
            std::fprintf(stderr, "does not read: %s\n", qPrintable(c.texts[i]));
            return false;
        }
        GeographicLib::DMS::DecodeLatLon(c.geo[i].first, c.geo[i].second, glat, glng);
        if (std::fabs(glat - lat) > 1e-3 || std::fabs(glng - lng) > 1e-3) {
            std::fprintf(stderr, "positions differ: %s | %s %s\n", qPrintable(c.texts[i]), c.geo[i].first.c_str(),
                         c.geo[i].second.c_str());
            return false;
        }
    }
    return true;
}

void BM_LatLngPairParse(benchmark::State& state) {
    const Corpus& c = corpus();
    for (auto _ : state) {
        for (const QString& t : c.texts) {
            double lat, lng;
            benchmark::DoNotOptimize(mirel::LatLngPair::Parse(t, &lat, &lng));
            benchmark::DoNotOptimize(lat);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<long>(c.texts.size()));
}

void BM_PatternPathOnly(benchmark::State& state) {
    const Corpus& c = corpus();
    for (auto _ : state) {
        for (const QString& t : c.texts) {
            mirel::LatLngPair p;
            benchmark::DoNotOptimize(mirel::coords::parsePairByPatterns(p, t));
            benchmark::DoNotOptimize(p.lat);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<long>(c.texts.size()));
}

void BM_GeographicLibDecodeLatLon(benchmark::State& state) {
    const Corpus& c = corpus();
    for (auto _ : state) {
        for (const auto& g : c.geo) {
            double lat, lng;
            GeographicLib::DMS::DecodeLatLon(g.first, g.second, lat, lng);
            benchmark::DoNotOptimize(lat);
            benchmark::DoNotOptimize(lng);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<long>(c.geo.size()));
}

// 10 MB of notes: prose with a pair now and then, searched with the published pattern.
void BM_PairPatternScan10MB(benchmark::State& state) {
    static const QString text = [] {
        const Corpus& c = corpus();
        const QString prose = QStringLiteral("Surveyed on the third day, the party moved along the ridge to ");
        QString t;
        t.reserve(10 * 1024 * 1024 + 256);
        for (std::size_t i = 0; t.size() < 10 * 1024 * 1024; ++i) {
            t += prose;
            if (i % 3 == 0) t += c.texts[i % c.texts.size()];
            t += QStringLiteral(".\n");
        }
        return t;
    }();
    const QRegularExpression re(mirel::LatLngPair::kREPattern);
    re.optimize();
    long found = 0;
    for (auto _ : state) {
        for (auto it = re.globalMatch(text); it.hasNext();) {
            it.next();
            ++found;
        }
    }
    benchmark::DoNotOptimize(found);
    state.SetBytesProcessed(state.iterations() * static_cast<long>(text.toUtf8().size()));
}

BENCHMARK(BM_LatLngPairParse);
BENCHMARK(BM_PatternPathOnly);
BENCHMARK(BM_GeographicLibDecodeLatLon);
BENCHMARK(BM_PairPatternScan10MB)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (!corpusReads()) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
