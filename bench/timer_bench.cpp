// Timer::execute(m, true) round trip from a worker thread to a Qt event loop on the main
// thread, beside Qt's own blocking cross-thread call (a queued invokeMethod that waits) as a
// reference. The benchmarks run on a worker while main() runs the event loop.
#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QMetaObject>
#include <QObject>

#include <thread>

#include "base/timer/qttimermanager.h"
#include "base/timer/timer.h"

namespace {

QObject* sLoopObject = nullptr;  // lives on the event-loop thread

struct CountingMethod : mirel::Timer::SyncMethod {
    void execute() override { ++runs; }
    long runs = 0;
};

void ExecuteRoundTrip(benchmark::State& state) {
    CountingMethod method;
    for (auto _ : state) mirel::Timer::execute(method, true);
    if (method.runs != static_cast<long>(state.iterations())) state.SkipWithError("lost a call");
}

void BlockingInvokeMethod(benchmark::State& state) {
    long runs = 0;
    for (auto _ : state) {
        QMetaObject::invokeMethod(sLoopObject, [&runs] { ++runs; }, Qt::BlockingQueuedConnection);
    }
    if (runs != static_cast<long>(state.iterations())) state.SkipWithError("lost a call");
}

BENCHMARK(BlockingInvokeMethod)->Name("RoundTrip/QMetaObject::invokeMethod(Blocking)")->UseRealTime();
BENCHMARK(ExecuteRoundTrip)->Name("RoundTrip/Timer::execute(m,true)")->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    mirel::QtTimerManager manager;
    QObject loopObject;
    sLoopObject = &loopObject;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    std::thread runner([&] {
        benchmark::RunSpecifiedBenchmarks();
        benchmark::Shutdown();
        QMetaObject::invokeMethod(&app, &QCoreApplication::quit, Qt::QueuedConnection);
    });
    const int status = app.exec();
    runner.join();
    return status;
}
