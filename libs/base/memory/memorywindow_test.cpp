// The low-memory window driven as a person would: find its named widgets, tick, click, close.
// Every modal showing runs under a watchdog so that no test can hang.
#include "base/memory/memorywindow.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QSettings>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>

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
    UrlCatcher() {
        QDesktopServices::setUrlHandler("https", this, "open");
        QDesktopServices::setUrlHandler("http", this, "open");
    }
    ~UrlCatcher() override {
        QDesktopServices::unsetUrlHandler("https");
        QDesktopServices::unsetUrlHandler("http");
    }
    Q_INVOKABLE void open(const QUrl& url) { opened.append(url); }
    QList<QUrl> opened;
};

// What the window showed when it came up.
struct Seen {
    int showings = 0;
    QString caption, objectName, text, button, link;
    bool boxVisible = false, boxChecked = false, linkVisible = false;
};

// Runs one ShowMemoryMessage() and, from inside its modal loop, notes what the window shows
// and hands it to `act`, which must close it. A watchdog closes it after 10 s.
class Driver {
public:
    explicit Driver(std::function<void(QDialog&)> act) : mAct(std::move(act)) {}

    int show(QWidget* parent, const QString& id, bool checked, const QString& caption,
             const QString& text, const QString& button, const QString& link) {
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, [this] {
            auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
            if (dialog == nullptr || !dialog->isVisible() || dialog == mActedOn) return;
            mActedOn = dialog;
            ++seen.showings;
            note(*dialog);
            mAct(*dialog);
        });
        poll.start(5);
        QTimer watchdog;
        watchdog.setSingleShot(true);
        QObject::connect(&watchdog, &QTimer::timeout, [this] {
            if (auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget())) {
                watchdogFired = true;
                dialog->reject();
            }
        });
        watchdog.start(10000);
        const int result = MemoryWindow::ShowMemoryMessage(parent, id, checked, caption, text, button, link);
        mActedOn = nullptr;
        return result;
    }

    Seen seen;
    bool watchdogFired = false;

private:
    void note(QDialog& dialog) {
        seen.caption = dialog.windowTitle();
        seen.objectName = dialog.objectName();
        seen.text = dialog.findChild<QLabel*>("memoryDialogTextBox")->text();
        seen.button = dialog.findChild<QPushButton*>("button0Text")->text();
        auto* box = dialog.findChild<QCheckBox*>("checkBox4");
        seen.boxVisible = box->isVisible();
        seen.boxChecked = box->isChecked();
        auto* link = dialog.findChild<QPushButton*>("updateURLButton");
        seen.linkVisible = link->isVisible();
        seen.link = link->text();
    }

    std::function<void(QDialog&)> mAct;
    QDialog* mActedOn = nullptr;
};

void clickButton0(QDialog& d) { d.findChild<QPushButton*>("button0Text")->click(); }
void tickAndClick(QDialog& d) {
    d.findChild<QCheckBox*>("checkBox4")->click();
    clickButton0(d);
}

// A call that should show nothing; should it show after all, the window is closed for it.
int showExpectingNothing(QWidget* parent, const QString& id) {
    Driver driver(clickButton0);
    const int result = driver.show(parent, id, false, "c", "t", "OK", "");
    EXPECT_EQ(driver.seen.showings, 0) << qPrintable(id);
    return result;
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
        MemoryWindow::mCurrentEntries.clear();
    }
};

// Showing and results ---------------------------------------------------------------------

TEST_F(MemoryWindowTest, ShowsTheMessageAndTheButtonReturnsZero) {
    for (bool checked : {false, true}) {
        Driver driver(clickButton0);
        const QString id = checked ? "lowmem.ticked" : "lowmem.plain";
        EXPECT_EQ(driver.show(nullptr, id, checked, "Low memory", "Close some windows.", "OK", ""), 0);
        ASSERT_FALSE(driver.watchdogFired);
        const Seen& s = driver.seen;
        EXPECT_EQ(s.showings, 1);
        EXPECT_EQ(s.caption, "Low memory");
        EXPECT_EQ(s.objectName, id);
        EXPECT_EQ(s.text, "Close some windows.");
        EXPECT_EQ(s.button, "OK");
        EXPECT_TRUE(s.boxVisible);
        EXPECT_EQ(s.boxChecked, checked) << "the box starts as the caller asks";
        EXPECT_FALSE(s.linkVisible) << "no link given, no link shown";
        EXPECT_EQ(MemoryWindow::MEMDialog, nullptr) << "the dialog is deleted after a showing";
    }
    // Left ticked by the caller and not unticked: the second message is silenced now.
    EXPECT_EQ(store()->value("MessageEntryList").toStringList(), QStringList{"lowmem.ticked"});
}

