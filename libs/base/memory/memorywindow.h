// MemoryWindow: tells the user the application is short of memory, in one modal window
// whose messages the user can silence for good.
//
//   int r = MemoryWindow::ShowMemoryMessage(nullptr, "lowmem.tiles", false, "Low memory",
//                                           "Close some windows.", "OK", updateAddress);
//   // 0: the button; -1: closed (close box, Escape) or no window possible; -2: silenced
//
// A message with a non-empty id offers "Don't show this message again"; the ids so ticked
// are kept under "MessageEntryList" in the user's application settings
// (VersionInfo::createUserAppSettings) and silence the message in later runs too. Setting
// "resetMessages" to true there, from anywhere, brings them all back at the next showing.
// Everything here is for the GUI thread of a QApplication only.
#pragma once

#include <QDialog>
#include <QString>
#include <QStringList>

#include "base/mirel_export.h"

namespace mirel {

class memoryDialog;

class MIREL_EXPORT MemoryWindow : public QDialog {
public:
    // A plain dialog with no parent and no name, whatever it is given: every service of the
    // class is static.
    MemoryWindow(QWidget* parent = nullptr, const char* name = nullptr, bool modal = false,
                 unsigned int flags = 0);
    ~MemoryWindow() override;

    // Shows `text` under `caption` with one button labelled `buttonText` and, when
    // `linkText` is not empty, a link that opens `linkText` in the browser. The check box
    // starts as `checked`; an empty `id` hides it and is never silenced. Blocks until the
    // window is closed. Returns 0 for the button, -1 when closed otherwise, -2 without
    // showing anything when `id` is silenced, and -1 when no window can be made (no
    // QApplication, not the GUI thread, or a message already showing). A failed settings
    // write is not reported.
    static int ShowMemoryMessage(QWidget* parent, QString id, bool checked, QString caption,
                                 QString text, const QString& buttonText, const QString& linkText);
    // Forgets every silenced id, here and in the settings.
    static void ResetAllValues();

    // The dialog of the showing in progress, or the one kept after a silenced message (it
    // serves the next call); null otherwise.
    static memoryDialog* MEMDialog;
    // The silenced ids as last read from the settings.
    static QStringList mCurrentEntries;
    // True once mCurrentEntries has been read from the settings.
    static bool bInitialized;
};

}  // namespace mirel
