// mirel-demo: the library's GUI services working together, for a person to watch: the
// timer layer driving a status line (frame clock, a memory pool's figures), the low-memory
// window with and without a link, and a message box raised from a worker thread.
//
//   mirel-demo [--play] [--quit-after MS] [--screenshot FILE]
#include <QApplication>
#include <QCommandLineParser>
#include <QDialog>
#include <QFont>
#include <QFontDatabase>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>
#include <QWidget>

#include <cstdio>
#include <deque>
#include <functional>
#include <thread>

#include "base/memory/heapmanager.h"
#include "base/memory/memorypool.h"
#include "base/memory/memorywindow.h"
#include "base/system/system.h"
#include "base/threads/spinlock.h"
#include "base/timer/qttimermanager.h"
#include "base/timer/timer.h"

namespace {

using namespace mirel;

void say(const QString& line) {
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

// Each tick is one frame: the frame clock advances and the pool takes a block of a random
// size and gives back the oldest, so its figures move the way a renderer's would.
class StatusLine : public ITimer::IObserver {
public:
    explicit StatusLine(QLabel& label)
        : mLabel(label), mPool(new MemoryPool("demo", 1 << 20)), mManager(mPool) {
        TestThenAdd(mPool->referenceCount(), -1);  // the manager holds the pool now
        mTimer.addObserver(*this);
        mTimer.start(50, false);
    }
    ~StatusLine() override {
        mTimer.stop();
        for (void* block : mBlocks) mManager.free(block);
    }

    void onTimer(TimerEvent&) override {
        System::updateGlobalDT(true);
        const int frame = System::setNextFrame();
        mBlocks.push_back(mManager.alloc(static_cast<unsigned long>(System::random(256, 64 * 1024))));
        if (mBlocks.size() > 64) {
            mManager.free(mBlocks.front());
            mBlocks.pop_front();
        }
        mLabel.setText(QStringLiteral("frame %1   dt %2 s   up %3 s   pool \"%4\": %5 KiB in %6 blocks")
                           .arg(frame)
                           .arg(System::getGlobalDT(), 0, 'f', 3)
                           .arg(System::getTime(), 0, 'f', 1)
                           .arg(mPool->getName())
                           .arg(mPool->getAllocatedMemory() / 1024)
                           .arg(mBlocks.size()));
        if (frame % 20 == 0) say("status: " + mLabel.text());
    }

private:
    QLabel& mLabel;
    MemoryPool* mPool;
    HeapManager mManager;
    std::deque<void*> mBlocks;
    Timer mTimer;
};

class Demo : public QWidget {
public:
    explicit Demo(bool play) : mPlay(play) {
        setWindowTitle("mirel-demo");
        setObjectName("mirelDemo");
        auto* layout = new QVBoxLayout(this);
        auto* title = new QLabel("The mirel library's GUI services", this);
        QFont bold = title->font();
        bold.setBold(true);
        title->setFont(bold);
        layout->addWidget(title);
        mStatus = new QLabel(this);
        mStatus->setObjectName("statusLine");
        mStatus->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
        mStatus->setMinimumWidth(560);
        layout->addWidget(mStatus);
        addButton(layout, "linkMessage", "Low-memory message with a link", [this] { lowMemory(true); });
        addButton(layout, "plainMessage", "Low-memory message without a link", [this] { lowMemory(false); });
        addButton(layout, "workerMessage", "Message box from a worker thread", [this] { fromWorker(); });
        addButton(layout, "resetMessages", "Show silenced messages again", [] {
            MemoryWindow::ResetAllValues();
            say("reset: every low-memory message will be shown again");
        });
        mStatusLine = new StatusLine(*mStatus);
    }
    ~Demo() override { delete mStatusLine; }

    // The walk-through of --play: each part in turn, each window closed after a while.
    void play() {
        const std::function<void()> steps[] = {
            [this] { lowMemory(true); },
            [this] { lowMemory(false); },
            [this] { fromWorker(); },
        };
        int delay = 600;
        for (const auto& step : steps) {
            QTimer::singleShot(delay, this, step);
            delay += 3000;
        }
        QTimer::singleShot(delay, this, [] { say("play: done"); });
    }

private:
    void addButton(QVBoxLayout* layout, const char* name, const QString& text, std::function<void()> action) {
        auto* button = new QPushButton(text, this);
        button->setObjectName(name);
        connect(button, &QPushButton::clicked, this, action);
        layout->addWidget(button);
    }

    // In --play a window is pressed for the person after two seconds; the box stays unticked.
    void pressLaterIfPlaying() {
        if (!mPlay) return;
        QTimer::singleShot(2000, this, [] {
            QWidget* modal = QApplication::activeModalWidget();
            if (modal == nullptr) return;
            if (auto* box = qobject_cast<QMessageBox*>(modal)) {
                box->buttons().first()->click();
            } else if (auto* button = modal->findChild<QPushButton*>("button0Text")) {
                button->click();
            }
        });
    }

    void lowMemory(bool withLink) {
        pressLaterIfPlaying();
        const int result = MemoryWindow::ShowMemoryMessage(
            this, withLink ? "demo.lowmem.link" : "demo.lowmem.plain", false, "Low memory",
            withLink ? "The globe is running short of memory. A newer version handles large "
                       "terrain better; see the update page below."
                     : "The globe is running short of memory. Close other applications or "
                       "lower the terrain detail.",
            "OK", withLink ? "https://support.vantor.com/update" : "");
        say(QStringLiteral("low-memory message %1 a link: result %2")
                .arg(withLink ? "with" : "without")
                .arg(result));
    }

    void fromWorker() {
        pressLaterIfPlaying();
        std::thread worker([] {
            System::AsyncMessageBox(System::kMessageWarning, "Tile cache",
                                    "A worker thread could not write the tile cache: the disk is full.");
        });
        worker.join();
        say("worker: message box handed to the event loop");
    }

    bool mPlay;
    QLabel* mStatus;
    StatusLine* mStatusLine;
};

// The offscreen platform and a missing XDG_RUNTIME_DIR are normal under a test or a script;
// Qt's notes about them would only look like errors.
QtMessageHandler sNextHandler = nullptr;

void quietPlatformNotes(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (type == QtWarningMsg && (message.contains("does not support propagateSizeHints") ||
                                 message.startsWith("QStandardPaths: XDG_RUNTIME_DIR"))) {
        return;
    }
    if (sNextHandler != nullptr) sNextHandler(type, context, message);
}

}  // namespace

int main(int argc, char** argv) {
    sNextHandler = qInstallMessageHandler(quietPlatformNotes);
    QApplication app(argc, argv);
    QApplication::setApplicationName("mirel-demo");
    System::setMainThreadId(System::kMainThreadMark);
    QtTimerManager timerManager;

    QCommandLineParser parser;
    parser.setApplicationDescription("The mirel library's GUI services in one window.");
    parser.addHelpOption();
    parser.addOption({"play", "Walk through the messages by itself, closing each after a while."});
    parser.addOption({"quit-after", "Quit after MS milliseconds, closing any open window.", "MS"});
    parser.addOption({"screenshot", "Save the window as a PNG to FILE just before quitting.", "FILE"});
    parser.process(app);

    int quitAfter = -1;
    if (parser.isSet("quit-after")) {
        bool ok = false;
        quitAfter = parser.value("quit-after").toInt(&ok);
        if (!ok || quitAfter < 0) {
            std::fprintf(stderr, "mirel-demo: --quit-after must be a whole number of milliseconds, not '%s'\n",
                         qPrintable(parser.value("quit-after")));
            return 2;
        }
    }

    Demo demo(parser.isSet("play"));
    demo.show();
    say("mirel-demo: running on the " + QGuiApplication::platformName() + " platform");
    if (parser.isSet("play")) demo.play();
    if (quitAfter >= 0) {
        const QString shot = parser.value("screenshot");
        QTimer::singleShot(quitAfter, &demo, [&demo, shot] {
            if (!shot.isEmpty()) {
                if (demo.grab().save(shot, "PNG")) {
                    say("screenshot: " + shot);
                } else {
                    std::fprintf(stderr, "mirel-demo: could not write %s\n", qPrintable(shot));
                }
            }
            // Closes a modal window still open as well: every event loop is told to exit.
            QApplication::exit(0);
        });
    }
    return QApplication::exec();
}
