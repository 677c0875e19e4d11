// mirel hash: a hash table filled and searched, with its lookup statistics.
#include <QElapsedTimer>

#include <random>
#include <vector>

#include "base/foundation/hashtable.h"
#include "command.h"

namespace mirel::tool {
namespace {

struct Entry {
    unsigned int key;
};

using EntryTable = IdentityHashTable<Entry, unsigned int, &Entry::key>;

void exercise(Output& out, unsigned int elements, unsigned int buckets, unsigned int lookups,
              unsigned int seed) {
    std::mt19937 rng(seed);
    // Even keys are stored and odd ones never are, so half the lookups miss.
    std::uniform_int_distribution<unsigned int> pick(0, 0x7FFFFFFF);
    std::vector<Entry> entries(elements);
    EntryTable table(buckets);
    for (Entry& e : entries) {
        e.key = pick(rng) * 2;
        table.insert(&e);
    }
    // Chain lengths follow from the keys: the table reduces each modulo its bucket count.
    std::vector<unsigned int> chain(table.getBucketCount());
    for (const Entry& e : entries) ++chain[e.key % table.getBucketCount()];
    unsigned int longest = 0, used = 0;
    for (unsigned int length : chain) {
        if (length > longest) longest = length;
        if (length > 0) ++used;
    }
    unsigned int found = 0;
    QElapsedTimer timer;
    timer.start();
    for (unsigned int i = 0; i < lookups; ++i) {
        const unsigned int key =
            (i % 2 == 0 && elements > 0) ? entries[pick(rng) % elements].key : pick(rng) * 2 + 1;
        if (table.find(key) != nullptr) ++found;
    }
    const double ns = static_cast<double>(timer.nsecsElapsed());

    const double probesPerLookup = lookups ? double(table.getProbes()) / lookups : 0.0;
    out.data = QJsonObject{
        {"requestedBuckets", static_cast<double>(buckets)},
        {"buckets", static_cast<double>(table.getBucketCount())},
        {"elements", static_cast<double>(table.getElemCount())},
        {"loadFactor", double(table.getElemCount()) / table.getBucketCount()},
        {"bucketsUsed", static_cast<double>(used)},
        {"longestChain", static_cast<double>(longest)},
        {"lookups", static_cast<double>(table.getLookups())},
        {"hits", static_cast<double>(table.getHits())},
        {"probes", static_cast<double>(table.getProbes())},
        {"probesPerLookup", probesPerLookup},
        {"nsPerLookup", lookups ? ns / lookups : 0.0},
    };
    if (out.json()) return;
    QTextStream& t = out.text();
    t << QStringLiteral("%1 buckets asked for, %2 made (the next prime of the table); never grows\n")
             .arg(buckets)
             .arg(table.getBucketCount());
    t << QStringLiteral("%1 elements, load factor %2, %3 buckets in use, longest chain %4\n")
             .arg(table.getElemCount())
             .arg(out.data["loadFactor"].toDouble(), 0, 'f', 2)
             .arg(used)
             .arg(longest);
    t << QStringLiteral("%1 lookups (half for stored keys): %2 hits, %3 probes, %4 per lookup, "
                        "%5 ns each\n")
             .arg(table.getLookups())
             .arg(table.getHits())
             .arg(table.getProbes())
             .arg(probesPerLookup, 0, 'f', 2)
             .arg(lookups ? ns / lookups : 0.0, 0, 'f', 1);
}

void configureHash(QCommandLineParser& parser) {
    parser.addOption({"elements", "Elements to insert (0-10000000).", "N", "10000"});
    parser.addOption({"buckets", "Bucket count asked for (1-100000000); rounded up to a prime.", "M",
                      "12289"});
    parser.addOption({"lookups", "Lookups to make, half of stored keys (0-100000000).", "L", "100000"});
    parser.addOption({"seed", "Seed of the keys (0-4294967295).", "S", "1"});
}

int runHash(const QCommandLineParser& parser, Output& out) {
    exercise(out, static_cast<unsigned int>(parseInteger(parser, "elements", 0, 10000000)),
             static_cast<unsigned int>(parseInteger(parser, "buckets", 1, 100000000)),
             static_cast<unsigned int>(parseInteger(parser, "lookups", 0, 100000000)),
             static_cast<unsigned int>(parseInteger(parser, "seed", 0, 4294967295L)));
    return 0;
}

const Register hashCommand{Command{"hash", "A fixed-bucket hash table filled and searched, with statistics.",
                                   configureHash, runHash}};
const Register tourStep{TourStep{24, "Hash table: fixed prime buckets and lookup statistics",
                                 [](Output& out) { exercise(out, 10000, 12289, 100000, 1); }}};

}  // namespace
}  // namespace mirel::tool
