// memoryDialog: the low-memory message window, built in code with its named children.
//
// Normally shown through MemoryWindow::ShowMemoryMessage() (memorywindow.h), which fills
// it, runs it modally and deletes it. Use the class directly only to restyle or test it.
// Creating one needs a QApplication and the GUI thread.
#pragma once

#include <QDialog>

#include "base/mirel_export.h"

class QCheckBox;
class QHBoxLayout;
class QLabel;
class QPushButton;
class QSpacerItem;
class QVBoxLayout;

namespace mirel {

class MIREL_EXPORT memoryDialog : public QDialog {
    Q_OBJECT

public:
    // Builds the children (object names as the members below), sets the default texts,
    // sizes the dialog and connects the slots. `name` null leaves the object name empty;
    // `flags` are Qt::WindowFlags.
    memoryDialog(QWidget* parent = nullptr, const char* name = nullptr, bool modal = false,
                 unsigned int flags = 0);
    ~memoryDialog() override;

    // "memoryDialogLayout": vertical, margin 11, spacing 6, fixed size.
    QVBoxLayout* memoryDialogLayout;
    // "memoryDialogTextBox": the message, on an RGB (236, 233, 216) ground.
    QLabel* memoryDialogTextBox;
    // "updateURLButton": a flat, underlined, RGB (0, 0, 204) link; opens its own text.
    QPushButton* updateURLButton;
    // "layout2": the row of checkBox4, a spacer and button0Text.
    QHBoxLayout* layout2;
    QCheckBox* checkBox4;
    QSpacerItem* spacer;
    QPushButton* button0Text;

    // The outcome of the last showing: 0 after button0Text, -1 after cancelButton_clicked()
    // and, since a closed window is a cancelled one, after the close box or Escape. -1
    // before any showing.
    int mResult;

    // The address the link button shows until it is given another.
    static const char* const kDefaultLink;

public slots:
    // Result 0, then done(0).
    virtual void button0Text_clicked();
    // Result -1, then done(0). Reached from reject(): the close box and Escape.
    virtual void cancelButton_clicked();
    // Opens the link button's text in the user's browser; the dialog stays open.
    virtual void updateURLButton_clicked();
    virtual void checkBox4_toggled(bool on);
    // Resets every text to its default: caption "Form1", "Specify Text Here", the default
    // link, "Don't show this message again", "Button 0".
    virtual void languageChange();

protected slots:
    virtual void init();

public:
    // The close box and Escape end here; they cancel rather than leave a stale result.
    void reject() override;
};

}  // namespace mirel
