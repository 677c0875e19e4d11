// memoryDialog: the window's widgets, laid out by hand with the names code and tests find
// them by.
#include "base/memory/memorydialog.h"

#include <QCheckBox>
#include <QFont>
#include <QHBoxLayout>
#include <QLabel>
#include <QPalette>
#include <QPushButton>
#include <QSpacerItem>
#include <QVBoxLayout>

#include "base/system/system.h"

namespace mirel {

const char* const memoryDialog::kDefaultLink = "https://support.vantor.com/";

memoryDialog::memoryDialog(QWidget* parent, const char* name, bool modal, unsigned int flags)
    : QDialog(parent, Qt::WindowFlags(static_cast<int>(flags))), mResult(-1) {
    if (name != nullptr) setObjectName(QString::fromLatin1(name));
    setModal(modal);

    memoryDialogLayout = new QVBoxLayout(this);
    memoryDialogLayout->setObjectName("memoryDialogLayout");
    memoryDialogLayout->setContentsMargins(11, 11, 11, 11);
    memoryDialogLayout->setSpacing(6);
    memoryDialogLayout->setSizeConstraint(QLayout::SetFixedSize);

    memoryDialogTextBox = new QLabel(this);
    memoryDialogTextBox->setObjectName("memoryDialogTextBox");
    // A label paints no ground of its own unless asked to.
    memoryDialogTextBox->setAutoFillBackground(true);
    QPalette ground = memoryDialogTextBox->palette();
    ground.setColor(QPalette::Window, QColor(236, 233, 216));
    memoryDialogTextBox->setPalette(ground);
    memoryDialogTextBox->setWordWrap(true);
    memoryDialogTextBox->setMargin(6);
    // Wrapping labels size themselves narrow; a message reads better in a wider block.
    memoryDialogTextBox->setMinimumWidth(320);
    memoryDialogLayout->addWidget(memoryDialogTextBox);

    updateURLButton = new QPushButton(this);
    updateURLButton->setObjectName("updateURLButton");
    updateURLButton->setFlat(true);
    QFont underlined = updateURLButton->font();
    underlined.setUnderline(true);
    updateURLButton->setFont(underlined);
    QPalette ink = updateURLButton->palette();
    ink.setColor(QPalette::ButtonText, QColor(0, 0, 204));
    updateURLButton->setPalette(ink);
    updateURLButton->setCursor(Qt::PointingHandCursor);
    // Enter belongs to button0Text, never to the link.
    updateURLButton->setAutoDefault(false);
    memoryDialogLayout->addWidget(updateURLButton);

    layout2 = new QHBoxLayout();
    layout2->setObjectName("layout2");
    checkBox4 = new QCheckBox(this);
    checkBox4->setObjectName("checkBox4");
    layout2->addWidget(checkBox4);
    spacer = new QSpacerItem(20, 20, QSizePolicy::Expanding, QSizePolicy::Minimum);
    layout2->addItem(spacer);
    button0Text = new QPushButton(this);
    button0Text->setObjectName("button0Text");
    button0Text->setDefault(true);
    layout2->addWidget(button0Text);
    memoryDialogLayout->addLayout(layout2);

    languageChange();
    adjustSize();

    connect(checkBox4, &QCheckBox::toggled, this, &memoryDialog::checkBox4_toggled);
    connect(button0Text, &QPushButton::clicked, this, &memoryDialog::button0Text_clicked);
    connect(updateURLButton, &QPushButton::clicked, this, &memoryDialog::updateURLButton_clicked);
    init();
}

memoryDialog::~memoryDialog() = default;

void memoryDialog::button0Text_clicked() {
    mResult = 0;
    done(0);
}

void memoryDialog::cancelButton_clicked() {
    mResult = -1;
    done(0);
}

void memoryDialog::updateURLButton_clicked() {
    System::LaunchExternalBrowser(updateURLButton->text(), true, false);
}

void memoryDialog::checkBox4_toggled(bool) {}

void memoryDialog::languageChange() {
    setWindowTitle("Form1");
    memoryDialogTextBox->setText("Specify Text Here");
    updateURLButton->setText(QString::fromLatin1(kDefaultLink));
    checkBox4->setText("Don't show this message again");
    button0Text->setText("Button 0");
}

void memoryDialog::init() {}

void memoryDialog::reject() { cancelButton_clicked(); }

}  // namespace mirel
