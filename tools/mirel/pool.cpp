// mirel pool: a named pool and two heap managers under a built-in allocation workload, and
// the same workload on the process heap beside it.
#include <QElapsedTimer>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "base/memory/heapmanager.h"
#include "base/memory/memorypool.h"
#include "base/memory/mspace.h"
#include "command.h"

namespace mirel::tool {
namespace {

struct Workload {
    QString name = "tour";
    unsigned long size = 1 << 20;
    long blocks = 20000;
    long minSize = 16;
    long maxSize = 4096;
    unsigned long seed = 1;
    bool trim = false;  // at the end, free everything and give the arena's spare memory back
};

QJsonObject rangeJson(const MMapRange& r) {
    return {{"start", QStringLiteral("0x%1").arg(reinterpret_cast<quintptr>(r.start), 0, 16)},
            {"size", static_cast<double>(r.size)}};
}

struct Timing {
    double nsPerAlloc = 0;
    double nsPerFree = 0;
};

// The same sizes, in the same order, through the process heap: a fresh pool pays for the
// first touch of every page it maps, and so does a heap that has to grow, so the two lines
// are read side by side rather than against a cache-warm micro-benchmark.
Timing runOnHeap(const Workload& w) {
    std::mt19937_64 rng(w.seed);
    std::uniform_int_distribution<long> sizes(w.minSize, w.maxSize);
    std::vector<void*> blocks(static_cast<std::size_t>(w.blocks));
    QElapsedTimer timer;
    timer.start();
    for (void*& b : blocks) {
        const auto size = static_cast<std::size_t>(sizes(rng));
        b = std::malloc(size);
        // A heap manager writes its header into every block; touch the heap's blocks too.
        if (b != nullptr) std::memset(b, 0, size < 16 ? size : 16);
    }
    Timing t;
    t.nsPerAlloc = static_cast<double>(timer.nsecsElapsed()) / double(blocks.size());
    timer.restart();
    long freed = 0;
    for (std::size_t i = 1; i < blocks.size(); i += 2, ++freed) std::free(blocks[i]);
    t.nsPerFree = freed > 0 ? static_cast<double>(timer.nsecsElapsed()) / double(freed) : 0;
    for (std::size_t i = 0; i < blocks.size(); i += 2) std::free(blocks[i]);
    return t;
}

// Every block is back: trimming gives the grown segments to the system, and the ranges
// given back leave the pool's list (and the registry) as they go.
void showTrim(Output& out, MemoryPool& pool) {
    void* arena = pool.getMspace();
    const unsigned long before = mspace_footprint(arena);
    {
        CSMutex hold(pool.getLock());
        mspace_trim(arena, 0);
    }
    const unsigned long released = before - mspace_footprint(arena);
    const std::vector<MMapRange> ranges = pool.getRanges();
    QJsonArray rangeList;
    for (const MMapRange& r : ranges) rangeList.append(rangeJson(r));
    if (out.json()) {
        QJsonObject data = out.data;
        const double footprint = static_cast<double>(mspace_footprint(arena));
        data.insert("afterTrim", QJsonObject{{"released", static_cast<double>(released)},
                                             {"footprint", footprint},
                                             {"ranges", rangeList}});
        out.data = data;
        return;
    }
    QTextStream& t = out.text();
    t << QStringLiteral("every block freed, arena trimmed: %1 bytes given back, %2 ranges left:\n")
             .arg(released)
             .arg(ranges.size());
    for (const MMapRange& r : ranges) {
        t << QStringLiteral("  0x%1  %2 bytes\n")
                 .arg(reinterpret_cast<quintptr>(r.start), 12, 16, QChar('0'))
                 .arg(r.size, 10);
    }
    t.flush();
}

void runWorkload(Output& out, const Workload& w) {
    // The pool lives as long as its managers: they hold the last references.
    auto* pool = new MemoryPool(w.name.toUtf8().constData(), w.size);
    auto* first = new HeapManager(pool);
    auto* second = new HeapManager(pool);
    TestThenAdd(pool->referenceCount(), -1);

    std::mt19937_64 rng(w.seed);
    std::uniform_int_distribution<long> sizes(w.minSize, w.maxSize);
    std::vector<void*> blocks(static_cast<std::size_t>(w.blocks));
    QElapsedTimer timer;
    timer.start();
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        HeapManager* m = i % 2 == 0 ? first : second;
        blocks[i] = m->alloc(static_cast<unsigned long>(sizes(rng)));
    }
    const double allocNs = static_cast<double>(timer.nsecsElapsed()) / double(blocks.size());
    // Free every other block through the frame, which finds each block's manager itself.
    timer.restart();
    long freed = 0;
    for (std::size_t i = 1; i < blocks.size(); i += 2, ++freed) Free(blocks[i]);
    const double freeNs = freed > 0 ? static_cast<double>(timer.nsecsElapsed()) / double(freed) : 0;

    const Timing heap = runOnHeap(w);

