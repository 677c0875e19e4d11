#include "base/foundation/utf8ostream.h"

#include <gtest/gtest.h>

#include <QFile>
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

// Surrogates are not joined: each half is written on its own in three bytes. Appended
// whole, the first eight units go through the block encoder; one by one, none do.
TEST(Utf8OStream, EncodesEachUnitInOneTwoOrThreeBytes) {
    const QString text = QString::fromUtf16(u"A\u007f\u0080\u07ff\u0800\uffff\U0001F600\xDC00x");
    const std::string utf8 = "A\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xED\xA0\xBD\xED\xB8\x80\xED\xB0\x80x";
    Utf8OStream whole, oneByOne;
    whole << text;
    for (QChar c : text) oneByOne << QString(c);
    EXPECT_EQ(bytes(whole), utf8);
    EXPECT_EQ(bytes(oneByOne), utf8);
}

// A fresh stream counts the bytes before growing; a roomy one encodes straight away.
TEST(Utf8OStream, TextEndsAtTheFirstZeroUnit) {
    for (int at = 0; at < 20; ++at) {
        QString text(100, QChar('a'));
        text[at] = QChar(0);
        Utf8OStream fresh;
        fresh << text;
        EXPECT_EQ(bytes(fresh), std::string(std::size_t(at), 'a')) << at;
        EXPECT_EQ(fresh.capacity(), at == 0 ? 0 : 64) << "sized for the text before the zero";
        Utf8OStream roomy;
        roomy << QString(700, QChar('-'));
        roomy << text;
        EXPECT_EQ(bytes(roomy), std::string(700, '-') + std::string(std::size_t(at), 'a')) << at;
    }
}

// The buffer -------------------------------------------------------------------------------------

TEST(Utf8OStream, GrowsByDoublingTheBytesWrittenAndKeepsThem) {
    std::mt19937 rng(5);
    Utf8OStream s;
    std::string expected;
    for (int i = 0; i < 400; ++i) {
        const QString piece = randomBmpText(rng, i % 37 + (i % 50 == 0 ? 3000 : 0));
        s << piece;
        expected += piece.toUtf8().toStdString();
        ASSERT_EQ(s.length(), int(expected.size()));
        int c = s.capacity();  // only whole doublings of the first block
        while (c > 64 && c % 2 == 0) c /= 2;
        ASSERT_EQ(c, 64) << s.capacity();
    }
    EXPECT_EQ(bytes(s), expected);
    // Growth follows the bytes written, not three a unit.
    const struct {
        int ascii;
        QChar then;
        int count, capacity;
    } rows[] = {{64, QChar('x'), 0, 64}, {10, QChar(0x4E2D), 20, 128}, {62, QChar(0x7FF), 1, 64}};
    for (const auto& r : rows) {
        Utf8OStream t;
        t << QString(r.ascii, QChar('x'));
        t << QString(r.count, r.then);
        EXPECT_EQ(t.capacity(), r.capacity) << r.ascii;
    }
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
                EXPECT_EQ(bytes(s), text.toUtf8().toStdString());
            }
        }
    }
}

// ErrorLog -------------------------------------------------------------------------------------

// The file's bytes, read past the stream so that its orientation does not matter.
QString readAll(FILE* f) {
    std::fflush(f);
    QFile file;
    const bool read = file.open(fileno(f), QIODevice::ReadOnly) && file.seek(0);
    return read ? QString::fromUtf8(file.readAll()) : QString();
}

// Standard UTF-8 here (the C library's, not Utf8OStream's) after a timestamp, with no line
// end added, on a fresh stream or after what a stream already holds, narrow or wide.
TEST(ErrorLog, WritesTheTimeAndTheMessageInTheStreamsOrientation) {
    enum { kFresh, kNarrow, kWide };
    for (int used : {kFresh, kNarrow, kWide}) {
        FILE* f = std::tmpfile();
        ASSERT_NE(f, nullptr);
        if (used == kNarrow) std::fputs("first|", f);
        if (used == kWide) std::fputws(L"first|", f);
        // A wide stream converts through the C locale: plain ASCII only.
        const QString message =
            used == kWide ? QStringLiteral("after\n") : QString::fromUtf16(u"caf\u00e9 \U0001F600 done\n");
        const double before = System::getTime();
        EXPECT_TRUE(ErrorLog(f, message));
        const double after = System::getTime();
        EXPECT_EQ(fwide(f, 0) > 0, used == kWide);
        const QString line = readAll(f);
        std::fclose(f);
        const auto m = QRegularExpression(QStringLiteral("^(first\\|)?(\\d+\\.\\d{6}): (.*)$"),
                                          QRegularExpression::DotMatchesEverythingOption).match(line);
        ASSERT_TRUE(m.hasMatch()) << line.toStdString();
        EXPECT_EQ(m.captured(1).isEmpty(), used == kFresh);
        EXPECT_GE(m.captured(2).toDouble(), before - 1e-6);
        EXPECT_LE(m.captured(2).toDouble(), after + 1e-6);
        EXPECT_EQ(m.captured(3), message);
    }
    EXPECT_TRUE(ErrorLog(nullptr, QStringLiteral("x"))) << "a null stream is accepted";
}

}  // namespace
}  // namespace mirel
