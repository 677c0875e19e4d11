#include "base/xml/resourcedictionary.h"

#include <gtest/gtest.h>

#include <optional>

namespace mirel {
namespace {

// Single lines ----------------------------------------------------------------------------------------

// Each row: one line and the entry it leaves (a null key: the line was no entry).
struct LineRow {
    const char* line;
    std::optional<QString> key;
    std::optional<QString> value;
};

TEST(ResourceDictionary, EachLineFormGivesItsEntry) {
    const LineRow rows[] = {
        {"<k> <v>", "k", "v"},
        {"<k><v>", "k", "v"},
        {"<   k> <   v>", "k", "v"},           // blanks after "<" are skipped
        {"<k  >  <v  >", "k  ", "v  "},         // blanks before ">" stay
        {"<a key> <a value>", "a key", "a value"},
        {"noise <k> <v> tail", "k", "v"},       // text before the first "<" is ignored
        {"<k> <v", "k", "v"},                   // the value's ">" is optional
        {"<k> <v> <w>", "k", "v"},              // and what follows it is ignored
        {"<k>\t<\tv>", "k", "v"},
        {"<K> <V>", "K", "V"},                  // case is kept
        {"<cl\u00e9> <\u5024>", "cl\u00e9", "\u5024"},
        {"no brackets", std::nullopt, std::nullopt},
        {"<k>", std::nullopt, std::nullopt},
        {"<> <v>", std::nullopt, std::nullopt},  // an empty key is no entry
        {"   ", std::nullopt, std::nullopt},
    };
    for (const LineRow& r : rows) {
        ResourceDictionary d;
        EXPECT_TRUE(d.insertEntryFromString(QString::fromUtf8(r.line))) << r.line;
        ASSERT_EQ(d.entries.size(), 1) << r.line;
        const QString key = d.entries.firstKey();
        const QString value = d.entries.first();
        if (r.key) {
            EXPECT_EQ(key, *r.key) << r.line;
            EXPECT_EQ(value, *r.value) << r.line;
        } else {
            EXPECT_TRUE(key.isNull()) << r.line << " gave key " << key.toStdString();
            EXPECT_TRUE(value.isNull()) << r.line << " gave value " << value.toStdString();
        }
    }
}

// Loading -----------------------------------------------------------------------------------------------

TEST(ResourceDictionary, LoadingAddsLineByLineAndLaterKeysWin) {
    ResourceDictionary d;
    d.entries.insert("kept", "from before");
    EXPECT_TRUE(d.loadFromString("<b> <1>\n\n<a> <2>\nnot an entry\n<b> <3>\n"));
    EXPECT_EQ(d.entries.value("b"), "3");
    EXPECT_EQ(d.entries.value("a"), "2");
    EXPECT_EQ(d.entries.value("kept"), "from before");  // loading does not clear
    EXPECT_TRUE(d.entries.contains(QString()));           // the line that was no entry
    EXPECT_EQ(d.entries.size(), 4);

    ResourceDictionary empty;
    EXPECT_TRUE(empty.loadFromString(QString()));
    EXPECT_TRUE(empty.loadFromString("\n\n\n"));
    EXPECT_TRUE(empty.entries.isEmpty());
}

// Writing --------------------------------------------------------------------------------------------------

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
}

TEST(ResourceDictionary, EntryStringsFillTheMarkersOneAfterTheOther) {
    ResourceDictionary d;
    EXPECT_EQ(d.createDictionaryEntryString("k", "v"), "<k> <v>");
    EXPECT_EQ(d.createDictionaryEntryString("", ""), "<> <>");
    // The value fills the lowest marker left after the key went in.
    EXPECT_EQ(d.createDictionaryEntryString("%2", "v"), "<v> <v>");
    EXPECT_EQ(d.createDictionaryEntryString("a%1", "v"), "<av> <%2>");
}

// Sharing --------------------------------------------------------------------------------------------------

TEST(ResourceDictionary, CopiesShareUntilOneChanges) {
    ResourceDictionary a;
    ASSERT_TRUE(a.loadFromString("<k> <v>\n"));
    ResourceDictionary b(a);
    EXPECT_FALSE(b.entries.isDetached());
    ASSERT_TRUE(b.insertEntryFromString("<k> <changed>"));
    EXPECT_EQ(a.entries.value("k"), "v");
    EXPECT_EQ(b.entries.value("k"), "changed");
    ResourceDictionary c;
    c = a;
    EXPECT_FALSE(a.entries.isDetached());
    EXPECT_EQ(c.entries, a.entries);
}

}  // namespace
}  // namespace mirel
