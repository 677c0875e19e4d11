// mirel timer: a Timer on Qt's event loop through QtTimerManager, and methods handed to that
// loop from a worker thread. mirel msgbox: a message box raised from a worker thread.
#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QGuiApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <thread>

#include "base/system/system.h"
#include "base/timer/qttimermanager.h"
#include "base/timer/timer.h"
#include "command.h"

namespace mirel::tool {
namespace {

// Prints each firing with the time since the one before; stops the timer after `count`.
class FiringReporter : public ITimer::IObserver {
public:
    FiringReporter(Output& out, long count, QEventLoop& loop) : mOut(out), mCount(count), mLoop(loop) {}
    void begin() {
        mClock.start();
        mLast = 0;
    }
    void onTimer(TimerEvent& event) override {
        const qint64 now = mClock.nsecsElapsed();
        const double ms = static_cast<double>(now - mLast) / 1e6;
        mLast = now;
        const bool onMain = System::isMainThread();
        firings.append(QJsonObject{{"firing", static_cast<int>(firings.size()) + 1}, {"intervalMs", ms},
                                   {"onMainThread", onMain}});
        if (!mOut.json()) {
            mOut.text() << QStringLiteral("  firing %1: %2 ms after the %3%4\n")
                               .arg(static_cast<int>(firings.size()))
                               .arg(ms, 0, 'f', 1)
                               .arg(firings.size() == 1 ? "start" : "one before")
                               .arg(onMain ? "" : " (NOT on the event-loop thread)");
            mOut.text().flush();
        }
        if (firings.size() >= mCount) {
            event.timer->stop();
            mLoop.quit();
        }
    }
    QJsonArray firings;

private:
    Output& mOut;
    long mCount;
    QEventLoop& mLoop;
    QElapsedTimer mClock;
    qint64 mLast = 0;
};

// Notes whether it ran on the event-loop thread.
struct WhereMethod : Timer::SyncMethod {
    void execute() override { onMainThread = System::isMainThread(); }
    bool onMainThread = false;
};

// Runs the loop for at most `ms` more milliseconds (or until quit), so nothing waits for ever.
void runLoopFor(QEventLoop& loop, long ms) {
    QTimer::singleShot(static_cast<int>(std::min<long>(ms, 0x7FFFFFFF)), &loop, &QEventLoop::quit);
    loop.exec();
}

void runTimer(Output& out, long interval, long count, bool singleShot, long roundTrips) {
    System::setMainThreadId(System::kMainThreadMark);
    QtTimerManager manager;
    QEventLoop loop;
    FiringReporter reporter(out, count, loop);
    Timer timer;
    timer.addObserver(reporter);
    if (!out.json()) {
        out.text() << QStringLiteral("%1 timer, %2 ms:\n")
                          .arg(singleShot ? "single-shot" : "repeating")
                          .arg(interval);
    }
    reporter.begin();
    timer.start(static_cast<unsigned int>(interval), singleShot);
    runLoopFor(loop, std::max<long>(10000, interval * count * 3));
    timer.stop();
    if (singleShot) {
        // Long enough for a second firing to show if there were one.
        runLoopFor(loop, std::max<long>(100, interval * 3));
    }

    // A worker hands methods to the loop and waits for each.
    std::atomic<long> offMain{0};
    std::atomic<bool> done{false};
    double meanUs = 0;
    std::thread worker([&] {
        QElapsedTimer clock;
        clock.start();
        for (long i = 0; i < roundTrips; ++i) {
            WhereMethod method;
            Timer::execute(method, true);
            if (!method.onMainThread) ++offMain;
        }
        meanUs = roundTrips > 0 ? static_cast<double>(clock.nsecsElapsed()) / 1e3 / roundTrips : 0;
        done = true;
        QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
    });
    while (!done) runLoopFor(loop, 1000);
    worker.join();

    const long firings = reporter.firings.size();
    out.data = QJsonObject{
        {"intervalMs", static_cast<double>(interval)},
        {"singleShot", singleShot},
        {"count", static_cast<double>(singleShot ? 1 : count)},
        {"firings", reporter.firings},
        {"firingCount", static_cast<double>(firings)},
        {"executeRoundTrips", static_cast<double>(roundTrips)},
        {"executeMeanUs", meanUs},
        {"executeOnMainThread", offMain == 0},
    };
    if (out.json()) return;
    out.text() << QStringLiteral("%1 firing%2; stopped: %3\n")
                      .arg(firings)
                      .arg(firings == 1 ? "" : "s")
                      .arg(timer.isActive() ? "no" : "yes");
    if (roundTrips == 0) return;
    out.text() << QStringLiteral("Timer::execute(m, true) from a worker thread, %1 times: "
                                 "%2 us per round trip, ran on the event-loop thread: %3\n")
                      .arg(roundTrips)
                      .arg(meanUs, 0, 'f', 1)
                      .arg(offMain == 0 ? "yes" : "NO");
}

void configureTimer(QCommandLineParser& parser) {
    parser.addOption({"interval", "Interval in ms (1-60000).", "MS", "100"});
    parser.addOption({"count", "Firings to wait for (1-1000).", "K", "5"});
    parser.addOption({"single-shot", "Fire once only."});
    parser.addOption({"round-trips", "Methods a worker hands to the loop (0-100000).", "N", "200"});
}

int runTimerCommand(const QCommandLineParser& parser, Output& out) {
    const long interval = parseInteger(parser, "interval", 1, 60000);
    const bool singleShot = parser.isSet("single-shot");
    long count = parseInteger(parser, "count", 1, 1000);
    if (singleShot && parser.isSet("count") && count != 1) {
        throw UsageError("a single-shot timer fires once: --count must be 1");
    }
    if (singleShot) count = 1;
    const long roundTrips = parseInteger(parser, "round-trips", 0, 100000);
    runTimer(out, interval, count, singleShot, roundTrips);
    const QJsonArray firings = out.data["firings"].toArray();
    const bool allOnMain = std::all_of(firings.begin(), firings.end(), [](const QJsonValue& v) {
        return v.toObject()["onMainThread"].toBool();
    });
    return out.data["firingCount"].toDouble() == double(count) && allOnMain &&
                   out.data["executeOnMainThread"].toBool()
               ? 0
               : 1;
}

// mirel msgbox ---------------------------------------------------------------------------------

void configureMsgbox(QCommandLineParser& parser) {
    parser.addOption({"type", "warning or information.", "TYPE", "information"});
    parser.addOption({"title", "The box's title.", "TEXT", "mirel"});
    parser.addOption({"text", "The message.", "TEXT", "Hello from a worker thread."});
    parser.addOption({"close-after",
                      "Close the box after MS ms (0: wait for the user; needs a display).", "MS",
                      "0"});
}

int runMsgbox(const QCommandLineParser& parser, Output& out) {
    const QString typeName = parser.value("type");
    if (typeName != "warning" && typeName != "information") {
        throw UsageError(QStringLiteral("--type must be warning or information, not '%1'").arg(typeName));
    }
    const long closeAfter = parseInteger(parser, "close-after", 0, 3600000);
    if (closeAfter == 0 && QGuiApplication::platformName() == "offscreen") {
        throw UsageError("there is no display to show the box on: give --close-after MS");
    }
    const auto type = typeName == "warning" ? System::kMessageWarning : System::kMessageInformation;
    const QString title = parser.value("title"), text = parser.value("text");

    System::setMainThreadId(System::kMainThreadMark);
    QtTimerManager manager;
    std::thread worker([&] { System::AsyncMessageBox(type, title, text); });
    worker.join();

    // Watch for the box; close it after the delay if asked; stop once it has gone.
    QEventLoop loop;
    QJsonObject seen;
    QElapsedTimer shownFor, waiting;
    waiting.start();
    bool closing = false;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (box == nullptr && seen.isEmpty() && waiting.elapsed() > 10000) {
            loop.quit();  // it never came; reported below
            return;
        }
        if (box != nullptr && seen.isEmpty()) {
            seen = QJsonObject{
                {"icon", box->icon() == QMessageBox::Warning ? "warning" : "information"},
                {"title", box->windowTitle()},
                {"text", box->text()},
                {"buttons", static_cast<int>(box->buttons().size())},
                {"onMainThread", System::isMainThread()},
            };
            shownFor.start();
        }
        if (box == nullptr && !seen.isEmpty()) {
            loop.quit();
            return;
        }
        if (box != nullptr && closeAfter > 0 && !closing && shownFor.elapsed() >= closeAfter) {
            closing = true;
            box->buttons().first()->click();
        }
    });
    poll.start(5);
    // Without --close-after the person at the display decides how long the box stays.
    runLoopFor(loop, closeAfter > 0 ? closeAfter + 20000 : 0x7FFFFFFF);
    if (seen.isEmpty()) {
        std::fprintf(stderr, "mirel: msgbox: no message box appeared\n");
        return 1;
    }
    seen["closedBy"] = closing ? "--close-after" : "the user";
    seen["shownMs"] = static_cast<double>(shownFor.elapsed());
    out.data = seen;
    if (!out.json()) {
        out.text() << QStringLiteral("a worker thread raised %1 box \"%2\": \"%3\"\n")
                          .arg(type == System::kMessageWarning ? "a warning" : "an information",
                               seen["title"].toString(),
                               seen["text"].toString());
        out.text() << QStringLiteral("shown on the event-loop thread: %1, with %2 button; "
                                     "closed by %3 after %4 ms\n")
                          .arg(seen["onMainThread"].toBool() ? "yes" : "NO")
                          .arg(seen["buttons"].toInt())
                          .arg(seen["closedBy"].toString())
                          .arg(seen["shownMs"].toDouble());
    }
    return seen["onMainThread"].toBool() ? 0 : 1;
}

const Register timerCommand{Command{"timer", "A Timer on Qt's event loop, and methods run there.",
                                    configureTimer, runTimerCommand}};
const Register msgboxCommand{Command{"msgbox", "A message box raised from a worker thread.",
                                     configureMsgbox, runMsgbox, false, true}};
const Register tourStep{TourStep{50, "Timers: a 25 ms timer on Qt's event loop, methods from a worker",
                                 [](Output& out) { runTimer(out, 25, 4, false, 200); }}};

}  // namespace
}  // namespace mirel::tool
