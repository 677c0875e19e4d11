// mirel locks: threads contending on one SpinLock, with re-entry and a timed wait.
#include <QElapsedTimer>

#include <atomic>
#include <thread>
#include <vector>

#include "base/system/system.h"
#include "base/threads/spinlock.h"
#include "command.h"

namespace mirel::tool {
namespace {

void contend(Output& out, int threads, long iterations) {
    SpinLock lock;
    long counter = 0;  // guarded by `lock` alone
    std::atomic<int> ready{0};
    std::atomic<bool> go{false};
    QElapsedTimer timer;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&] {
            ready.fetch_add(1);
            while (!go.load()) std::this_thread::yield();
            for (long i = 0; i < iterations; ++i) {
                CSMutex hold(lock);
                ++counter;
            }
        });
    }
    // The clock starts before the workers are let go, so none of their work escapes it.
    while (ready.load() < threads) std::this_thread::yield();
    timer.start();
    go = true;
    for (auto& w : workers) w.join();
    const double contendedNs = static_cast<double>(timer.nsecsElapsed());

    // The same work on one thread, for comparison: no waiting at all.
    timer.restart();
    for (long i = 0; i < iterations; ++i) {
        CSMutex hold(lock);
        ++counter;
    }
    const double aloneNs = static_cast<double>(timer.nsecsElapsed());

    // Re-entry by the owner costs no platform call.
    constexpr int kDepth = 3;
    for (int i = 0; i < kDepth; ++i) lock.lock(kWaitForever);
    int unlocked = 0;
    while (lock.unlock() == 0) ++unlocked;

    // A timed wait on a lock another thread holds gives up after its limit.
    std::atomic<bool> held{false}, release{false};
    std::thread holder([&] {
        lock.lock(kWaitForever);
        held = true;
        while (!release) System::sleep(1);
        lock.unlock();
    });
    while (!held) System::sleep(1);
    timer.restart();
    const int timedResult = lock.lock(50);
    const double waitedMs = static_cast<double>(timer.nsecsElapsed()) / 1e6;
    release = true;
    holder.join();

    const long expected = long{threads} * iterations + iterations;
    const double perPairContended = contendedNs / (double(threads) * double(iterations));
    const double perPairAlone = aloneNs / double(iterations);
    out.data = QJsonObject{
        {"threads", threads},
        {"iterationsPerThread", static_cast<double>(iterations)},
        {"counter", static_cast<double>(counter)},
        {"expected", static_cast<double>(expected)},
        {"exclusive", counter == expected},
        {"contendedMs", contendedNs / 1e6},
        {"nsPerLockUnlockContended", perPairContended},
        {"nsPerLockUnlockAlone", perPairAlone},
        {"reentryDepth", kDepth},
        {"unlocksUntilRefused", unlocked},
        {"timedLockResult", timedResult},
        {"timedLockWaitedMs", waitedMs},
    };
    if (out.json()) return;
    QTextStream& t = out.text();
    t << QStringLiteral("%1 threads x %2 increments under one SpinLock: counter %3 of %4 (%5)\n")
             .arg(threads)
             .arg(iterations)
             .arg(counter)
             .arg(expected)
             .arg(counter == expected ? "exact" : "LOST UPDATES");
    t << QStringLiteral("  contended: %1 ms in all, %2 ns per lock+unlock\n")
             .arg(contendedNs / 1e6, 0, 'f', 1)
             .arg(perPairContended, 0, 'f', 1);
    t << QStringLiteral("  alone:     %1 ns per lock+unlock\n").arg(perPairAlone, 0, 'f', 1);
    t << QStringLiteral("re-entered %1 levels deep; %2 unlocks released it, the next was refused\n")
             .arg(kDepth)
             .arg(unlocked);
    t << QStringLiteral("lock(50) on a lock held elsewhere: %1 after %2 ms\n")
             .arg(timedResult)
             .arg(waitedMs, 0, 'f', 1);
}

void configureLocks(QCommandLineParser& parser) {
    parser.addOption({"threads", "Contending threads (1-64).", "N", "4"});
    parser.addOption({"iterations", "Lock+unlock pairs per thread (1-100000000).", "M", "200000"});
}

int runLocks(const QCommandLineParser& parser, Output& out) {
    const int threads = static_cast<int>(parseInteger(parser, "threads", 1, 64));
    const long iterations = parseInteger(parser, "iterations", 1, 100000000);
    contend(out, threads, iterations);
    return out.data["exclusive"].toBool() ? 0 : 1;
}

const Register locks{Command{"locks", "Threads contending on a SpinLock, with counts and timings.",
                             configureLocks, runLocks}};
const Register tourStep{TourStep{10, "Locks: threads contending on a SpinLock",
                                 [](Output& out) { contend(out, 4, 100000); }}};

}  // namespace
}  // namespace mirel::tool