    void* arena = pool->getMspace();
    const struct mallinfo info = mspace_mallinfo(arena);
    const std::vector<MMapRange> ranges = pool->getRanges();
    QJsonArray rangeList;
    for (const MMapRange& r : ranges) rangeList.append(rangeJson(r));
    out.data = QJsonObject{
        {"pool", w.name},
        {"seed", static_cast<double>(w.seed)},
        {"blocksAllocated", static_cast<double>(blocks.size())},
        {"blocksFreed", static_cast<double>(freed)},
        {"managers", QJsonArray{static_cast<double>(first->getAllocatedSize()),
                                static_cast<double>(second->getAllocatedSize())}},
        {"poolAllocatedBytes", static_cast<double>(pool->getAllocatedMemory())},
        {"ranges", rangeList},
        {"footprint", static_cast<double>(mspace_footprint(arena))},
        {"maxFootprint", static_cast<double>(mspace_max_footprint(arena))},
        {"inUseBytes", static_cast<double>(info.uordblks)},
        {"nsPerAlloc", allocNs},
        {"nsPerFree", freeNs},
        {"heap", QJsonObject{{"nsPerAlloc", heap.nsPerAlloc}, {"nsPerFree", heap.nsPerFree}}},
    };
    if (!out.json()) {
        QTextStream& t = out.text();
        t << QStringLiteral("pool \"%1\": first region %2 bytes; %3 blocks of %4..%5 bytes (seed %6),"
                            " every other one freed\n")
                 .arg(w.name)
                 .arg(w.size)
                 .arg(blocks.size())
                 .arg(w.minSize)
                 .arg(w.maxSize)
                 .arg(w.seed);
        t << QStringLiteral("allocated: manager 1 %1 bytes, manager 2 %2 bytes, pool %3 bytes\n")
                 .arg(first->getAllocatedSize())
                 .arg(second->getAllocatedSize())
                 .arg(pool->getAllocatedMemory());
        t << QStringLiteral("mapped ranges (%1):\n").arg(ranges.size());
        for (const MMapRange& r : ranges) {
            t << QStringLiteral("  0x%1  %2 bytes\n")
                     .arg(reinterpret_cast<quintptr>(r.start), 12, 16, QChar('0'))
                     .arg(r.size, 10);
        }
        t << QStringLiteral("arena footprint %1 bytes (most %2)\n")
                 .arg(mspace_footprint(arena))
                 .arg(mspace_max_footprint(arena));
        t << QStringLiteral("time, pool:         %1 ns per alloc, %2 ns per Free\n")
                 .arg(allocNs, 8, 'f', 1)
                 .arg(freeNs, 8, 'f', 1);
        t << QStringLiteral("time, process heap: %1 ns per malloc, %2 ns per free\n")
                 .arg(heap.nsPerAlloc, 8, 'f', 1)
                 .arg(heap.nsPerFree, 8, 'f', 1);
        t << "  (one pass over fresh memory: the times include the first touch of every newly\n"
             "   mapped page, which dominates them; bench/ has the steady-state figures)\n";
        t << "arena statistics (standard error):\n";
        t.flush();
        CSMutex hold(pool->getLock());
        mspace_malloc_stats(arena);
        std::fflush(stderr);
    }
    for (std::size_t i = 0; i < blocks.size(); i += 2) Free(blocks[i]);
    if (w.trim) showTrim(out, *pool);
    delete first;
    delete second;  // the last reference: the pool goes with it
}

void configurePool(QCommandLineParser& parser) {
    parser.addOption({"name", "Name of the pool.", "NAME", "workload"});
    parser.addOption({"size", "First region of the pool in bytes (4096-1073741824).", "BYTES", "1048576"});
    parser.addOption({"blocks", "Blocks to allocate (1-10000000).", "N", "20000"});
    parser.addOption({"min-size", "Smallest block in bytes (1-16777216).", "BYTES", "16"});
    parser.addOption({"max-size", "Largest block in bytes (1-16777216).", "BYTES", "4096"});
    parser.addOption({"seed", "Seed of the block sizes (0-4294967295).", "S", "1"});
    parser.addOption({"trim", "At the end, free every block, trim the arena and show what is "
                              "left."});
}

int runPool(const QCommandLineParser& parser, Output& out) {
    Workload w;
    w.name = parser.value("name");
    if (w.name.isEmpty()) throw UsageError("--name must not be empty");
    w.size = static_cast<unsigned long>(parseInteger(parser, "size", 4096, 1073741824));
    w.blocks = parseInteger(parser, "blocks", 1, 10000000);
    w.minSize = parseInteger(parser, "min-size", 1, 16777216);
    w.maxSize = parseInteger(parser, "max-size", 1, 16777216);
    w.seed = static_cast<unsigned long>(parseInteger(parser, "seed", 0, 4294967295L));
    if (w.minSize > w.maxSize) throw UsageError("--min-size must not exceed --max-size");
    w.trim = parser.isSet("trim");
    runWorkload(out, w);
    return 0;
}

const Register pool{Command{"pool", "A memory pool and two heap managers under an allocation workload.",
                            configurePool, runPool}};
const Register tourStep{TourStep{5, "Memory: a pool, two heap managers and the frame",
                                 [](Output& out) { runWorkload(out, Workload{}); }}};

}  // namespace
}  // namespace mirel::tool
