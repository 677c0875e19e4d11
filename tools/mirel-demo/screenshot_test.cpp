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
#include <QProcessEnvironment>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QWindow>

#include <cstdlib>

#include "base/memory/memorywindow.h"
#include "base/testing/tempenv.h"

namespace mirel {
namespace {

const QByteArray gDisplay = qgetenv("MIREL_GUI_DISPLAY");

// The settings store away from the user's, set before the first QSettings of the process.
const QString gConfigHome = testing::temporaryHome();

class XApplicationEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        if (gDisplay.isEmpty()) return;
        setenv("DISPLAY", gDisplay.constData(), 1);
        setenv("QT_QPA_PLATFORM", "xcb", 1);
        static int argc = 1;
        static char name[] = "screenshot_test";
        static char* argv[] = {name, nullptr};
        mApp = new QApplication(argc, argv);
        QDir().mkpath(MIREL_SCREENSHOT_DIR);
    }
    void TearDown() override { delete mApp; }

private:
    QApplication* mApp = nullptr;
};

const auto* const kEnvironment = ::testing::AddGlobalTestEnvironment(new XApplicationEnvironment);

constexpr const char* kNoDisplay = "no X display: scripts/test.sh starts Xvfb when installed";

QString shotPath(const QString& name) { return QString(MIREL_SCREENSHOT_DIR) + "/" + name + ".png"; }

// What one showing looked like: the window's pixels as the X server has them, and where
// the children sit inside it.
struct Shot {
    bool taken = false;
    QImage image;
    QRect text, link, box, button;
    bool linkVisible = false;
};

// Shows one message through the library, grabs it from the screen once it is exposed and
// painted, then presses its button. A watchdog closes it after 15 s.
Shot showAndGrab(const QString& name, const QString& link) {
    Shot shot;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (dialog == nullptr || shot.taken || dialog->windowHandle() == nullptr ||
            !dialog->windowHandle()->isExposed()) {
            return;
        }
        poll.stop();
        // The window may be resized and repainted after it is first exposed: read it back
        // until two grabs agree, so the picture is what a person would be left looking at.
        QElapsedTimer settle;
        settle.start();
        QImage last;
        for (;;) {
            QElapsedTimer pause;
            pause.start();
            while (pause.elapsed() < 100) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
            const QImage now =
                dialog->screen()->grabWindow(dialog->winId()).toImage().convertToFormat(QImage::Format_RGB32);
            if ((now == last && settle.elapsed() >= 300) || settle.elapsed() > 5000) {
                shot.image = now;
                break;
            }
            last = now;
        }
        shot.image.save(shotPath(name), "PNG");
        auto rectOf = [dialog](QWidget* w) { return QRect(w->mapTo(dialog, QPoint(0, 0)), w->size()); };
        shot.text = rectOf(dialog->findChild<QLabel*>("memoryDialogTextBox"));
        auto* linkButton = dialog->findChild<QPushButton*>("updateURLButton");
        shot.link = rectOf(linkButton);
        shot.linkVisible = linkButton->isVisible();
        shot.box = rectOf(dialog->findChild<QCheckBox*>("checkBox4"));
        auto* button = dialog->findChild<QPushButton*>("button0Text");
        shot.button = rectOf(button);
        shot.taken = true;
        button->click();
    });
    poll.start(20);
    QTimer::singleShot(15000, [] {
        if (auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget())) dialog->reject();
    });
    const int result = MemoryWindow::ShowMemoryMessage(
        nullptr, name, false, "Low memory",
        "The globe is running short of memory. Close other applications or lower the terrain "
        "detail.",
        "OK", link);
    EXPECT_EQ(result, 0) << "the window was not pressed (watchdog?)";
    return shot;
}

int countPixels(const QImage& image, const QRect& area, QRgb colour) {
    int n = 0;
    const QRect r = area.intersected(image.rect());
    for (int y = r.top(); y <= r.bottom(); ++y) {
        for (int x = r.left(); x <= r.right(); ++x) n += (image.pixel(x, y) & 0xFFFFFF) == (colour & 0xFFFFFF);
    }
    return n;
}

TEST(Screenshot, LowMemoryWindowWithALink) {
    if (gDisplay.isEmpty()) GTEST_SKIP() << kNoDisplay;
    const Shot s = showAndGrab("memorywindow_link", "https://support.vantor.com/update");
    ASSERT_TRUE(s.taken) << "the window never came up exposed";
    ASSERT_FALSE(s.image.isNull());
    EXPECT_TRUE(s.linkVisible);
    // The message on top, the link under it, then one row of box and button.
    EXPECT_LE(s.text.bottom(), s.link.top());
    EXPECT_LE(s.link.bottom(), s.box.top());
    EXPECT_LE(s.link.bottom(), s.button.top());
    EXPECT_LT(s.box.right(), s.button.left());
    EXPECT_TRUE(s.box.top() <= s.button.bottom() && s.button.top() <= s.box.bottom())
        << "box and button share a row";
    // The message's ground: its margin is never drawn over by text.
    EXPECT_EQ(QColor(s.image.pixel(s.text.left() + 2, s.text.top() + 2)), QColor(236, 233, 216));
    EXPECT_GT(countPixels(s.image, s.text, qRgb(236, 233, 216)), s.text.width() * s.text.height() / 2);
    // The link's ink: the underline alone is a solid run of it.
    EXPECT_GT(countPixels(s.image, s.link, qRgb(0, 0, 204)), s.link.width() / 4);
    EXPECT_EQ(countPixels(s.image, s.button, qRgb(0, 0, 204)), 0) << "only the link is link-blue";
}

TEST(Screenshot, LowMemoryWindowWithoutALink) {
    if (gDisplay.isEmpty()) GTEST_SKIP() << kNoDisplay;
    const Shot s = showAndGrab("memorywindow_plain", "");
    ASSERT_TRUE(s.taken);
    EXPECT_FALSE(s.linkVisible);
    EXPECT_LE(s.text.bottom(), s.box.top());
    EXPECT_EQ(countPixels(s.image, s.image.rect(), qRgb(0, 0, 204)), 0) << "no link, no link ink";
    EXPECT_EQ(QColor(s.image.pixel(s.text.left() + 2, s.text.bottom() - 2)), QColor(236, 233, 216));
}

TEST(Screenshot, Demo) {
    if (gDisplay.isEmpty()) GTEST_SKIP() << kNoDisplay;
    const QString path = shotPath("mirel-demo");
    QFile::remove(path);
    QProcess demo;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("DISPLAY", QString::fromLatin1(gDisplay));
    env.insert("QT_QPA_PLATFORM", "xcb");
    demo.setProcessEnvironment(env);
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
