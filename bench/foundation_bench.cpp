// The foundation's conversions and hash table against their baselines, measured in the same
// run: toQString against QString::fromUcs4, toWString against QString::toStdWString,
// Utf8OStream against QString::toUtf8 (texts of 1 Ki and 1 Mi characters), and
// HashTable::find against std::unordered_map::find on the same 10,000 keys.
#include <benchmark/benchmark.h>

#include <QString>

#include <algorithm>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/foundation/hashtable.h"
#include "base/foundation/textconversion.h"
#include "base/foundation/utf8ostream.h"

namespace {

// A multilingual text of `length` code points, the same on every run: mostly ASCII, with
// accented Latin, Greek, CJK and a few characters beyond the first plane.
std::wstring sampleWide(std::size_t length) {
    std::mt19937 rng(1234);
    std::uniform_int_distribution<int> kind(0, 99);
    std::uniform_int_distribution<int> ascii(0x20, 0x7E), latin(0xC0, 0x17F), greek(0x391, 0x3C9),
        cjk(0x4E00, 0x9FFF), astral(0x1F300, 0x1F64F);
    std::wstring s;
    s.reserve(length);
    while (s.size() < length) {
        const int k = kind(rng);
        const int c = k < 70 ? ascii(rng) : k < 80 ? latin(rng) : k < 85 ? greek(rng)
                      : k < 97 ? cjk(rng) : astral(rng);
        s.push_back(static_cast<wchar_t>(c));
    }
    return s;
}

const std::wstring& wide(std::size_t length) {
    static std::wstring small = sampleWide(1024), large = sampleWide(1024 * 1024);
    return length == 1024 ? small : large;
}

const QString& text(std::size_t length) {
    static QString small = QString::fromStdWString(wide(1024)),
                   large = QString::fromStdWString(wide(1024 * 1024));
    return length == 1024 ? small : large;
}

void setBytes(benchmark::State& state, std::size_t characters) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * characters));
}

// UTF-32 to UTF-16 ------------------------------------------------------------------------------

void ToQString(benchmark::State& state) {
    const std::size_t n = static_cast<std::size_t>(state.range(0));
    const wchar_t* s = wide(n).c_str();
    for (auto _ : state) {
        QString q = mirel::toQString(s);
        benchmark::DoNotOptimize(q.constData());
    }
    setBytes(state, n);
}

void QtFromUcs4(benchmark::State& state) {
    const std::size_t n = static_cast<std::size_t>(state.range(0));
    const auto* s = reinterpret_cast<const char32_t*>(wide(n).c_str());
    for (auto _ : state) {
        QString q = QString::fromUcs4(s, -1);  // measures the length too, as toQString does
        benchmark::DoNotOptimize(q.constData());
    }
    setBytes(state, n);
}

// UTF-16 to UTF-32 ------------------------------------------------------------------------------

void ToWString(benchmark::State& state) {
    const QString& q = text(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        std::wstring w = mirel::toWString(q);
        benchmark::DoNotOptimize(w.data());
    }
    setBytes(state, static_cast<std::size_t>(state.range(0)));
}

void QtToStdWString(benchmark::State& state) {
    const QString& q = text(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        std::wstring w = q.toStdWString();
        benchmark::DoNotOptimize(w.data());
    }
    setBytes(state, static_cast<std::size_t>(state.range(0)));
}

// UTF-16 to UTF-8 ---------------------------------------------------------------------------------

void Utf8Stream(benchmark::State& state) {
    const QString& q = text(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        mirel::Utf8OStream out;
        out << q;
        benchmark::DoNotOptimize(out.data());
    }
    setBytes(state, static_cast<std::size_t>(state.range(0)));
}

void QtToUtf8(benchmark::State& state) {
    const QString& q = text(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        QByteArray b = q.toUtf8();
        benchmark::DoNotOptimize(b.constData());
    }
    setBytes(state, static_cast<std::size_t>(state.range(0)));
}

BENCHMARK(ToQString)->Name("Text/toQString(const wchar_t*)")->Arg(1024)->Arg(1024 * 1024);
BENCHMARK(QtFromUcs4)->Name("Text/QString::fromUcs4")->Arg(1024)->Arg(1024 * 1024);
BENCHMARK(ToWString)->Name("Text/toWString")->Arg(1024)->Arg(1024 * 1024);
BENCHMARK(QtToStdWString)->Name("Text/QString::toStdWString")->Arg(1024)->Arg(1024 * 1024);
BENCHMARK(Utf8Stream)->Name("Text/Utf8OStream<<")->Arg(1024)->Arg(1024 * 1024);
BENCHMARK(QtToUtf8)->Name("Text/QString::toUtf8")->Arg(1024)->Arg(1024 * 1024);

// Hash table --------------------------------------------------------------------------------------

struct Item {
    unsigned int key;
};

class ItemTable final : public mirel::HashTable<Item, unsigned int> {
public:
    explicit ItemTable(unsigned int size) : HashTable(size) {}
    unsigned int hash(unsigned int key) const override { return key; }
    unsigned int getKey(const Item* item) const override { return item->key; }
    bool match(unsigned int a, unsigned int b) const override { return a == b; }
};

constexpr unsigned int kElements = 10000;
constexpr unsigned int kBuckets = 12289;

// 10,000 distinct stored keys, and as many distinct keys that are not stored; both in a
// shuffled order so that lookups do not follow the insertion order.
struct Keys {
    std::vector<Item> items;
    std::vector<unsigned int> hits, misses;
    Keys() {
        std::mt19937 rng(77);
        std::uniform_int_distribution<unsigned int> any;
        std::unordered_map<unsigned int, bool> taken;
        while (items.size() < kElements) {
            const unsigned int k = any(rng);
            if (taken.emplace(k, true).second) items.push_back(Item{k});
        }
        while (misses.size() < kElements) {
            const unsigned int k = any(rng);
            if (taken.emplace(k, false).second) misses.push_back(k);
        }
        for (const Item& i : items) hits.push_back(i.key);
        std::shuffle(hits.begin(), hits.end(), rng);
    }
};

const Keys& keys() {
    static Keys k;
    return k;
}

template <bool kHits>
void TableFind(benchmark::State& state) {
    const Keys& k = keys();
    ItemTable table(kBuckets);
    for (const Item& i : k.items) table.insert(const_cast<Item*>(&i));
    const std::vector<unsigned int>& probe = kHits ? k.hits : k.misses;
    std::size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(table.find(probe[at]));
        if (++at == probe.size()) at = 0;
    }
    state.counters["buckets"] = table.getBucketCount();
}

template <bool kHits>
void UnorderedMapFind(benchmark::State& state) {
    const Keys& k = keys();
    std::unordered_map<unsigned int, const Item*> map;
    for (const Item& i : k.items) map.emplace(i.key, &i);
    const std::vector<unsigned int>& probe = kHits ? k.hits : k.misses;
    std::size_t at = 0;
    for (auto _ : state) {
        auto it = map.find(probe[at]);
        benchmark::DoNotOptimize(it == map.end() ? nullptr : it->second);
        if (++at == probe.size()) at = 0;
    }
    state.counters["buckets"] = static_cast<double>(map.bucket_count());
}

BENCHMARK(TableFind<true>)->Name("Find/hits/HashTable");
BENCHMARK(UnorderedMapFind<true>)->Name("Find/hits/std::unordered_map");
BENCHMARK(TableFind<false>)->Name("Find/misses/HashTable");
BENCHMARK(UnorderedMapFind<false>)->Name("Find/misses/std::unordered_map");

}  // namespace

BENCHMARK_MAIN();
