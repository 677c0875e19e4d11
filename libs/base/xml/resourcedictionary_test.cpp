#include "base/xml/resourcedictionary.h"

#include <gtest/gtest.h>

#include <tuple>

namespace mirel {
namespace {

// Each row: one line and the entry it leaves, in UTF-8 (a null key: the line was no entry).
TEST(ResourceDictionary, EachLineFormGivesItsEntry) {
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"<k> <v>", "k", "v"}, {"<k><v>", "k", "v"}, {"<k>\t<\tv>", "k", "v"}, {"<a key> <a value>", "a key", "a value"},
        {"<   k> <   v>", "k", "v"},        // blanks after "<" are skipped
        {"<k  >  <v  >", "k  ", "v  "},      // blanks before ">" stay
        {"noise <k> <v> tail", "k", "v"},    // text before the first "<" is ignored
        {"<k> <v", "k", "v"},                // the value's ">" is optional
        {"<k> <v> <w>", "k", "v"},           // and what follows it is ignored
        {"<K> <V>", "K", "V"},               // case is kept
        {"<cl\u00e9> <\u5024>", "cl\u00e9", "\u5024"},
        {"no brackets", nullptr, nullptr}, {"<k>", nullptr, nullptr}, {"   ", nullptr, nullptr},
        {"<> <v>", nullptr, nullptr},  // an empty key is no entry
    };
    for (const auto& [line, key, value] : rows) {
        ResourceDictionary d;
        EXPECT_TRUE(d.insertEntryFromString(QString::fromUtf8(line))) << line;
        ASSERT_EQ(d.entries.size(), 1) << line;
        // fromUtf8(nullptr) is the null string, shown apart from an empty one.
        auto shown = [](const QString& s) { return s.isNull() ? QStringLiteral("null") : "<" + s + ">"; };
        EXPECT_EQ(shown(d.entries.firstKey()) + shown(d.entries.first()),
                  shown(QString::fromUtf8(key)) + shown(QString::fromUtf8(value))) << line;
    }
}

TEST(ResourceDictionary, LoadingAddsLineByLineAndLaterKeysWin) {
    ResourceDictionary d;
    d.entries.insert("kept", "from before");
    EXPECT_TRUE(d.loadFromString("<b> <1>\n\n<a> <2>\nnot an entry\n<b> <3>\n"));
    const QMap<QString, QString> expected{{"b", "3"}, {"a", "2"}, {"kept", "from before"}, {QString(), QString()}};
    EXPECT_EQ(d.entries, expected);  // not cleared first; the line that was no entry is in

    ResourceDictionary empty;
    EXPECT_TRUE(empty.loadFromString(QString()) && empty.loadFromString("\n\n\n") && empty.entries.isEmpty());
}

TEST(ResourceDictionary, ExportWritesEveryEntryInKeyOrderAndReadsBack) {
    ResourceDictionary d;
    QString out = "stale";
    d.exportToString(out);
    EXPECT_TRUE(out.isNull());

    ASSERT_TRUE(d.loadFromString("<zeta> <last>\n<Alpha> <upper>\n<alpha> <lower>\n<m k> < v w >\n"));
    d.exportToString(out);
    // QMap's order: by UTF-16 unit, so upper case comes first.
    EXPECT_EQ(out, "<Alpha> <upper>\n<alpha> <lower>\n<m k> <v w >\n<zeta> <last>\n");
    ResourceDictionary back;
    ASSERT_TRUE(back.loadFromString(out));
    EXPECT_EQ(back.entries, d.entries);

    // The value fills the lowest marker left after the key went in.
    EXPECT_EQ(d.createDictionaryEntryString("%2", "v"), "<v> <v>");
    EXPECT_EQ(d.createDictionaryEntryString("a%1", "v"), "<av> <%2>");
}

}  // namespace
}  // namespace mirel
