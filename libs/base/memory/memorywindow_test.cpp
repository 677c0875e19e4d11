// The low-memory window driven as a person would: find its named widgets, tick, click, close.
// Every modal showing runs under a watchdog so that no test can hang.
#include "base/memory/memorywindow.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QDesktopServices>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QLayout>
#include <QPointer>
#include <QPushButton>
#include <QSettings>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <memory>

#include "base/memory/memorydialog.h"
#include "base/testing/qtapplication.h"
#include "base/testing/tempenv.h"
#include "base/version/versioninfo.h"

namespace mirel {
namespace {

// The real settings store, kept away from the user's.
const QString gConfigHome = testing::temporaryHome();

// A dialog kept after a silenced message must go before the application does.
const auto* const kEnvironment = ::testing::AddGlobalTestEnvironment(
    new testing::QtApplicationEnvironment({}, [] { delete MemoryWindow::MEMDialog; }));

// Catches what the library hands to the browser.
class UrlCatcher : public QObject {
    Q_OBJECT
public:
    UrlCatcher() { QDesktopServices::setUrlHandler("https", this, "open"); }
    ~UrlCatcher() override { QDesktopServices::unsetUrlHandler("https"); }
    Q_INVOKABLE void open(const QUrl& url) { opened.append(url); }
    QList<QUrl> opened;
};

using Act = std::function<void(QDialog&)>;

QCheckBox* box(QDialog& d) { return d.findChild<QCheckBox*>("checkBox4"); }
QPushButton* link(QDialog& d) { return d.findChild<QPushButton*>("updateURLButton"); }
void press(QDialog& d) { d.findChild<QPushButton*>("button0Text")->click(); }
void tickAndPress(QDialog& d) {
    box(d)->click();
    press(d);
}
// For a call that must show nothing; should it show after all, the window is closed for it.
void unexpected(QDialog& d) {
    ADD_FAILURE() << "shown: " << qPrintable(d.objectName());
    press(d);
}

// One ShowMemoryMessage() with fixed texts. `act` gets the window from inside its modal loop
// and must close it; a watchdog closes it after 10 s and fails the test.
int show(const Act& act, const QString& id, bool checked = false, const QString& linkText = {},
         QWidget* parent = nullptr) {
    QPointer<QDialog> actedOn;
    QElapsedTimer watchdog;
    watchdog.start();
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (dialog == nullptr || !dialog->isVisible()) return;
        if (watchdog.elapsed() > 10000) {
            ADD_FAILURE() << "the window was still open after 10 s";
            dialog->reject();
        } else if (dialog != actedOn) {
            actedOn = dialog;
            act(*dialog);
        }
    });
    poll.start(5);
    return MemoryWindow::ShowMemoryMessage(parent, id, checked, "Low memory", "Close some windows.", "OK",
                                           linkText);
}

std::unique_ptr<QSettings> store() { return std::unique_ptr<QSettings>(VersionInfo::createUserAppSettings()); }

QString storeFile() { return store()->fileName(); }

class MemoryWindowTest : public ::testing::Test {
protected:
    void SetUp() override {
        // A file or folder left where the settings live by an earlier test goes first.
        const QString path = storeFile();
        QDir(path).removeRecursively();
        QFile::remove(path);
        store()->clear();
    }
};


TEST_F(MemoryWindowTest, ShowsTheMessageAndTheButtonReturnsZero) {
    for (bool checked : {false, true}) {
        const QString id = checked ? "lowmem.ticked" : "lowmem.plain";
        const int result = show(
            [&](QDialog& d) {
                EXPECT_EQ(d.windowTitle(), "Low memory");
                EXPECT_EQ(d.objectName(), id);
                EXPECT_EQ(d.findChild<QLabel*>("memoryDialogTextBox")->text(), "Close some windows.");
                EXPECT_EQ(d.findChild<QPushButton*>("button0Text")->text(), "OK");
                EXPECT_TRUE(box(d)->isVisible());
                EXPECT_EQ(box(d)->isChecked(), checked) << "the box starts as the caller asks";
                EXPECT_FALSE(link(d)->isVisible()) << "no link given, no link shown";
                press(d);
            },
            id, checked);
        EXPECT_EQ(result, 0);
        EXPECT_EQ(MemoryWindow::MEMDialog, nullptr) << "the dialog is deleted after a showing";
    }
    // Left ticked by the caller and not unticked: that message is silenced now.
    EXPECT_EQ(store()->value("MessageEntryList").toStringList(), QStringList{"lowmem.ticked"});
}

