// Message boxes raised from worker threads, shown on the event-loop thread and closed by the
// test itself.
#include "base/timer/asyncmessagebox.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include <atomic>
#include <functional>
#include <map>
#include <thread>

#include "base/system/system.h"
#include "base/timer/qttimermanager.h"

namespace mirel {

bool processEventsUntil(const std::function<bool()>& done, int ms);

namespace {

struct SeenBox {
    bool seen = false;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QString title, text;
    bool onMainThread = false;
    int buttons = 0;
};

// Watches for the modal box from inside its own event loop, notes what it shows and clicks
// its one button.
class BoxCloser {
public:
    BoxCloser() {
        QObject::connect(&mPoll, &QTimer::timeout, [this] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (box == nullptr || !box->isVisible()) return;
            SeenBox s;
            s.seen = true;
            s.icon = box->icon();
            s.title = box->windowTitle();
            s.text = box->text();
            s.onMainThread = System::isMainThread();
            s.buttons = static_cast<int>(box->buttons().size());
            seen.push_back(s);
            box->buttons().first()->click();
        });
        mPoll.start(5);
    }
    std::vector<SeenBox> seen;

private:
    QTimer mPoll;
};

TEST(AsyncMessageBox, ShownFromAWorkerOnTheEventLoopThreadAndFreedWhenClosed) {
    QtTimerManager manager;
    BoxCloser closer;
    std::atomic<std::int32_t> done{1};
    std::thread worker([&] {
        auto* box = new AsyncMessageBox(System::kMessageWarning, "Disk", "Cache is full");
        box->doneFlag = &done;
        Timer::executeAsync(*box);
    });
    worker.join();
    ASSERT_TRUE(processEventsUntil([&] { return done == 0; }, 10000))
        << "the box was not shown, not closed, or not freed";
    ASSERT_EQ(closer.seen.size(), 1u);
    const SeenBox& s = closer.seen[0];
    EXPECT_EQ(s.icon, QMessageBox::Warning);
    EXPECT_EQ(s.title, "Disk");
    EXPECT_EQ(s.text, "Cache is full");
    EXPECT_TRUE(s.onMainThread);
    EXPECT_EQ(s.buttons, 1) << "the toolkit's single default button";
}

// Only 1 means a warning; every other value shows information. System::AsyncMessageBox's
// boxes carry no done flag: that each was freed is checked by the leak checker of the ASan
// build.
TEST(AsyncMessageBox, SystemEntryPointShowsWarningOnlyForTypeOne) {
    QtTimerManager manager;
    BoxCloser closer;
    std::thread worker([] {
        System::AsyncMessageBox(System::kMessageInformation, "t0", "zero");
        System::AsyncMessageBox(System::kMessageWarning, "t1", "one");
        System::AsyncMessageBox(static_cast<System::MessageType>(2), "t2", "two");
    });
    worker.join();
    ASSERT_TRUE(processEventsUntil([&] { return closer.seen.size() == 3; }, 10000));
    processEventsUntil([] { return false; }, 50);  // let the last box return and free itself
    // Each box's loop delivers the next handed-over box, so they stack: match them by title.
    std::map<QString, SeenBox> byTitle;
    for (const SeenBox& s : closer.seen) byTitle[s.title] = s;
    ASSERT_EQ(byTitle.size(), 3u);
    EXPECT_EQ(byTitle["t0"].icon, QMessageBox::Information);
    EXPECT_EQ(byTitle["t1"].icon, QMessageBox::Warning);
    EXPECT_EQ(byTitle["t2"].icon, QMessageBox::Information);
    EXPECT_EQ(byTitle["t2"].text, "two");
}

}  // namespace
}  // namespace mirel
