#include "base/foundation/hashtable.h"

#include <gtest/gtest.h>

#include <vector>

namespace mirel {
namespace {

struct Item {
    unsigned int key;
};

// Keys are their own hash, so tests choose buckets.
using ItemTable = IdentityHashTable<Item, unsigned int, &Item::key>;

// Prime sizes -------------------------------------------------------------------------------

// A mistyped entry would still round "up": every size the table can give must be prime.
TEST(HashCalcNextPrime, RoundsUpToAPrimeOfTheTableAndPassesLargerValuesThrough) {
    const struct {
        unsigned int n, expected;
    } rows[] = {
        {0, 53}, {53, 53}, {54, 97}, {4294967291u, 4294967291u}, {4294967292u, 4294967292u},
    };
    for (const auto& r : rows) EXPECT_EQ(HashCalcNextPrime(r.n), r.expected) << r.n;
    std::vector<unsigned long> entries;
    for (unsigned long n = 0; n <= 4294967291ul; n = entries.back() + 1) {
        entries.push_back(HashCalcNextPrime(static_cast<unsigned int>(n)));
    }
    ASSERT_EQ(entries.size(), 28u);
    for (unsigned long e : entries) {
        for (unsigned long d = 2; d * d <= e; ++d) ASSERT_NE(e % d, 0u) << e;
    }
}

// Insertion and removal ---------------------------------------------------------------------

TEST(HashTable, AnElementIsListedOnceButEqualKeysStackNewestFirst) {
    ItemTable table(54);
    // Five a bucket: the table never grows. Keys run past the signed range.
    std::vector<Item> items(500);
    for (unsigned int i = 0; i < items.size(); ++i) {
        ASSERT_TRUE(table.insert(&(items[i] = Item{i * 8500000u})));
    }
    EXPECT_EQ(table.getBucketCount(), 97u);
    for (const Item& item : items) ASSERT_EQ(table.find(item.key), &item);
    Item newer{items[5].key};
    EXPECT_FALSE(table.insert(&items[5]));
    EXPECT_TRUE(table.insert(&newer));
    EXPECT_EQ(table.getElemCount(), 501u);
    EXPECT_EQ(table.find(newer.key), &newer);
    ASSERT_TRUE(table.remove(&newer));
    EXPECT_EQ(table.find(newer.key), &items[5]);
}

TEST(HashTable, RemovalUnlinksOnlyThatElementFromItsChain) {
    ItemTable table(53);
    Item a{1}, b{54}, c{107}, stranger{54};  // one chain of bucket 1
    for (Item* item : {&a, &b, &c}) ASSERT_TRUE(table.insert(item));
    EXPECT_FALSE(table.remove(&stranger)) << "same key, another element";
    EXPECT_FALSE(table.removeElem(4, &a)) << "looked for in another bucket";
    EXPECT_TRUE(table.remove(&b));  // the middle of the chain
    EXPECT_EQ(table.find(1), &a);
    EXPECT_EQ(table.find(107), &c);
    EXPECT_EQ(table.find(54), nullptr);
    EXPECT_TRUE(table.remove(&c));  // the head
    EXPECT_TRUE(table.remove(&a));  // the last one
    EXPECT_FALSE(table.remove(&a));
    EXPECT_EQ(table.getElemCount(), 0u);
}

// Statistics --------------------------------------------------------------------------------

TEST(HashTable, StatisticsCountLookupsHitsAndNodesPassedOver) {
    ItemTable table(53);
    const auto stats = [&] {
        return std::vector<unsigned>{table.getLookups(), table.getHits(), table.getProbes()};
    };
    table.find(10);  // empty bucket
    EXPECT_EQ(stats(), (std::vector<unsigned>{1, 0, 0}));
    Item a{1}, b{54}, c{107};  // one chain, c at its head, a at its end
    for (Item* item : {&a, &b, &c}) table.insert(item);
    table.find(160);  // a miss walks the whole chain
    EXPECT_EQ(stats(), (std::vector<unsigned>{2, 0, 3}));
    EXPECT_EQ(table.find(107), &c);
    EXPECT_EQ(table.find(1), &a);
    EXPECT_EQ(stats(), (std::vector<unsigned>{4, 2, 5}));

    table.clear();  // empties the table, keeps its statistics and size
    EXPECT_EQ(stats(), (std::vector<unsigned>{4, 2, 5}));
    EXPECT_EQ(table.getElemCount(), 0u);
    EXPECT_EQ(table.getBucketCount(), 53u);
    EXPECT_EQ(table.find(1), nullptr);
    EXPECT_TRUE(table.insert(&a)) << "the buckets really are empty again";
}

}  // namespace
}  // namespace mirel