TEST_F(MemoryWindowTest, ClosingOtherwiseThanByTheButtonReturnsMinusOneAndKeepsATick) {
    const int result = show(
        [](QDialog& d) {
            box(d)->click();
            d.close();
        },
        "lowmem.close");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(show(unexpected, "lowmem.close"), -2) << "a tick counts however the window is closed";
}

TEST_F(MemoryWindowTest, AnEmptyIdHasNoCheckBoxAndIsNeverSilenced) {
    const int result = show(
        [](QDialog& d) {
            EXPECT_FALSE(box(d)->isVisible());
            box(d)->setChecked(true);  // a tick the user cannot see must not silence anything
            press(d);
        },
        "", true);
    EXPECT_EQ(result, 0);
    EXPECT_FALSE(store()->contains("MessageEntryList"));
}

TEST_F(MemoryWindowTest, TheLinkOpensInTheBrowserAndTheWindowStaysOpen) {
    UrlCatcher catcher;
    const QString address = "https://update.example.org/globe?from=6.1";
    bool openAfterClick = false;
    const int result = show(
        [&](QDialog& d) {
            EXPECT_TRUE(link(d)->isVisible());
            EXPECT_EQ(link(d)->text(), address);
            link(d)->click();
            openAfterClick = d.isVisible();
            press(d);
        },
        "lowmem.link", false, address);
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(openAfterClick) << "clicking the link closed the window";
    EXPECT_EQ(catcher.opened, QList<QUrl>{QUrl(address)});
}


TEST_F(MemoryWindowTest, ATickSilencesTheMessageInLaterRuns) {
    store()->setValue("MessageEntryList", QStringList{"lowmem.older", "lowmem.other"});
    // Separators of the store's own syntax must survive it.
    const QString id = "lowmem.tiles, \"big\"; a=b";
    EXPECT_EQ(show(tickAndPress, id), 0);
    EXPECT_EQ(store()->value("MessageEntryList").toStringList(), (QStringList{"lowmem.older", "lowmem.other", id}));

    // A later run starts with nothing in memory and reads the list again.
    MemoryWindow::mCurrentEntries.clear();
    EXPECT_EQ(show(unexpected, id), -2);

    // Ids compare exactly: neither case nor a piece of the id silences.
    for (const QString& near : {id.toUpper(), id.chopped(1), id + " ", QString("lowmem.tiles")}) {
        EXPECT_EQ(show(press, near), 0) << qPrintable(near);
    }
}

TEST_F(MemoryWindowTest, ResetMessagesInTheStoreBringsEveryMessageBack) {
    {
        auto s = store();
        s->setValue("MessageEntryList", QStringList{"lowmem.a", "lowmem.b"});
        s->setValue("resetMessages", true);
    }
    EXPECT_EQ(show(press, "lowmem.a"), 0);
    EXPECT_FALSE(store()->contains("resetMessages")) << "the request is consumed";
    EXPECT_EQ(show(press, "lowmem.b"), 0);
}


TEST_F(MemoryWindowTest, AnUnwritableStoreStillShowsTheMessage) {
    // A folder where the file should be: no write can succeed, even for root. The list is
    // read from the store at every showing, so a tick that could not be kept is not kept.
    ASSERT_TRUE(QDir().mkpath(storeFile()));
    for (int run = 0; run < 2; ++run) EXPECT_EQ(show(tickAndPress, "lowmem.ro"), 0) << "run " << run;
}

