// The scanner against the regular expressions: generated and mutated texts must get the
// same answer, the same stored values and the same untouched targets from both paths. And
// parses racing from several threads, first use included.
#include <gtest/gtest.h>

#include <QString>

#include <atomic>
#include <cstring>
#include <random>
#include <vector>

#include "base/coords/coordpatterns_p.h"
#include "base/coords/latlngpair.h"
#include "base/coords/latlngvalue.h"
#include "base/testing/testutil.h"

namespace mirel {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kTexts = 60'000;  // instrumented builds run some fifty times slower
#else
constexpr int kTexts = 2'000'000;
#endif

constexpr double kUntouched = -999.0;

// Texts near the accepted shapes, some of them edited afterwards, and some pure noise.
class TextMaker {
public:
    explicit TextMaker(std::uint64_t seed) : mRandom(seed) {}

    QString next() {
        QString t;
        const int kind = pick(10);
        if (kind == 0) {
            for (int n = pick(14); n > 0; --n) t += alphabetChar();
        } else {
            t = kind < 3 ? value(pick(2) == 1) : kind == 3 ? single() : pair();
        }
        for (int edits = pick(4) == 0 ? 1 + pick(3) : 0; edits > 0; --edits) mutate(t);
        return t;
    }

private:
    int pick(int n) { return static_cast<int>(mRandom() % static_cast<std::uint64_t>(n)); }
    bool chance(int percent) { return pick(100) < percent; }
    QString either(const char* a, const char* b, int percentA = 50) { return QString::fromUtf8(chance(percentA) ? a : b); }

    QString digits(int maxLength) {
        QString d;
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
            if (chance(90) || !comma) n += chance(15) ? QString() : digits(4);
        }
        return n;
    }
    QString value(bool comma) {
        const QString deg = either("\u00b0", "", 85);
        switch (pick(3)) {
        case 0: return number(comma) + (chance(50) ? deg : QString());
        case 1: return digits(3) + deg + blanks() + number(comma) + either("'", chance(50) ? "`" : "");
        default:
            return digits(3) + deg + blanks() + digits(2) + either("'", "", 60) + blanks() + number(comma) +
                   either("''", chance(50) ? "\"" : "", 40);
        }
    }
    QString letter(const char* set) { return QString(QChar(set[pick(static_cast<int>(std::strlen(set)))])); }
    QString sign() { return chance(50) ? QString() : either("-", "+"); }
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
        const QString mid = blanks() + (chance(50) ? QString() : either(",", "/", 60)) + blanks();
        switch (pick(3)) {
        case 0: return value(comma) + blanks() + letter(letters) + mid + value(comma) + blanks() + letter(other);
        case 1: return letter(letters) + blanks() + value(comma) + mid + letter(other) + blanks() + value(comma);
        default: return sign() + blanks() + value(comma) + (comma ? blanks() : mid) + sign() + blanks() + value(comma);
        }
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
        const int edit = pick(4);
        if (edit == 0) t.insert(at, alphabetChar());
        else if (at >= t.size()) return;
        else if (edit == 1) t.remove(at, 1);
        else if (edit == 2) t[at] = alphabetChar();
        else t.insert(at, t.mid(at, 1 + pick(3)));  // a repeated piece
    }

    std::mt19937_64 mRandom;
};

