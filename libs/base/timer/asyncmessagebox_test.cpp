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
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QString text;
    bool onMainThread = false;
};

// Only 1 means a warning; every other value shows information. The boxes of
// System::AsyncMessageBox carry no done flag: that each was freed is checked by the leak
// checker of the ASan build.
TEST(AsyncMessageBox, ShownFromAWorkerOnTheEventLoopThreadAndFreedWhenClosed) {
    QtTimerManager manager;
    // Watches for each modal box from inside its own event loop, notes what it shows and
    // clicks its one button.
    std::map<QString, SeenBox> seen;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (box == nullptr || !box->isVisible()) return;
        seen[box->windowTitle()] = {box->icon(), box->text(), System::isMainThread()};
        box->buttons().first()->click();
    });
    poll.start(5);

    std::atomic<std::int32_t> done{1};
    std::thread worker([&] {
        auto* box = new AsyncMessageBox(System::kMessageWarning, "Disk", "Cache is full");
        box->doneFlag = &done;
        Timer::executeAsync(*box);
        System::AsyncMessageBox(System::kMessageInformation, "t0", "zero");
        System::AsyncMessageBox(System::kMessageWarning, "t1", "one");
        System::AsyncMessageBox(static_cast<System::MessageType>(2), "t2", "two");
    });
    worker.join();
    // Each box's loop delivers the next handed-over box, so they stack: they are matched by
    // title.
    ASSERT_TRUE(processEventsUntil([&] { return seen.size() == 4 && done == 0; }, 10000))
        << "a box was not shown, not closed, or not freed";
    processEventsUntil([] { return false; }, 50);  // let the last box return and free itself
    const SeenBox& disk = seen["Disk"];
    EXPECT_EQ(disk.icon, QMessageBox::Warning);
    EXPECT_EQ(disk.text, "Cache is full");
    EXPECT_TRUE(disk.onMainThread);
    EXPECT_EQ(seen["t0"].icon, QMessageBox::Information);
    EXPECT_EQ(seen["t1"].icon, QMessageBox::Warning);
    EXPECT_EQ(seen["t2"].icon, QMessageBox::Information);
}

}  // namespace
}  // namespace mirel
