// mirel workers: an AsyncThread group stepping through rounds in lock-step.
#include <QElapsedTimer>

#include <atomic>

#include "base/status/statuscode.h"
#include "base/status/statussubsys.h"
#include "base/threads/asyncthread.h"
#include "base/threads/semaphore.h"
#include "command.h"

namespace mirel::tool {
namespace {

// Each worker numbers its own rounds; entering round k it must find all calls of the rounds
// before it finished, or the group let a worker run ahead. Rounds beyond the ones asked for
// (idle ticks while the group is being stopped) are not counted.
class RoundHandler : public AsyncThreadHandler {
public:
    RoundHandler(long workers, long rounds) : mWorkers(workers), mRounds(rounds) {}
    void handleAsync() override {
        thread_local long round = 0;
        const long k = ++round;
        if (k > mRounds) return;
        if (finished.load() < (k - 1) * mWorkers) overlaps.fetch_add(1);
        if (finished.fetch_add(1) + 1 == k * mWorkers) roundDone.post();
    }
    std::atomic<long> finished{0}, overlaps{0};
    Semaphore roundDone{0};

private:
    long mWorkers, mRounds;
};

QString statusWord(StatusCode status) {
    return QStringLiteral("0x") + QString::number(status, 16).toUpper().rightJustified(8, '0');
}

void runGroup(Output& out, long threads, long rounds, long idleWait, bool useReady) {
    RoundHandler handler(threads, rounds);
    AsyncThread group(&handler, static_cast<unsigned long>(threads));
    group.idleWaitTries = static_cast<std::int32_t>(idleWait);
    QElapsedTimer clock;
    clock.start();
    const StatusCode first = group.startThreads();  // round 1 runs at once
    for (long k = 1; k <= rounds; ++k) {
        handler.roundDone.wait();
        if (useReady && k < rounds) group.ready();
    }
    const double elapsedMs = static_cast<double>(clock.nsecsElapsed()) / 1e6;
    const StatusCode second = group.startThreads();
    group.exitThreads();
    const long live = __atomic_load_n(&group.liveCount, __ATOMIC_ACQUIRE);
    const long calls = handler.finished.load();
    const double perSecond = elapsedMs > 0 ? double(rounds) * 1000.0 / elapsedMs : 0.0;

    out.data = QJsonObject{
        {"threads", static_cast<double>(threads)},
        {"rounds", static_cast<double>(rounds)},
        {"idleWaitMs", static_cast<double>(idleWait)},
        {"drivenBy", useReady ? "ready" : "idle tick"},
        {"elapsedMs", elapsedMs},
        {"roundsPerSecond", perSecond},
        {"handlerCalls", static_cast<double>(calls)},
        {"overlaps", static_cast<double>(handler.overlaps.load())},
        {"startStatus", statusWord(first)},
        {"secondStartStatus", statusWord(second)},
        {"secondStartMessage", StatusGetErrorString(second)},
        {"liveAfterExit", static_cast<double>(live)},
    };
    if (out.json()) return;
    QTextStream& t = out.text();
    t << QStringLiteral("%1 workers, %2 rounds in lock-step, driven by %3: %4 ms, %5 rounds/s\n")
             .arg(threads)
             .arg(rounds)
             .arg(useReady ? "ready()" : QStringLiteral("the %1 ms idle tick").arg(idleWait))
             .arg(elapsedMs, 0, 'f', 1)
             .arg(perSecond, 0, 'f', 0);
    t << QStringLiteral("  handler calls: %1 (%2 per round); rounds that overlapped: %3\n")
             .arg(calls)
             .arg(threads)
             .arg(handler.overlaps.load());
    t << QStringLiteral("  startThreads(): %1, again: %2 (%3); live workers after exitThreads(): %4\n")
             .arg(statusWord(first), statusWord(second), StatusGetErrorString(second))
             .arg(live);
}

void configureWorkers(QCommandLineParser& parser) {
    parser.addOption({"threads", "Workers in the group (1-64).", "N", "4"});
    parser.addOption({"rounds", "Rounds to run (1-1000000).", "R", "1000"});
    parser.addOption({"idle-wait",
                      "How long an idle worker waits for ready() before it runs a round anyway, "
                      "in ms (-1: without limit; 0: not at all).",
                      "MS", "1000"});
    parser.addOption({"no-ready", "Never call ready(): rounds come from the idle tick alone."});
}

int runWorkers(const QCommandLineParser& parser, Output& out) {
    const long threads = parseInteger(parser, "threads", 1, 64);
    const long rounds = parseInteger(parser, "rounds", 1, 1000000);
    const long idleWait = parseInteger(parser, "idle-wait", -1, 3600000);
    const bool useReady = !parser.isSet("no-ready");
    if (!useReady && idleWait < 0) {
        throw UsageError("--no-ready needs an --idle-wait of 0 or more: nothing else starts a round");
    }
    runGroup(out, threads, rounds, idleWait, useReady);
    const bool exact = out.data["handlerCalls"].toDouble() == double(threads) * double(rounds);
    return exact && out.data["overlaps"].toDouble() == 0 ? 0 : 1;
}

const Register workers{Command{"workers", "An AsyncThread group running rounds in lock-step.",
                               configureWorkers, runWorkers}};
const Register tourRounds{TourStep{40, "Worker groups: 4 workers, 500 rounds in lock-step",
                                   [](Output& out) { runGroup(out, 4, 500, 1000, true); }}};
const Register tourTick{TourStep{41, "Worker groups: an idle group ticking every 30 ms",
                                 [](Output& out) { runGroup(out, 2, 4, 30, false); }}};

}  // namespace
}  // namespace mirel::tool
