// AsyncMessageBox: a message box shown on the event-loop thread on behalf of any thread.
//
// Usually reached through System::AsyncMessageBox(). The box is a Timer::SyncMethod handed
// to Timer::executeAsync(): it shows itself modally on the event-loop thread and deletes
// itself once the user has closed it. Showing it needs a QApplication.
#pragma once

#include <QString>

#include "base/mirel_export.h"
#include "base/system/system.h"
#include "base/timer/timer.h"

namespace mirel {

class MIREL_EXPORT AsyncMessageBox : public Timer::SyncMethod {
public:
    // Allocate with new; `doneFlag` starts null.
    AsyncMessageBox(System::MessageType type, const QString& title, const QString& text);
    ~AsyncMessageBox() override;

    // On the event-loop thread: shows a warning box when `type` is 1 and an information box
    // for any other value, waits until it is closed, then deletes this object. Without a
    // QApplication the message goes to standard error instead.
    void execute() override;

    System::MessageType type;
    QString title;
    QString text;
};

}  // namespace mirel
