// The scanner against the regular expressions: generated and mutated texts must get the
// same answer, the same stored values and the same untouched targets from both paths. And
// parses racing from several threads, first use included.
#include <gtest/gtest.h>

#include <QString>

#include <barrier>
#include <cmath>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "base/coords/coordpatterns_p.h"
#include "base/coords/latlngpair.h"
#include "base/coords/latlngvalue.h"

namespace mirel {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kTexts = 60'000;  // instrumented builds run some fifty times slower
#else
constexpr int kTexts = 2'000'000;
#endif

constexpr double kUntouched = -999.0;

// Same double, bit for bit (both paths compute the same expressions).
bool same(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

class TextMaker {
public:
    explicit TextMaker(std::uint64_t seed) : mRandom(seed) {}

    QString next() {
        QString t;
        switch (pick(10)) {
        case 0: t = noise(); break;
        case 1: case 2: t = value(pick(2) == 1); break;
        case 3: t = single(); break;
        default: t = pair(); break;
        }
        for (int edits = pick(4) == 0 ? 1 + pick(3) : 0; edits > 0; --edits) mutate(t);
        return t;
    }

private:
    int pick(int n) { return static_cast<int>(mRandom() % static_cast<std::uint64_t>(n)); }
    bool chance(int percent) { return pick(100) < percent; }

    QString digits(int maxLength) {
        QString d;
        if (maxLength <= 0) return d;
        const int length = pick(40) == 0 ? 25 + pick(15) : 1 + pick(maxLength);  // some beyond the scanner
        for (int i = 0; i < length; ++i) d += QChar(u'0' + pick(10));
        return d;
    }
    QString blanks() {
        static const char16_t kBlanks[] = {u' ', u' ', u' ', u'\t', u'\v', u'\n'};
        QString b;
        for (int n = pick(4) == 0 ? 0 : pick(3); n > 0; --n) b += QChar(kBlanks[pick(6)]);
        return b;
    }
    QString number(bool comma) {
        QString n = digits(3);
        if (chance(60)) {
            n += QChar(comma ? u',' : u'.');
            if (chance(90) || !comma) n += digits(chance(15) ? 0 : 4);
        }
        return n;
    }
    QString value(bool comma) {
        const QString deg = chance(85) ? QString(QChar(0x00B0)) : QString();
        switch (pick(3)) {
        case 0: return number(comma) + (chance(50) ? deg : QString());
        case 1:
            return digits(3) + deg + blanks() + number(comma) + QString(chance(50) ? "'" : chance(50) ? "`" : "");
        default:
            return digits(3) + deg + blanks() + digits(2) + QString(chance(60) ? "'" : "") + blanks() + number(comma) +
                   QString(chance(40) ? "''" : chance(50) ? "\"" : "");
        }
    }
    QString letter(const char* set) { return QString(QChar(set[pick(static_cast<int>(std::strlen(set)))])); }
    QString sign() { return chance(50) ? QString() : QString(chance(50) ? "-" : "+"); }
    QString separator() { return chance(50) ? QString() : QString(chance(60) ? "," : "/"); }
    QString single() {
        const char* set = chance(50) ? "NSns" : "EWew";
        switch (pick(3)) {
        case 0: return value(false) + blanks() + letter(set);
        case 1: return letter(set) + blanks() + value(false);
        default: return sign() + blanks() + value(false);
        }
    }
    QString pair() {
        const bool comma = chance(30);
        const char* letters = chance(80) ? (chance(50) ? "NSns" : "EWew") : "NSEWnsewx";
        const char* other = std::strchr("NSns", letters[0]) != nullptr ? "EWew" : "NSns";
        const QString mid = blanks() + separator() + blanks();
        switch (pick(3)) {
        case 0:
            return value(comma) + blanks() + letter(letters) + mid + value(comma) + blanks() + letter(other);
        case 1:
            return letter(letters) + blanks() + value(comma) + mid + letter(other) + blanks() + value(comma);
        default:
            return sign() + blanks() + value(comma) + (comma ? blanks() : mid) + sign() + blanks() + value(comma);
        }
    }
    QString noise() {
        QString t;
        for (int n = pick(14); n > 0; --n) t += alphabetChar();
        return t;
    }
    QChar alphabetChar() {
        // The pattern's own characters, their near misses, and characters that only a wider
        // \d or \s would take.
        static const char16_t kAlphabet[] = {
            u'0', u'1', u'5', u'9', u'.', u',', u' ', u'\t', u'\v', u'\r', u'/', u'-', u'+', u'\'', u'`',
            u'"', 0x00B0, u'N', u'S', u'E', u'W', u'n', u's', u'e', u'w', u'x', u'o', 0x00A0, 0x0085,
            0x2003, 0x0661, 0xFF11, 0x014E, 0x00BA, 0xD800, 0,
        };
        return QChar(kAlphabet[pick(static_cast<int>(std::size(kAlphabet)))]);
    }
    void mutate(QString& t) {
        const int at = t.isEmpty() ? 0 : pick(static_cast<int>(t.size()) + 1);
        switch (pick(4)) {
        case 0: t.insert(at, alphabetChar()); break;
        case 1:
            if (at < t.size()) t.remove(at, 1);
            break;
        case 2:
            if (at < t.size()) t[at] = alphabetChar();
            break;
        default:
            if (at < t.size()) t.insert(at, t.mid(at, 1 + pick(3)));  // a repeated piece
            break;
        }
    }

    std::mt19937_64 mRandom;
};

std::string shown(const QString& text) { return text.toUtf8().toStdString(); }

void expectSamePair(const QString& text) {
    double fastLat = kUntouched, fastLng = kUntouched, slowLat = kUntouched, slowLng = kUntouched;
    LatLngPair fast(&fastLat, &fastLng), slow(&slowLat, &slowLng);
    fast.lat = fast.lng = slow.lat = slow.lng = kUntouched;
    const bool a = fast.ParseFrom(text);
    const bool b = coords::parsePairByPatterns(slow, text);
    ASSERT_EQ(a, b) << "pair: " << shown(text);
    ASSERT_TRUE(same(fastLat, slowLat) && same(fastLng, slowLng)) << "pair: " << shown(text);
    ASSERT_TRUE(same(fast.lat, slow.lat) && same(fast.lng, slow.lng)) << "pair: " << shown(text);
}

// Fills each object's working fields as well as its targets: a path that touched one on a
// failure where the other did not shows here.
template <class Single>
void expectSameSingle(const QString& text, bool (*byPatterns)(Single&, const QString&)) {
    double fastOut = kUntouched, slowOut = kUntouched;
    Single fast(&fastOut), slow(&slowOut);
    fast.value = slow.value = kUntouched;
    const bool a = fast.ParseFrom(text);
    const bool b = byPatterns(slow, text);
    ASSERT_EQ(a, b) << shown(text);
    ASSERT_TRUE(same(fastOut, slowOut) && same(fast.value, slow.value)) << shown(text);
}

// Differential ------------------------------------------------------------------------------------

TEST(CoordScan, AgreesWithThePatternsOnGeneratedAndMutatedTexts) {
    TextMaker maker(20261124);
    int accepted = 0;
    for (int i = 0; i < kTexts; ++i) {
        const QString text = maker.next();
        ASSERT_NO_FATAL_FAILURE(expectSameSingle<LatLngValue>(text, coords::parseValueByPatterns));
        ASSERT_NO_FATAL_FAILURE(expectSamePair(text));
        if (i % 4 == 0) {
            ASSERT_NO_FATAL_FAILURE(expectSameSingle<LatValue>(text, coords::parseLatByPatterns));
            ASSERT_NO_FATAL_FAILURE(expectSameSingle<LngValue>(text, coords::parseLngByPatterns));
        }
        double lat = 0, lng = 0;
        accepted += LatLngPair::Parse(text, &lat, &lng) ? 1 : 0;
    }
    // The generator must reach both answers in earnest, or agreement proves little.
    EXPECT_GT(accepted, kTexts / 10);
    EXPECT_LT(accepted, kTexts * 9 / 10);
}

// Texts whose answer depends on the order in which the patterns try their alternatives.
TEST(CoordScan, AgreesWhereTheMatchOrderDecides) {
    const char* texts[] = {
        "1.23", "1.2.3", "12 3.45", "1 2 3 4 5 6", "37 30 122 5", "37 30 0 122 5 0", "37, 120,25",
        "1,2 3", "1,2,3", "1,23", "1 ,2 3", "N 37, E 122,5", "N 37,5, E 122", "37''' N 1 E",
        "1\u00b0 2\u00b0", "1' 2", "1 2'3", "1 2''3", "5-6", "5--6", "+5+6", "0.0 0.0", "180,9 S 1 E",
    };
    for (const char* t : texts) {
        const QString text = QString::fromUtf8(t);
        ASSERT_NO_FATAL_FAILURE(expectSameSingle<LatLngValue>(text, coords::parseValueByPatterns));
        ASSERT_NO_FATAL_FAILURE(expectSamePair(text));
        ASSERT_NO_FATAL_FAILURE(expectSameSingle<LatValue>(text, coords::parseLatByPatterns));
        ASSERT_NO_FATAL_FAILURE(expectSameSingle<LngValue>(text, coords::parseLngByPatterns));
    }
}

// Threads -----------------------------------------------------------------------------------------

// Each test runs in its own process, so this one also races on the patterns' first use.
TEST(CoordScan, ParsesFromSeveralThreadsAtOnceFirstUseIncluded) {
    constexpr int kThreads = 6;
    const QString texts[] = {"37.42 N 122.08 W", "W 122.08, N 37.42", "-37,5 120,25", "100 N 20 E"};
    const double expected[][2] = {{37.42, -122.08}, {37.42, -122.08}, {-37.5, 120.25}, {kUntouched, kUntouched}};
    std::barrier start(kThreads);
    std::vector<int> wrong(kThreads, 0);
    std::vector<const void*> seen(kThreads * 3, nullptr);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            seen[3 * t] = LatLngValuePatterns::getSingleton();
            seen[3 * t + 1] = LatLngPairPatterns::getSingleton();
            seen[3 * t + 2] = LatValuePatterns::getSingleton();
            for (int round = 0; round < 300; ++round) {
                for (int i = 0; i < 4; ++i) {
                    double lat = kUntouched, lng = kUntouched;
                    LatLngPair pair(&lat, &lng);
                    // Half the threads take the pattern path, so both are raced.
                    const bool ok = t % 2 ? pair.ParseFrom(texts[i]) : coords::parsePairByPatterns(pair, texts[i]);
                    if (ok != (i < 3) || lat != expected[i][0] || lng != expected[i][1]) ++wrong[t];
                }
                double v = 0;
                if (!LatValue::Parse("S 33.9", &v) || v != -33.9) ++wrong[t];
            }
        });
    }
    for (std::thread& th : threads) th.join();
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(wrong[t], 0) << "thread " << t;
        for (int k = 0; k < 3; ++k) EXPECT_EQ(seen[3 * t + k], seen[k]) << "thread " << t;
    }
}

}  // namespace
}  // namespace mirel
