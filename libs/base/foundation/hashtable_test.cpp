#include "base/foundation/hashtable.h"

#include <gtest/gtest.h>

#include <vector>

namespace mirel {
namespace {

struct Item {
    unsigned int key;
};

class ItemTable : public HashTable<Item, unsigned int> {
public:
    explicit ItemTable(unsigned int size) : HashTable(size) {}
    unsigned int hash(unsigned int key) const override { return key; }
    unsigned int getKey(const Item* item) const override { return item->key; }
    bool match(unsigned int a, unsigned int b) const override { return a == b; }
};

// Prime sizes -------------------------------------------------------------------------------

TEST(HashCalcNextPrime, RoundsUpToTheTableAndPassesLargerValuesThrough) {
    struct Row {
        unsigned int n, expected;
    };
    const Row rows[] = {
        {0, 53},           {1, 53},           {53, 53},
        {54, 97},          {15, 53},          {12288, 12289},
        {12289, 12289},    {12290, 24593},    {3221225473u, 3221225473u},
        {3221225474u, 4294967291u},           {4294967291u, 4294967291u},
        {4294967292u, 4294967292u},           {0xFFFFFFFFu, 0xFFFFFFFFu},
    };
    for (const Row& r : rows) EXPECT_EQ(HashCalcNextPrime(r.n), r.expected) << r.n;
}

// A mistyped entry would still round "up", so check what the table is meant to hold.
TEST(HashCalcNextPrime, EveryEntryIsPrimeAndTheyAscend) {
    std::vector<unsigned int> entries;
    for (unsigned long n = 0; n <= 0xFFFFFFFFul;) {
        const unsigned int p = HashCalcNextPrime(static_cast<unsigned int>(n));
        if (p == n && n > 4294967291ul) break;  // past the table: n comes back as it is
        entries.push_back(p);
        n = static_cast<unsigned long>(p) + 1;
    }
    ASSERT_EQ(entries.size(), 28u);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const unsigned long p = entries[i];
        for (unsigned long d = 2; d * d <= p; ++d) ASSERT_NE(p % d, 0u) << p << " divisible by " << d;
        if (i > 0) {
            EXPECT_GT(p, entries[i - 1]);
        }
    }
}

TEST(HashTableBase, BucketCountIsRoundedAndNeverGrows) {
    ItemTable small(15);
    EXPECT_EQ(small.getBucketCount(), 53u);

    ItemTable table(10000);
    EXPECT_EQ(table.getBucketCount(), 12289u);
    std::vector<Item> items(30000);
    for (unsigned int i = 0; i < items.size(); ++i) {
        items[i].key = i;
        ASSERT_TRUE(table.insert(&items[i]));
    }
    EXPECT_EQ(table.getElemCount(), 30000u);
    EXPECT_EQ(table.getBucketCount(), 12289u);
    // Well past one element per bucket, every element is still reachable.
    for (const Item& item : items) ASSERT_EQ(table.find(item.key), &item);
}

// Insertion and removal ---------------------------------------------------------------------

TEST(HashTable, TheSameElementPointerIsListedOnce) {
    ItemTable table(53);
    Item a{7};
    EXPECT_TRUE(table.insert(&a));
    EXPECT_FALSE(table.insert(&a));
    EXPECT_EQ(table.getElemCount(), 1u);
    EXPECT_TRUE(table.remove(&a));
    EXPECT_EQ(table.find(7), nullptr);
}

TEST(HashTable, EqualKeysAreAcceptedAndTheNewestIsFoundFirst) {
    ItemTable table(53);
    Item older{5}, newer{5};
    ASSERT_TRUE(table.insert(&older));
    ASSERT_TRUE(table.insert(&newer));
    EXPECT_EQ(table.getElemCount(), 2u);
    EXPECT_EQ(table.find(5), &newer);
    ASSERT_TRUE(table.remove(&newer));
    EXPECT_EQ(table.find(5), &older);
}

TEST(HashTable, RemovingFromAChainKeepsTheRestLinked) {
    ItemTable table(53);
    // 1, 54 and 107 share bucket 1 of 53.
    Item a{1}, b{54}, c{107};
    for (Item* item : {&a, &b, &c}) ASSERT_TRUE(table.insert(item));
    EXPECT_TRUE(table.remove(&b));  // the middle of the chain
    EXPECT_EQ(table.find(1), &a);
    EXPECT_EQ(table.find(107), &c);
    EXPECT_EQ(table.find(54), nullptr);
    EXPECT_TRUE(table.remove(&c));  // the head
    EXPECT_TRUE(table.remove(&a));  // the last one
    EXPECT_EQ(table.getElemCount(), 0u);
    EXPECT_EQ(table.find(1), nullptr);
}

TEST(HashTable, RemovingWhatIsNotInItsBucketFails) {
    ItemTable table(53);
    Item a{3}, stranger{3};
    ASSERT_TRUE(table.insert(&a));
    EXPECT_FALSE(table.remove(&stranger));   // same key, another element
    EXPECT_FALSE(table.removeElem(4, &a));   // the element, but looked for in another bucket
    EXPECT_EQ(table.getElemCount(), 1u);
    EXPECT_TRUE(table.remove(&a));
    EXPECT_FALSE(table.remove(&a));
    EXPECT_EQ(table.getElemCount(), 0u);
}

TEST(HashTable, HashesAboveTheSignedRangeReduceToAValidBucket) {
    class Scrambled : public ItemTable {
    public:
        Scrambled() : ItemTable(53) {}
        unsigned int hash(unsigned int key) const override { return 0xFFFFFFF0u + key; }
    } table;
    Item items[16];
    for (unsigned int i = 0; i < 16; ++i) {
        items[i].key = i;
        ASSERT_TRUE(table.insert(&items[i]));
    }
    for (unsigned int i = 0; i < 16; ++i) EXPECT_EQ(table.find(i), &items[i]);
}

TEST(HashTable, NodesComeFromTheVirtualAllocNode) {
    class Counting : public ItemTable {
    public:
        Counting() : ItemTable(53) {}
        HashNode* allocNode() const override {
            ++made;
            return ItemTable::allocNode();
        }
        mutable int made = 0;
    } table;
    Item a{1}, b{2};
    table.insert(&a);
    table.insert(&b);
    table.insert(&a);  // refused before any node is made
    EXPECT_EQ(table.made, 2);
}

// Statistics --------------------------------------------------------------------------------

TEST(HashTable, StatisticsCountLookupsHitsAndChainSteps) {
    ItemTable table(53);
    EXPECT_EQ(table.getLookups(), 0u);

    table.find(10);  // empty bucket
    EXPECT_EQ(table.getLookups(), 1u);
    EXPECT_EQ(table.getHits(), 0u);
    EXPECT_EQ(table.getProbes(), 0u);

    Item a{1}, b{54}, c{107};  // one chain, c at its head, a at its end
    for (Item* item : {&a, &b, &c}) table.insert(item);

    table.find(160);  // a miss walks the whole chain of three
    EXPECT_EQ(table.getLookups(), 2u);
    EXPECT_EQ(table.getHits(), 0u);
    EXPECT_EQ(table.getProbes(), 3u);

    EXPECT_EQ(table.find(107), &c);  // at the head: no node passed over
    EXPECT_EQ(table.getHits(), 1u);
    EXPECT_EQ(table.getProbes(), 3u);

    EXPECT_EQ(table.find(1), &a);  // two nodes passed over
    EXPECT_EQ(table.getLookups(), 4u);
    EXPECT_EQ(table.getHits(), 2u);
    EXPECT_EQ(table.getProbes(), 5u);
}

TEST(HashTable, ClearEmptiesTheTableButKeepsItsStatisticsAndSize) {
    ItemTable table(97);
    std::vector<Item> items(50);
    for (unsigned int i = 0; i < items.size(); ++i) {
        items[i].key = i * 97;  // all in bucket 0 of 97
        table.insert(&items[i]);
    }
    table.find(97);
    table.find(1);
    const unsigned int lookups = table.getLookups(), hits = table.getHits(),
                       probes = table.getProbes();
    table.clear();
    EXPECT_EQ(table.getElemCount(), 0u);
    EXPECT_EQ(table.getBucketCount(), 97u);
    EXPECT_EQ(table.getLookups(), lookups);
    EXPECT_EQ(table.getHits(), hits);
    EXPECT_EQ(table.getProbes(), probes);
    EXPECT_EQ(table.find(97), nullptr);
    // The buckets really are empty again: the same elements go back in.
    for (Item& item : items) EXPECT_TRUE(table.insert(&item));
}

}  // namespace
}  // namespace mirel
