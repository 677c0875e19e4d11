// The untyped core of the hash table: bucket array, node chains and the prime sizes.
#include "base/foundation/hashtable.h"

#include <cstring>

namespace mirel {

namespace {

// Each roughly doubles the last and sits far from a power of two, so plain modulo spreads
// keys that share low bits.
constexpr unsigned int kPrimes[] = {
    53u,        97u,        193u,       389u,       769u,        1543u,       3079u,
    6151u,      12289u,     24593u,     49157u,     98317u,      196613u,     393241u,
    786433u,    1572869u,   3145739u,   6291469u,   12582917u,   25165843u,   50331653u,
    100663319u, 201326611u, 402653189u, 805306457u, 1610612741u, 3221225473u, 4294967291u};

}  // namespace

unsigned int HashCalcNextPrime(unsigned int n) {
    for (unsigned int prime : kPrimes) {
        if (prime >= n) return prime;
    }
    return n;
}

HashTableBase::HashTableBase(unsigned int size)
    : mBuckets(nullptr),
      mBucketCount(HashCalcNextPrime(size)),
      mElemCount(0),
      mLookups(0),
      mHits(0),
      mProbes(0) {
    const unsigned long bytes = static_cast<unsigned long>(mBucketCount) * sizeof(HashNode*);
    // A zero-byte request may come back null; one byte never does on a working heap.
    mBuckets = static_cast<HashNode**>(doNew(bytes == 0 ? 1 : bytes, nullptr));
    std::memset(static_cast<void*>(mBuckets), 0, bytes);
}

HashTableBase::~HashTableBase() {
    clear();
    doDelete(mBuckets, nullptr);
}

void HashTableBase::clear() {
    for (unsigned int b = 0; b < mBucketCount; ++b) {
        HashNode* node = mBuckets[b];
        while (node != nullptr) {
            HashNode* next = node->next;
            delete node;
            node = next;
        }
        mBuckets[b] = nullptr;
    }
    mElemCount = 0;
}

HashNode** HashTableBase::findNode(unsigned int bucket, void* elem) const {
    for (HashNode** link = &mBuckets[bucket]; *link != nullptr; link = &(*link)->next) {
        if ((*link)->elem == elem) return link;
    }
    return nullptr;
}

bool HashTableBase::insertElem(unsigned int hash, void* elem) {
    const unsigned int bucket = hash % mBucketCount;
    if (findNode(bucket, elem) != nullptr) return false;
    HashNode* node = allocNode();
    node->elem = elem;
    node->next = mBuckets[bucket];
    mBuckets[bucket] = node;
    ++mElemCount;
    return true;
}

bool HashTableBase::removeElem(unsigned int hash, void* elem) {
    HashNode** link = findNode(hash % mBucketCount, elem);
    if (link == nullptr) return false;
    HashNode* node = *link;
    *link = node->next;
    delete node;
    --mElemCount;
    return true;
}

HashNode* HashTableBase::allocNode() const { return new HashNode; }

}  // namespace mirel
