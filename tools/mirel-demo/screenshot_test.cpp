// The low-memory window and mirel-demo on a real X display: screenshots kept in the build
// folder (screenshots/*.png) for a person to look at, and the geometry and colours checked
// from the widgets and the grabbed pixels. scripts/test.sh starts an Xvfb and names it in
// MIREL_GUI_DISPLAY; without one every test here is skipped.
#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QDir>
#include <QElapsedTimer>
#include <QImage>
#include <QLabel>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QWindow>

#include <functional>

#include "base/memory/memorywindow.h"
#include "base/testing/qtapplication.h"
#include "base/testing/tempenv.h"

namespace mirel {
namespace {

// The settings store away from the user's, set before the first QSettings of the process.
const QString gConfigHome = testing::temporaryHome();

// The display is this process's, and the demo's it starts, before the application is made.
const QByteArray gDisplay = [] {
    const QByteArray display = qgetenv("MIREL_GUI_DISPLAY");
    if (!display.isEmpty()) qputenv("DISPLAY", display);
    qputenv("QT_QPA_PLATFORM", display.isEmpty() ? "offscreen" : "xcb");
    return display;
}();

const auto* const kEnvironment = ::testing::AddGlobalTestEnvironment(
    new testing::QtApplicationEnvironment([] { QDir().mkpath(MIREL_SCREENSHOT_DIR); }));

constexpr const char* kNoDisplay = "no X display: scripts/test.sh starts Xvfb when installed";

QString shotPath(const QString& name) { return QString(MIREL_SCREENSHOT_DIR) + "/" + name + ".png"; }

// Where a child of the window sits inside it.
QRect rectOf(QDialog& dialog, const char* name) {
    auto* child = dialog.findChild<QWidget*>(name);
    return QRect(child->mapTo(&dialog, QPoint(0, 0)), child->size());
}

int countPixels(const QImage& image, const QRect& area, QRgb colour) {
    int n = 0;
    const QRect r = area.intersected(image.rect());
    for (int y = r.top(); y <= r.bottom(); ++y) {
        for (int x = r.left(); x <= r.right(); ++x) n += (image.pixel(x, y) & 0xFFFFFF) == (colour & 0xFFFFFF);
    }
    return n;
}

// Shows one message through the library and, once the window is exposed and painted, grabs
// it from the screen, saves it as `name` and hands it to `check`; then presses the button.
// A watchdog closes the window after 10 s.
void showAndCheck(const QString& name, const QString& link,
                  const std::function<void(QDialog&, const QImage&)>& check) {
    bool checked = false;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (dialog == nullptr || dialog->windowHandle() == nullptr || !dialog->windowHandle()->isExposed()) return;
        poll.stop();
        // The window may be resized and repainted after it is first exposed, and on a busy
        // machine two grabs can agree on a frame not yet painted: read the screen back until
        // it shows what the window draws itself, so the picture is what a person would see.
        QElapsedTimer settle;
        settle.start();
        QImage now, drawn;
        do {
            const qint64 until = settle.elapsed() + 100;
            while (settle.elapsed() < until) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
            drawn = dialog->grab().toImage().convertToFormat(QImage::Format_RGB32);
            now = dialog->screen()->grabWindow(dialog->winId()).toImage().convertToFormat(QImage::Format_RGB32);
        } while (now != drawn && settle.elapsed() <= 5000);
        now.save(shotPath(name), "PNG");
        check(*dialog, now);
        checked = true;
        dialog->findChild<QPushButton*>("button0Text")->click();
    });
    poll.start(20);
    QTimer::singleShot(10000, [] {
        if (auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget())) dialog->reject();
    });
    const int result = MemoryWindow::ShowMemoryMessage(
        nullptr, name, false, "Low memory",
        "The globe is running short of memory. Close other applications or lower the terrain "
        "detail.",
        "OK", link);
    EXPECT_EQ(result, 0) << "the window was not pressed (watchdog?)";
    EXPECT_TRUE(checked) << "the window never came up exposed";
}

TEST(Screenshot, LowMemoryWindowWithAndWithoutALink) {
    if (gDisplay.isEmpty()) GTEST_SKIP() << kNoDisplay;
    showAndCheck("memorywindow_link", "https://support.vantor.com/update", [](QDialog& d, const QImage& image) {
        const QRect text = rectOf(d, "memoryDialogTextBox"), link = rectOf(d, "updateURLButton");
        const QRect box = rectOf(d, "checkBox4"), button = rectOf(d, "button0Text");
        // The message on top, the link under it, then one row of box and button.
        EXPECT_LE(text.bottom(), link.top());
        EXPECT_LE(link.bottom(), box.top());
        EXPECT_LT(box.right(), button.left());
        EXPECT_TRUE(box.top() <= button.bottom() && button.top() <= box.bottom()) << "box and button share a row";
        // The message's ground: its margin is never drawn over by text.
        EXPECT_EQ(QColor(image.pixel(text.left() + 2, text.top() + 2)), QColor(236, 233, 216));
        EXPECT_GT(countPixels(image, text, qRgb(236, 233, 216)), text.width() * text.height() / 2);
        // The link's ink: the underline alone is a solid run of it.
        EXPECT_GT(countPixels(image, link, qRgb(0, 0, 204)), link.width() / 4);
        EXPECT_EQ(countPixels(image, button, qRgb(0, 0, 204)), 0) << "only the link is link-blue";
    });
    showAndCheck("memorywindow_plain", "", [](QDialog& d, const QImage& image) {
        EXPECT_FALSE(d.findChild<QWidget*>("updateURLButton")->isVisible());
        EXPECT_EQ(countPixels(image, image.rect(), qRgb(0, 0, 204)), 0) << "no link, no link ink";
    });
}

TEST(Screenshot, Demo) {
    if (gDisplay.isEmpty()) GTEST_SKIP() << kNoDisplay;
    const QString path = shotPath("mirel-demo");
    QFile::remove(path);
    QProcess demo;  // inherits the display
    demo.start(MIREL_DEMO_PATH, {"--quit-after", "1500", "--screenshot", path});
    ASSERT_TRUE(demo.waitForFinished(30000));
    EXPECT_EQ(demo.exitCode(), 0) << demo.readAllStandardError().constData();
    QImage image(path);
    ASSERT_FALSE(image.isNull()) << "no screenshot at " << qPrintable(path);
    EXPECT_GE(image.width(), 560) << "the status line's width";
    // Text was drawn: the picture is not one flat colour.
    const QRgb corner = image.pixel(0, 0);
    EXPECT_LT(countPixels(image, image.rect(), corner), image.width() * image.height());
}

}  // namespace
}  // namespace mirel