TEST_F(MemoryWindowTest, ClosingOtherwiseThanByTheButtonReturnsMinusOne) {
    const std::function<void(QDialog&)> closers[] = {
        [](QDialog& d) { d.close(); },
        [](QDialog& d) {
            QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
            QApplication::sendEvent(&d, &escape);
        },
    };
    for (const auto& closer : closers) {
        Driver driver(closer);
        EXPECT_EQ(driver.show(nullptr, "lowmem.close", false, "c", "t", "OK", ""), -1);
        EXPECT_FALSE(driver.watchdogFired) << "the window did not close";
        EXPECT_EQ(driver.seen.showings, 1);
    }
    // A tick counts however the window is closed.
    Driver driver([](QDialog& d) {
        d.findChild<QCheckBox*>("checkBox4")->click();
        d.close();
    });
    EXPECT_EQ(driver.show(nullptr, "lowmem.close", false, "c", "t", "OK", ""), -1);
    EXPECT_EQ(showExpectingNothing(nullptr, "lowmem.close"), -2);
}

TEST_F(MemoryWindowTest, AnEmptyIdHasNoCheckBoxAndIsNeverSilenced) {
    for (int run = 0; run < 2; ++run) {
        Driver driver([](QDialog& d) {
            // Even a tick the user cannot see must not silence anything.
            d.findChild<QCheckBox*>("checkBox4")->setChecked(true);
            clickButton0(d);
        });
        EXPECT_EQ(driver.show(nullptr, "", true, "c", "Out of memory", "OK", ""), 0);
        EXPECT_EQ(driver.seen.showings, 1) << "run " << run;
        EXPECT_FALSE(driver.seen.boxVisible);
    }
    EXPECT_FALSE(store()->contains("MessageEntryList"));
    EXPECT_TRUE(MemoryWindow::mCurrentEntries.isEmpty());
}

TEST_F(MemoryWindowTest, TheLinkOpensInTheBrowserAndTheWindowStaysOpen) {
    UrlCatcher catcher;
    const QString address = "https://update.example.org/globe?from=6.1";
    bool openAfterClick = false;
    Driver driver([&](QDialog& d) {
        auto* link = d.findChild<QPushButton*>("updateURLButton");
        EXPECT_EQ(link->cursor().shape(), Qt::PointingHandCursor);
        link->click();
        openAfterClick = d.isVisible() && QApplication::activeModalWidget() == &d;
        clickButton0(d);
    });
    EXPECT_EQ(driver.show(nullptr, "lowmem.link", false, "c", "t", "OK", address), 0);
    EXPECT_TRUE(driver.seen.linkVisible);
    EXPECT_EQ(driver.seen.link, address);
    EXPECT_TRUE(openAfterClick) << "clicking the link closed the window";
    ASSERT_EQ(catcher.opened.size(), 1);
    EXPECT_EQ(catcher.opened[0], QUrl(address));

    // The same dialog class, next message without a link: hidden again.
    Driver plain(clickButton0);
    EXPECT_EQ(plain.show(nullptr, "lowmem.link2", false, "c", "t", "OK", ""), 0);
    EXPECT_FALSE(plain.seen.linkVisible);
    EXPECT_EQ(catcher.opened.size(), 1) << "nothing opened without a click";
}

// Silencing ------------------------------------------------------------------------------

TEST_F(MemoryWindowTest, ATickSilencesTheMessageInLaterRuns) {
    {
        auto s = store();
        s->setValue("MessageEntryList", QStringList{"lowmem.older", "lowmem.other"});
    }
    Driver driver(tickAndClick);
    EXPECT_EQ(driver.show(nullptr, "lowmem.tiles", false, "c", "t", "OK", ""), 0);
    EXPECT_FALSE(driver.seen.boxChecked);

    // On disk, not only in this process: the file itself names the id, beside the older ones.
    QFile file(storeFile());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    EXPECT_TRUE(bytes.contains("lowmem.tiles")) << bytes.constData();
    EXPECT_EQ(store()->value("MessageEntryList").toStringList(),
              (QStringList{"lowmem.older", "lowmem.other", "lowmem.tiles"}));

    // A later run starts with nothing in memory and reads the list again.
    MemoryWindow::mCurrentEntries.clear();
    EXPECT_EQ(showExpectingNothing(nullptr, "lowmem.tiles"), -2);
    EXPECT_NE(MemoryWindow::MEMDialog, nullptr) << "the dialog waits for the next call";

    // Ids compare exactly: neither case nor a prefix silences.
    for (const char* near : {"LOWMEM.TILES", "lowmem.tile", "lowmem.tiles "}) {
        Driver d(clickButton0);
        EXPECT_EQ(d.show(nullptr, near, false, "c", "t", "OK", ""), 0) << near;
        EXPECT_EQ(d.seen.showings, 1) << near;
    }
}

