// System::AsyncMessageBox: hands a message box to the event loop through the timer layer.
#include "base/system/system.h"
#include "base/timer/asyncmessagebox.h"
#include "base/timer/timer.h"

namespace mirel {

void System::AsyncMessageBox(MessageType type, const QString& title, const QString& text) {
    Timer::executeAsync(*new mirel::AsyncMessageBox(type, title, text));
}

}  // namespace mirel
