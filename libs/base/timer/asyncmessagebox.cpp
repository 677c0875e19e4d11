// The message box method, and System::AsyncMessageBox which hands one to the event loop.
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

void System::AsyncMessageBox(MessageType type, const QString& title, const QString& text) {
    Timer::executeAsync(*new mirel::AsyncMessageBox(type, title, text));
}

}  // namespace mirel