TEST_F(MemoryWindowTest, IdsWithSeparatorsSurviveTheStore) {
    const QString odd = "lowmem, \"quoted\"; a=b";
    Driver driver(tickAndClick);
    EXPECT_EQ(driver.show(nullptr, odd, false, "c", "t", "OK", ""), 0);
    EXPECT_EQ(showExpectingNothing(nullptr, odd), -2);
    Driver part(clickButton0);
    EXPECT_EQ(part.show(nullptr, "lowmem", false, "c", "t", "OK", ""), 0) << "a piece of the id is not the id";
}

TEST_F(MemoryWindowTest, ResetMessagesInTheStoreBringsEveryMessageBack) {
    {
        auto s = store();
        s->setValue("MessageEntryList", QStringList{"lowmem.a", "lowmem.b"});
        s->setValue("resetMessages", true);
    }
    Driver driver(clickButton0);
    EXPECT_EQ(driver.show(nullptr, "lowmem.a", false, "c", "t", "OK", ""), 0);
    EXPECT_EQ(driver.seen.showings, 1);
    EXPECT_TRUE(MemoryWindow::mCurrentEntries.isEmpty());
    auto s = store();
    EXPECT_FALSE(s->contains("resetMessages")) << "the request is consumed";
    EXPECT_FALSE(s->contains("MessageEntryList"));
    Driver other(clickButton0);
    EXPECT_EQ(other.show(nullptr, "lowmem.b", false, "c", "t", "OK", ""), 0);
}

TEST_F(MemoryWindowTest, ResetAllValuesForgetsEverySilencedId) {
    Driver driver(tickAndClick);
    ASSERT_EQ(driver.show(nullptr, "lowmem.r", false, "c", "t", "OK", ""), 0);
    ASSERT_EQ(MemoryWindow::mCurrentEntries, QStringList{"lowmem.r"});
    MemoryWindow::ResetAllValues();
    EXPECT_TRUE(MemoryWindow::mCurrentEntries.isEmpty());
    EXPECT_FALSE(store()->contains("MessageEntryList"));
    Driver again(clickButton0);
    EXPECT_EQ(again.show(nullptr, "lowmem.r", false, "c", "t", "OK", ""), 0);
}

// A damaged store and misuse ------------------------------------------------------------------

TEST_F(MemoryWindowTest, AGarbledSettingsFileStillShowsTheMessage) {
    QDir().mkpath(QFileInfo(storeFile()).path());
    QFile file(storeFile());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("[General\nMessageEntryList=@Variant(\\0\\0\\0\x7f\xff\xff)\n\x01\x02\xfe=\n==\n");
    file.close();
    Driver driver(tickAndClick);
    EXPECT_EQ(driver.show(nullptr, "lowmem.garbled", false, "c", "t", "OK", ""), 0);
    EXPECT_EQ(driver.seen.showings, 1);
    EXPECT_FALSE(driver.watchdogFired);
}

TEST_F(MemoryWindowTest, AnUnwritableStoreStillShowsTheMessage) {
    // A folder where the file should be: no write can succeed, even for root. The list is
    // read from the store at every showing, so a tick that could not be kept is not kept.
    ASSERT_TRUE(QDir().mkpath(storeFile()));
    for (int run = 0; run < 2; ++run) {
        Driver driver(tickAndClick);
        EXPECT_EQ(driver.show(nullptr, "lowmem.ro", false, "c", "t", "OK", ""), 0) << "run " << run;
        EXPECT_EQ(driver.seen.showings, 1) << "run " << run;
    }
    EXPECT_TRUE(QFileInfo(storeFile()).isDir());
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
    EXPECT_EQ(MemoryWindow::MEMDialog, nullptr);

    int nested = 0;
    Driver driver([&](QDialog& d) {
        nested = MemoryWindow::ShowMemoryMessage(nullptr, "inner", false, "c", "t", "OK", "");
        clickButton0(d);
    });
    EXPECT_EQ(driver.show(nullptr, "outer", false, "c", "t", "OK", ""), 0);
    EXPECT_EQ(nested, -1);
    EXPECT_EQ(driver.seen.showings, 1);
}

