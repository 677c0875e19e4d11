#include "base/foundation/utf8ostream.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QRegularExpression>

#include <cstdio>
#include <cwchar>
#include <random>
#include <string>

#include "base/foundation/errorlog.h"
#include "base/system/system.h"

namespace mirel {
namespace {

std::string bytes(const Utf8OStream& s) {
    return s.data() == nullptr ? std::string() : std::string(s.data(), std::size_t(s.length()));
}

std::string bytes(const QByteArray& a) { return std::string(a.constData(), std::size_t(a.size())); }

// Random BMP text away from the surrogates, where standard UTF-8 and this encoding agree;
// ASCII runs of every length exercise the eight-at-a-time path and its edges.
QString randomBmpText(std::mt19937& rng, int length) {
    std::uniform_int_distribution<int> kind(0, 9), run(1, 20);
    std::uniform_int_distribution<int> ascii(1, 0x7F), latin(0x80, 0x7FF), wide(0x800, 0xFFFF);
    QString s;
    while (s.size() < length) {
        const int k = kind(rng);
        if (k < 5) {
            for (int n = run(rng); n > 0; --n) s.append(QChar(ascii(rng)));
        } else if (const int c = k < 7 ? latin(rng) : wide(rng); c < 0xD800 || c > 0xDFFF) {
            s.append(QChar(c));
        }
    }
    return s;
}

// Encoding -------------------------------------------------------------------------------------

// Surrogates are not joined: each half is written on its own in three bytes.
TEST(Utf8OStream, EncodesEachUnitInOneTwoOrThreeBytes) {
    const struct {
        std::u16string text;
        std::string utf8;
    } rows[] = {
        {u"A", "A"},
        {u"\u007f\u0080", "\x7F\xC2\x80"},
        {u"\u07ff\u0800", "\xDF\xBF\xE0\xA0\x80"},
        {u"\uffff", "\xEF\xBF\xBF"},
        {u"\U0001F600", "\xED\xA0\xBD\xED\xB8\x80"},
        {{char16_t(0xDC00), u'x'}, "\xED\xB0\x80x"},
    };
    for (const auto& r : rows) {
        Utf8OStream s;
        s << QString::fromStdU16String(r.text);
        EXPECT_EQ(bytes(s), r.utf8);
    }
}

// Both paths: a fresh stream counts first and grows, a roomy one encodes straight away.
TEST(Utf8OStream, AgreesWithQtWhereStandardUtf8AndItCoincide) {
    std::mt19937 rng(99);
    for (int round = 0; round < 300; ++round) {
        const QString text = randomBmpText(rng, round);
        Utf8OStream fresh;
        fresh << text;
        EXPECT_EQ(bytes(fresh), bytes(text.toUtf8())) << round;
        Utf8OStream roomy;
        roomy << QString(3000, QChar('-'));  // 1,096 bytes left: room for three a unit
        roomy << text;
        EXPECT_EQ(bytes(roomy).substr(3000), bytes(text.toUtf8())) << round;
    }
}

TEST(Utf8OStream, TextEndsAtTheFirstZeroUnit) {
    for (int at = 0; at < 20; ++at) {
        QString text(24, QChar('a'));
        text[at] = QChar(0);
        Utf8OStream fresh;
        fresh << text;
        EXPECT_EQ(bytes(fresh), std::string(std::size_t(at), 'a')) << at;
        Utf8OStream roomy;  // room for three bytes a unit: no counting pass finds the zero
        roomy << QString(150, QChar('-'));
        roomy << text;
        EXPECT_EQ(bytes(roomy), std::string(150, '-') + std::string(std::size_t(at), 'a')) << at;
    }
}

// The buffer -------------------------------------------------------------------------------------

TEST(Utf8OStream, GrowsByDoublingAndKeepsEverythingWritten) {
    Utf8OStream empty;
    empty << QString() << QString("");
    EXPECT_EQ(empty.data(), nullptr);
    EXPECT_TRUE(empty.good());

    std::mt19937 rng(5);
    Utf8OStream s;
    std::string expected;
    for (int i = 0; i < 400; ++i) {
        const QString piece = randomBmpText(rng, i % 37 + (i % 50 == 0 ? 3000 : 0));
        s << piece;
        expected += bytes(piece.toUtf8());
        ASSERT_EQ(s.length(), int(expected.size()));
        int c = s.capacity();  // only whole doublings of the first block
        while (c > 64 && c % 2 == 0) c /= 2;
        ASSERT_EQ(c, 64) << s.capacity();
    }
    EXPECT_EQ(bytes(s), expected);
    Utf8OStream exact;
    exact << QString(64, QChar('x'));
    EXPECT_EQ(exact.capacity(), 64) << "growth follows the bytes written, not three a unit";
    Utf8OStream partly;
    partly << QString(10, QChar('x'));
    partly << QString(20, QChar(0x4E2D));  // room for two bytes a unit, not for three
    EXPECT_EQ(partly.length(), 70);
    EXPECT_EQ(partly.capacity(), 128);
}

// The block encoder stores whole words and blocks ahead of the text: where the text fills
// the buffer to its last byte, none of that may land past the end (ASan watches the block).
TEST(Utf8OStream, FillingTheBufferToItsLastByteWritesNothingPastIt) {
    for (int capacity : {64, 128, 256}) {
        for (int wide = 0; 3 * wide <= capacity; ++wide) {
            const QString ascii(capacity - 3 * wide, QChar('a')), cjk(wide, QChar(0x4E2D));
            for (const QString& text : {ascii + cjk, cjk + ascii}) {
                Utf8OStream s;
                s << text;
                ASSERT_EQ(s.capacity(), capacity);
                EXPECT_EQ(bytes(s), bytes(text.toUtf8()));
            }
        }
    }
}

// ErrorLog -------------------------------------------------------------------------------------

// The file's bytes, read past the stream so that its orientation does not matter.
std::string readAll(FILE* f) {
    std::fflush(f);
    std::string out;
    char buffer[256];
    ssize_t n;
    while ((n = pread(fileno(f), buffer, sizeof buffer, off_t(out.size()))) > 0) {
        out.append(buffer, std::size_t(n));
    }
    return out;
}

// Standard UTF-8 here (the C library's, not Utf8OStream's) after a timestamp; no line end
// is added.
TEST(ErrorLog, WritesTheTimeAndTheMessage) {
    FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    const QString message = QString::fromUtf16(u"caf\u00e9 \U0001F600 done\n");
    const double before = System::getTime();
    EXPECT_TRUE(ErrorLog(f, message));
    const double after = System::getTime();
    const QString line = QString::fromUtf8(readAll(f).c_str());
    std::fclose(f);
    const auto m = QRegularExpression(QStringLiteral("^(\\d+\\.\\d{6}): (.*)$"),
                                      QRegularExpression::DotMatchesEverythingOption).match(line);
    ASSERT_TRUE(m.hasMatch()) << line.toStdString();
    EXPECT_GE(m.captured(1).toDouble(), before - 1e-6);
    EXPECT_LE(m.captured(1).toDouble(), after + 1e-6);
    EXPECT_EQ(m.captured(2), message);
    EXPECT_TRUE(ErrorLog(nullptr, message)) << "a null stream is accepted";
}

// A stream already used keeps its orientation; the line must still arrive.
TEST(ErrorLog, WritesOnStreamsAlreadyUsedNarrowOrWide) {
    for (bool wide : {false, true}) {
        FILE* f = std::tmpfile();
        ASSERT_NE(f, nullptr);
        wide ? (void)std::fputws(L"first|", f) : (void)std::fputs("first|", f);
        EXPECT_TRUE(ErrorLog(f, QStringLiteral("after")));
        EXPECT_EQ(fwide(f, 0) > 0, wide);
        const std::string text = readAll(f);
        std::fclose(f);
        EXPECT_EQ(text.rfind("first|", 0), 0u) << text;
        EXPECT_NE(text.find(": after"), std::string::npos) << text;
    }
}

}  // namespace
}  // namespace mirel
