// The message box method that System::AsyncMessageBox hands to the event loop.
#include "base/timer/asyncmessagebox.h"

#include <QApplication>
#include <QMessageBox>

#include <cstdio>

namespace mirel {

AsyncMessageBox::AsyncMessageBox(System::MessageType t, const QString& caption,
                                 const QString& message)
    : type(t), title(caption), text(message) {}

AsyncMessageBox::~AsyncMessageBox() = default;

void AsyncMessageBox::execute() {
    // A widget without a QApplication ends the process inside Qt; the message is not lost
    // for want of one.
    if (qobject_cast<QApplication*>(QCoreApplication::instance()) == nullptr) {
        std::fprintf(stderr, "%s: %s\n", qPrintable(title), qPrintable(text));
    } else if (type == System::kMessageWarning) {
        QMessageBox::warning(QApplication::activeWindow(), title, text);
    } else {
        QMessageBox::information(QApplication::activeWindow(), title, text);
    }
    // The method owns itself once handed over asynchronously.
    delete this;
}

}  // namespace mirel