TEST_F(MemoryWindowTest, AKeptDialogDiesWithItsParentSafely) {
    store()->setValue("MessageEntryList", QStringList{"lowmem.kept"});
    auto* parent = new QWidget;
    EXPECT_EQ(showExpectingNothing(parent, "lowmem.kept"), -2);
    ASSERT_NE(MemoryWindow::MEMDialog, nullptr);
    EXPECT_EQ(MemoryWindow::MEMDialog->parentWidget(), parent);
    delete parent;
    EXPECT_EQ(MemoryWindow::MEMDialog, nullptr);
    Driver driver(clickButton0);
    EXPECT_EQ(driver.show(nullptr, "lowmem.next", false, "c", "t", "OK", ""), 0);
}

// The dialog itself ---------------------------------------------------------------------------

TEST(MemoryDialog, ChildrenLayoutAndDefaults) {
    memoryDialog dialog(nullptr, "memdlg", true, 0);
    EXPECT_EQ(dialog.objectName(), "memdlg");
    EXPECT_TRUE(dialog.isModal());
    EXPECT_EQ(dialog.windowTitle(), "Form1");

    auto* main = dialog.findChild<QVBoxLayout*>("memoryDialogLayout");
    ASSERT_NE(main, nullptr);
    EXPECT_EQ(main->contentsMargins(), QMargins(11, 11, 11, 11));
    EXPECT_EQ(main->spacing(), 6);
    EXPECT_EQ(main->sizeConstraint(), QLayout::SetFixedSize);

    auto* text = dialog.findChild<QLabel*>("memoryDialogTextBox");
    auto* link = dialog.findChild<QPushButton*>("updateURLButton");
    auto* row = dialog.findChild<QHBoxLayout*>("layout2");
    auto* box = dialog.findChild<QCheckBox*>("checkBox4");
    auto* button = dialog.findChild<QPushButton*>("button0Text");
    ASSERT_TRUE(text && link && row && box && button);
    // Top to bottom: the message, the link, then the row of box, spacer and button.
    EXPECT_EQ(main->indexOf(text), 0);
    EXPECT_EQ(main->indexOf(link), 1);
    EXPECT_EQ(main->indexOf(row), 2);
    EXPECT_EQ(row->indexOf(box), 0);
    EXPECT_NE(row->itemAt(1)->spacerItem(), nullptr);
    EXPECT_EQ(row->indexOf(button), 2);

    EXPECT_EQ(text->text(), "Specify Text Here");
    EXPECT_EQ(text->palette().color(QPalette::Window), QColor(236, 233, 216));
    EXPECT_TRUE(text->autoFillBackground());
    EXPECT_EQ(link->text(), memoryDialog::kDefaultLink);
    EXPECT_TRUE(link->isFlat());
    EXPECT_TRUE(link->font().underline());
    EXPECT_EQ(link->palette().color(QPalette::ButtonText), QColor(0, 0, 204));
    EXPECT_EQ(link->cursor().shape(), Qt::PointingHandCursor);
    EXPECT_EQ(box->text(), "Don't show this message again");
    EXPECT_EQ(button->text(), "Button 0");

    // Real slots, reachable by name through the meta-object.
    for (const char* slot : {"button0Text_clicked()", "cancelButton_clicked()", "updateURLButton_clicked()",
                             "checkBox4_toggled(bool)", "languageChange()", "init()"}) {
        EXPECT_GE(dialog.metaObject()->indexOfSlot(slot), 0) << slot;
    }
}

TEST(MemoryDialog, SlotsSetTheResult) {
    memoryDialog dialog;
    EXPECT_EQ(dialog.mResult, -1);
    dialog.button0Text_clicked();
    EXPECT_EQ(dialog.mResult, 0);
    QMetaObject::invokeMethod(&dialog, "cancelButton_clicked");
    EXPECT_EQ(dialog.mResult, -1);
    dialog.findChild<QPushButton*>("button0Text")->click();
    EXPECT_EQ(dialog.mResult, 0) << "the button is connected to its slot";
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
