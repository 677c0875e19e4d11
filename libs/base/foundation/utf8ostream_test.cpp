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

// Encoding -------------------------------------------------------------------------------------

TEST(Utf8OStream, EncodesOneTwoAndThreeByteUnits) {
    struct Row {
        const char16_t* text;
        std::string utf8;
    };
    const Row rows[] = {
        {u"A", "A"},
        {u"\u00e9", "\xC3\xA9"},
        {u"\u007f\u0080", "\x7F\xC2\x80"},
        {u"\u07ff\u0800", "\xDF\xBF\xE0\xA0\x80"},
        {u"\uffff", "\xEF\xBF\xBF"},
    };
    for (const Row& r : rows) {
        Utf8OStream s;
        s << QString::fromUtf16(r.text);
        EXPECT_EQ(bytes(s), r.utf8);
    }
}

TEST(Utf8OStream, EachSurrogateIsWrittenOnItsOwnInThreeBytes) {
    Utf8OStream s;
    s << QString::fromUtf16(u"\U0001F600");  // D83D DE00
    EXPECT_EQ(bytes(s), "\xED\xA0\xBD\xED\xB8\x80");
    Utf8OStream lone;
    lone << QString::fromUtf16(u"\xDC00x", 2);
    EXPECT_EQ(bytes(lone), "\xED\xB0\x80x");
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
        } else if (k < 7) {
            s.append(QChar(latin(rng)));
        } else {
            int c;
            do c = wide(rng);
            while (c >= 0xD800 && c <= 0xDFFF);
            s.append(QChar(c));
        }
    }
    return s;
}

TEST(Utf8OStream, AgreesWithQtWhereStandardUtf8AndItCoincide) {
    std::mt19937 rng(99);
    for (int round = 0; round < 300; ++round) {
        const QString text = randomBmpText(rng, round);
        Utf8OStream fresh;  // grows on this append
        fresh << text;
        EXPECT_EQ(bytes(fresh), bytes(text.toUtf8())) << round;

        Utf8OStream roomy;  // already has room: the path without a counting pass
        roomy << QString(4096, QChar('-'));
        roomy << text;
        EXPECT_EQ(bytes(roomy).substr(4096), bytes(text.toUtf8())) << round;
    }
}

TEST(Utf8OStream, TextEndsAtTheFirstZeroUnit) {
    for (int at = 0; at < 20; ++at) {
        QString text(24, QChar('a'));
        text[at] = QChar(0);
        Utf8OStream fresh;
        fresh << text;
        EXPECT_EQ(bytes(fresh), std::string(std::size_t(at), 'a')) << at;
        Utf8OStream roomy;
        roomy << QString(200, QChar('-'));
        roomy << text;
        EXPECT_EQ(bytes(roomy), std::string(200, '-') + std::string(std::size_t(at), 'a')) << at;
    }
}

// The buffer -------------------------------------------------------------------------------------

TEST(Utf8OStream, EmptyTextAppendsNothing) {
    Utf8OStream s;
    s << QString() << QString("");
    EXPECT_EQ(s.length(), 0);
    EXPECT_EQ(s.data(), nullptr);
    EXPECT_TRUE(s.good());
}

TEST(Utf8OStream, GrowsByDoublingAndKeepsEverythingWritten) {
    std::mt19937 rng(5);
    Utf8OStream s;
    std::string expected;
    int lastCapacity = 0;
    for (int i = 0; i < 400; ++i) {
        const QString piece = randomBmpText(rng, i % 37 + (i % 50 == 0 ? 3000 : 0));
        s << piece;
        expected += bytes(piece.toUtf8());
        ASSERT_EQ(s.length(), int(expected.size()));
        ASSERT_GE(s.capacity(), s.length());
        if (s.capacity() != lastCapacity) {
            // Only whole doublings of the first block.
            int c = s.capacity();
            while (c > 64 && c % 2 == 0) c /= 2;
            EXPECT_EQ(c, 64) << s.capacity();
            lastCapacity = s.capacity();
        }
    }
    EXPECT_EQ(bytes(s), expected);
    EXPECT_TRUE(s.good());
    // Growth follows the bytes actually written, not the worst case of three per unit.
    Utf8OStream exact;
    exact << QString(64, QChar('x'));
    EXPECT_EQ(exact.capacity(), 64);
}

// The block encoder stores whole words and blocks ahead of the text: where the text fills
// the buffer to its last byte, none of that may land past the end (ASan watches the block).
TEST(Utf8OStream, FillingTheBufferToItsLastByteWritesNothingPastIt) {
    for (int ascii = 0; ascii < 3; ++ascii) {
        for (int capacity : {64, 128, 256}) {
            QString text;
            int size = 0;
            while (size + 3 <= capacity - ascii) {
                text.append(QChar(0x4E2D));  // three bytes
                size += 3;
            }
            while (size < capacity) {
                text.append(QChar('a'));
                ++size;
            }
            Utf8OStream s;
            s << text;
            ASSERT_EQ(s.capacity(), capacity);
            EXPECT_EQ(bytes(s), bytes(text.toUtf8()));
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

TEST(ErrorLog, WritesTheTimeAndTheMessageWithoutAddingALineEnd) {
    FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    const double before = System::getTime();
    EXPECT_TRUE(ErrorLog(f, QString::fromUtf16(u"caf\u00e9 \U0001F600 done\n")));
    const double after = System::getTime();
    const QString line = QString::fromUtf8(readAll(f).c_str());
    std::fclose(f);

    const QRegularExpression form(QStringLiteral("^(\\d+\\.\\d{6}): (.*)$"),
                                  QRegularExpression::DotMatchesEverythingOption);
    const auto m = form.match(line);
    ASSERT_TRUE(m.hasMatch()) << line.toStdString();
    const double stamp = m.captured(1).toDouble();
    EXPECT_GE(stamp, before - 1e-6);
    EXPECT_LE(stamp, after + 1e-6);
    // Standard UTF-8 here: the log goes through the C library, not Utf8OStream.
    EXPECT_EQ(m.captured(2), QString::fromUtf16(u"caf\u00e9 \U0001F600 done\n"));
}

TEST(ErrorLog, StillWritesAfterTheStreamWasUsedForNarrowOutput) {
    FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    std::fprintf(f, "narrow|");
    EXPECT_TRUE(ErrorLog(f, QStringLiteral("after")));
    const std::string text = readAll(f);
    std::fclose(f);
    EXPECT_EQ(text.rfind("narrow|", 0), 0u) << text;
    EXPECT_NE(text.find(": after"), std::string::npos) << text;
}

TEST(ErrorLog, WritesWideCharactersOnAWideStream) {
    FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    ASSERT_GT(fwide(f, 1), 0);
    std::fputws(L"wide|", f);
    EXPECT_TRUE(ErrorLog(f, QStringLiteral("plain ascii")));
    EXPECT_GT(fwide(f, 0), 0);
    const std::string text = readAll(f);
    std::fclose(f);
    EXPECT_EQ(text.rfind("wide|", 0), 0u) << text;
    EXPECT_NE(text.find(": plain ascii"), std::string::npos) << text;
}

TEST(ErrorLog, ANullStreamIsAcceptedAndWritesNothing) {
    EXPECT_TRUE(ErrorLog(nullptr, QStringLiteral("lost on purpose")));
}

}  // namespace
}  // namespace mirel