// Same double, bit for bit (both paths compute the same expressions).
bool same(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Both paths over one text, with the working fields filled as well as the targets: a path
// that touched one on a failure where the other did not shows here.
template <class Single>
void expectSameSingle(const QString& text, bool (*byPatterns)(Single&, const QString&)) {
    double fastOut = kUntouched, slowOut = kUntouched;
    Single fast(&fastOut), slow(&slowOut);
    fast.value = slow.value = kUntouched;
    ASSERT_EQ(fast.ParseFrom(text), byPatterns(slow, text)) << text.toStdString();
    ASSERT_TRUE(same(fastOut, slowOut) && same(fast.value, slow.value)) << text.toStdString();
}

void expectSameAnswers(const QString& text, bool singleAxes) {
    double out[4] = {kUntouched, kUntouched, kUntouched, kUntouched};
    LatLngPair fast(&out[0], &out[1]), slow(&out[2], &out[3]);
    fast.lat = fast.lng = slow.lat = slow.lng = kUntouched;
    ASSERT_EQ(fast.ParseFrom(text), coords::parsePairByPatterns(slow, text)) << "pair: " << text.toStdString();
    ASSERT_TRUE(same(out[0], out[2]) && same(out[1], out[3]) && same(fast.lat, slow.lat) && same(fast.lng, slow.lng))
        << "pair: " << text.toStdString();
    ASSERT_NO_FATAL_FAILURE(expectSameSingle<LatLngValue>(text, coords::parseValueByPatterns));
    if (!singleAxes) return;
    ASSERT_NO_FATAL_FAILURE(expectSameSingle<LatValue>(text, coords::parseLatByPatterns));
    ASSERT_NO_FATAL_FAILURE(expectSameSingle<LngValue>(text, coords::parseLngByPatterns));
}

TEST(CoordScan, AgreesWithThePatterns) {
    // First the texts whose answer depends on the order in which the patterns try their
    // alternatives, then generated ones.
    for (const char* t : {"1.23", "1.2.3", "12 3.45", "1 2 3 4 5 6", "37 30 122 5", "37 30 0 122 5 0", "37, 120,25",
                          "1,2 3", "1,2,3", "1,23", "1 ,2 3", "N 37, E 122,5", "N 37,5, E 122", "37''' N 1 E",
                          "1\u00b0 2\u00b0", "1' 2", "1 2'3", "1 2''3", "5-6", "5--6", "+5+6", "0.0 0.0", "180,9 S 1 E"}) {
        ASSERT_NO_FATAL_FAILURE(expectSameAnswers(QString::fromUtf8(t), true));
    }
    TextMaker maker(20261124);
    int accepted = 0;
    for (int i = 0; i < kTexts; ++i) {
        const QString text = maker.next();
        ASSERT_NO_FATAL_FAILURE(expectSameAnswers(text, i % 4 == 0));
        double lat = 0, lng = 0;
        accepted += LatLngPair::Parse(text, &lat, &lng) ? 1 : 0;
    }
    // The generator must reach both answers in earnest, or agreement proves little.
    EXPECT_GT(accepted, kTexts / 10);
    EXPECT_LT(accepted, kTexts * 9 / 10);
}

// Each test runs in its own process, so this one also races on the patterns' first use.
TEST(CoordScan, ParsesFromSeveralThreadsAtOnceFirstUseIncluded) {
    constexpr int kThreads = 6;
    const QString texts[] = {"37.42 N 122.08 W", "W 122.08, N 37.42", "-37,5 120,25", "100 N 20 E"};
    const double expected[][2] = {{37.42, -122.08}, {37.42, -122.08}, {-37.5, 120.25}, {kUntouched, kUntouched}};
    std::atomic<int> wrong{0};
    std::vector<const void*> seen(kThreads * 3, nullptr);
    testing::runTogether(kThreads, [&](int t) {
        seen[3 * t] = LatLngValuePatterns::getSingleton();
        seen[3 * t + 1] = LatLngPairPatterns::getSingleton();
        seen[3 * t + 2] = LatValuePatterns::getSingleton();
        for (int round = 0; round < 300; ++round) {
            for (int i = 0; i < 4; ++i) {
                double lat = kUntouched, lng = kUntouched, v = 0;
                LatLngPair pair(&lat, &lng);
                // Half the threads take the pattern path, so both are raced.
                const bool ok = t % 2 ? pair.ParseFrom(texts[i]) : coords::parsePairByPatterns(pair, texts[i]);
                if (ok != (i < 3) || lat != expected[i][0] || lng != expected[i][1]) ++wrong;
                if (!LatValue::Parse("S 33.9", &v) || v != -33.9) ++wrong;
            }
        }
    });
    EXPECT_EQ(wrong.load(), 0);
    for (int k = 3; k < kThreads * 3; ++k) EXPECT_EQ(seen[k], seen[k % 3]) << k;
}

}  // namespace
}  // namespace mirel
