// MemoryWindow: one low-memory message at a time, with the user's silenced ids kept in the
// application's settings.
#include "base/memory/memorywindow.h"

#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QSettings>
#include <QThread>

#include <memory>
#include <new>

#include "base/memory/memorydialog.h"
#include "base/version/versioninfo.h"

namespace mirel {

memoryDialog* MemoryWindow::MEMDialog = nullptr;
QStringList MemoryWindow::mCurrentEntries;
bool MemoryWindow::bInitialized = false;

namespace {

constexpr const char* kEntryList = "MessageEntryList";
constexpr const char* kResetMessages = "resetMessages";

bool onGuiThread() {
    auto* app = qobject_cast<QApplication*>(QCoreApplication::instance());
    return app != nullptr && QThread::currentThread() == app->thread();
}

}  // namespace

// The arguments are ignored on purpose: the class is a holder of static services.
MemoryWindow::MemoryWindow(QWidget*, const char*, bool, unsigned int) : QDialog(nullptr) {}

MemoryWindow::~MemoryWindow() = default;

int MemoryWindow::ShowMemoryMessage(QWidget* parent, QString id, bool checked, QString caption,
                                    QString text, const QString& buttonText, const QString& linkText) {
    // Widgets cannot exist without a QApplication or off its thread; a message already on
    // screen (a call from inside its modal loop) must not have its dialog deleted under it.
    if (!onGuiThread()) return -1;
    if (MEMDialog != nullptr && MEMDialog->isVisible()) return -1;

    if (MEMDialog == nullptr) {
        MEMDialog = new (std::nothrow) memoryDialog(parent, caption.toLatin1().constData(), true, 0);
        if (MEMDialog == nullptr) return -1;
        // A dialog kept after a silenced message dies with its parent; forget it then rather
        // than show a freed object next time.
        QObject::connect(MEMDialog, &QObject::destroyed, [] { MEMDialog = nullptr; });
    }

    std::unique_ptr<QSettings> settings(VersionInfo::createUserAppSettings());
    mCurrentEntries = settings ? settings->value(kEntryList).toStringList() : QStringList();
    bInitialized = true;

    if (settings && settings->value(kResetMessages, false).toBool()) {
        settings->remove(kResetMessages);
        ResetAllValues();
    }

    memoryDialog* dialog = MEMDialog;
    if (id.isEmpty()) {
        dialog->checkBox4->hide();
    } else {
        if (mCurrentEntries.contains(id, Qt::CaseSensitive)) return -2;
        dialog->checkBox4->show();
        dialog->checkBox4->setChecked(checked);
    }

    dialog->memoryDialogTextBox->setText(text);
    dialog->button0Text->setText(buttonText);
    dialog->setObjectName(id);
    dialog->setWindowTitle(caption);
    if (linkText.isEmpty()) {
        dialog->updateURLButton->hide();
    } else {
        dialog->updateURLButton->setText(linkText);
        dialog->updateURLButton->show();
    }

    dialog->adjustSize();
    const QPointer<memoryDialog> alive(dialog);
    dialog->exec();
    // Its parent may have been deleted while the dialog ran; the user chose nothing then.
    if (alive.isNull()) return -1;

    const int result = dialog->mResult;
    // A hidden box is never the user's choice, and an empty id cannot be silenced.
    if (!id.isEmpty() && dialog->checkBox4->isChecked()) {
        mCurrentEntries.append(id);
        if (settings) {
            settings->setValue(kEntryList, mCurrentEntries);
            settings->sync();
        }
    }

    delete dialog;
    MEMDialog = nullptr;
    return result;
}

void MemoryWindow::ResetAllValues() {
    mCurrentEntries.clear();
    std::unique_ptr<QSettings> settings(VersionInfo::createUserAppSettings());
    if (settings) {
        settings->remove(kEntryList);
        settings->sync();
    }
}

}  // namespace mirel
