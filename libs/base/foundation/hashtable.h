// HashTable: a chained hash table of element pointers with a bucket count fixed at
// construction. The table owns its nodes and bucket array, never its elements; it never
// grows or rehashes, so choose the size for the most elements the table will ever hold.
//
// HashTableBase is the untyped core (stores and unlinks nodes by element pointer);
// HashTable<T, K> adds typed lookup through three operations a concrete table supplies:
// how to hash a key, how to get an element's key and how to compare two keys.
//
// Chains are kept newest first: of several elements with matching keys, find() returns
// the one inserted last. Lookups keep running statistics (lookups, hits, probes) for
// tuning. Nothing is locked: the user serialises every call, find() included.
#pragma once

#include "base/memory/memoryobject.h"
#include "base/mirel_export.h"

namespace mirel {

// The first entry of the table of bucket primes (53, 97, 193, ... 4294967291) that is
// >= n; n itself when n is above every entry.
MIREL_EXPORT unsigned int HashCalcNextPrime(unsigned int n);

// One link of a bucket's chain: two pointer-sized words.
struct HashNode : public MemoryObject {
    HashNode* next;  // null at the end of the chain
    void* elem;      // not owned
};

class MIREL_EXPORT HashTableBase : public MemoryObject {
public:
    // HashCalcNextPrime(size) buckets, all empty; every counter 0. Allocation failure is
    // not reported.
    explicit HashTableBase(unsigned int size);
    // Releases nodes and buckets; the elements are not touched.
    virtual ~HashTableBase();

    // Releases every node; buckets become empty and the element count 0. The lookup
    // statistics are kept.
    void clear();
    // The link (bucket head or previous node's `next`) that points at the node holding
    // `elem`, compared by pointer identity; null when absent. `bucket` is already reduced
    // modulo the bucket count.
    HashNode** findNode(unsigned int bucket, void* elem) const;
    // Lists `elem` under `hash`, ahead of what the bucket holds. False, with nothing
    // changed, when this element pointer is already there; equal keys are allowed.
    bool insertElem(unsigned int hash, void* elem);
    // Unlists `elem` from the bucket of `hash`; false when it is not there.
    bool removeElem(unsigned int hash, void* elem);
    // A new, uninitialised node; released with MemoryObject's operator delete.
    virtual HashNode* allocNode() const;

    unsigned int getBucketCount() const { return mBucketCount; }
    unsigned int getElemCount() const { return mElemCount; }
    // find() calls, those that found an element, and the chain steps they took (nodes
    // passed over before a match, or a whole chain on a miss).
    unsigned int getLookups() const { return mLookups; }
    unsigned int getHits() const { return mHits; }
    unsigned int getProbes() const { return mProbes; }

    HashTableBase(const HashTableBase&) = delete;
    HashTableBase& operator=(const HashTableBase&) = delete;

protected:
    HashNode** mBuckets;
    unsigned int mBucketCount;
    unsigned int mElemCount;
    unsigned int mLookups;
    unsigned int mHits;
    unsigned int mProbes;
};

// The typed table: derive, supply hash(), getKey() and match(), and keep the elements
// alive while they are listed.
template <typename T, typename K>
class HashTable : public HashTableBase {
public:
    explicit HashTable(unsigned int size) : HashTableBase(size) {}

    virtual unsigned int hash(K key) const = 0;
    virtual K getKey(T const* elem) const = 0;
    virtual bool match(K a, K b) const = 0;

    // The most recently inserted element whose key matches `key`, or null. Updates the
    // lookup statistics.
    T* find(K key) {
        const unsigned int h = hash(key);
        ++mLookups;
        unsigned int steps = 0;
        for (HashNode* node = mBuckets[h % mBucketCount]; node != nullptr; node = node->next) {
            T* elem = static_cast<T*>(node->elem);
            if (match(getKey(elem), key)) {
                ++mHits;
                mProbes += steps;
                return elem;
            }
            ++steps;
        }
        mProbes += steps;
        return nullptr;
    }

    // insertElem() / removeElem() under the element's own key.
    bool insert(T* elem) { return insertElem(hash(getKey(elem)), elem); }
    bool remove(T* elem) { return removeElem(hash(getKey(elem)), elem); }
};

// A table whose integer key is its own hash, read from the element's member `Key`, for
// registries keyed by a number: IdentityHashTable<StatusSubsys, unsigned short,
// &StatusSubsys::id>. Chains are then picked by the key modulo the bucket count.
// `Key` is a pointer to a data member of T, const or not.
template <typename T, typename K, auto Key>
class IdentityHashTable : public HashTable<T, K> {
public:
    explicit IdentityHashTable(unsigned int size) : HashTable<T, K>(size) {}

    unsigned int hash(K key) const override { return key; }
    K getKey(T const* elem) const override { return elem->*Key; }
    bool match(K a, K b) const override { return a == b; }
};

}  // namespace mirel