TEST_F(MemoryWindowTest, NoWindowOffTheGuiThreadOrInsideAnotherShowing) {
    auto worker = std::async(std::launch::async, [] {
        return MemoryWindow::ShowMemoryMessage(nullptr, "w", false, "c", "t", "OK", "");
    });
    if (worker.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
        // Nothing can close a window stuck on a worker thread: end the run here.
        std::fprintf(stderr, "FATAL: a call from a worker thread did not return\n");
        std::_Exit(1);
    }
    EXPECT_EQ(worker.get(), -1);

    int nested = 0;
    const int result = show(
        [&](QDialog& d) {
            nested = MemoryWindow::ShowMemoryMessage(nullptr, "inner", false, "c", "t", "OK", "");
            press(d);
        },
        "outer");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(nested, -1);
}

TEST_F(MemoryWindowTest, TheParentsDeathTakesTheDialogSafely) {
    store()->setValue("MessageEntryList", QStringList{"lowmem.kept"});
    auto* parent = new QWidget;
    EXPECT_EQ(show(unexpected, "lowmem.kept", false, {}, parent), -2);
    ASSERT_NE(MemoryWindow::MEMDialog, nullptr);
    delete parent;
    EXPECT_EQ(MemoryWindow::MEMDialog, nullptr);

    // Gone while the window runs: the user chose nothing.
    parent = new QWidget;
    EXPECT_EQ(show([&](QDialog&) { delete parent; }, "lowmem.next", false, {}, parent), -1);
}


TEST(MemoryDialog, ChildrenDefaultsAndResult) {
    memoryDialog dialog(nullptr, "memdlg", true, 0);
    EXPECT_EQ(dialog.objectName(), "memdlg");
    EXPECT_TRUE(dialog.isModal());
    EXPECT_EQ(dialog.windowTitle(), "Form1");

    // Order and colours are checked on screen, in the screenshot tests.
    auto* main = dialog.findChild<QLayout*>("memoryDialogLayout");
    auto* row = dialog.findChild<QLayout*>("layout2");
    ASSERT_TRUE(main && row);
    EXPECT_EQ(main->contentsMargins(), QMargins(11, 11, 11, 11));
    EXPECT_EQ(main->spacing(), 6);
    EXPECT_EQ(main->sizeConstraint(), QLayout::SetFixedSize);
    EXPECT_NE(row->itemAt(1)->spacerItem(), nullptr) << "box, spacer, button";

    auto* link = dialog.findChild<QPushButton*>("updateURLButton");
    EXPECT_EQ(link->text(), memoryDialog::kDefaultLink);
    EXPECT_TRUE(link->isFlat());
    EXPECT_EQ(link->cursor().shape(), Qt::PointingHandCursor);
    EXPECT_EQ(dialog.findChild<QLabel*>("memoryDialogTextBox")->text(), "Specify Text Here");
    EXPECT_EQ(dialog.findChild<QCheckBox*>("checkBox4")->text(), "Don't show this message again");
    EXPECT_EQ(dialog.findChild<QPushButton*>("button0Text")->text(), "Button 0");

    // Real slots, reachable by name through the meta-object.
    for (const char* slot : {"button0Text_clicked()", "cancelButton_clicked()", "updateURLButton_clicked()",
                             "checkBox4_toggled(bool)", "languageChange()", "init()"}) {
        EXPECT_GE(dialog.metaObject()->indexOfSlot(slot), 0) << slot;
    }

    // The button and the close box set the result.
    EXPECT_EQ(dialog.mResult, -1);
    dialog.findChild<QPushButton*>("button0Text")->click();
    EXPECT_EQ(dialog.mResult, 0);
    dialog.reject();
    EXPECT_EQ(dialog.mResult, -1);
}

TEST(MemoryWindowClass, IgnoresWhatItIsGiven) {
    QWidget parent;
    MemoryWindow window(&parent, "name", true, Qt::Tool);
    EXPECT_EQ(window.parent(), nullptr);
    EXPECT_TRUE(window.objectName().isEmpty());
    EXPECT_FALSE(window.isModal());
}

}  // namespace
}  // namespace mirel

#include "memorywindow_test.moc"
