// mirel memwindow: one low-memory message in the library's own window, and the list of
// messages the user has silenced.
#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QPushButton>
#include <QSettings>
#include <QTimer>

#include <cstdio>
#include <memory>

#include "base/memory/memorywindow.h"
#include "base/version/versioninfo.h"
#include "command.h"

namespace mirel::tool {
namespace {

void configure(QCommandLineParser& parser) {
    parser.addOption({"id", "The message's identifier; ticking the box silences it for good. "
                            "Empty or absent: no box, never silenced.", "ID"});
    parser.addOption({"text", "The message.", "TEXT"});
    parser.addOption({"link", "A web address the window offers as a link.", "URL"});
    parser.addOption({"caption", "The window's title (default: Low memory).", "CAPTION"});
    parser.addOption({"button", "The button's label (default: OK).", "LABEL"});
    parser.addOption({"checked", "Start with the box ticked."});
    parser.addOption({"auto-close", "For scripts and tests: press the button after MS "
                                    "milliseconds, as a person would.", "MS"});
    parser.addOption({"list", "List the silenced identifiers instead of showing anything."});
    parser.addOption({"reset", "Forget every silenced identifier instead of showing anything."});
}

QString meaning(int result) {
    switch (result) {
    case 0: return "the button was pressed";
    case -1: return "the window was closed without the button";
    case -2: return "the message is silenced: nothing was shown";
    default: return "unexpected result";
    }
}

// Watches for the window from inside its modal loop: presses its button after a delay, or,
// where nobody can see it, closes it unticked so that nothing is recorded.
class Closer {
public:
    Closer(long pressAfterMs, bool visible) : mPressAfter(pressAfterMs), mVisible(visible) {
        QObject::connect(&mPoll, &QTimer::timeout, [this] { poll(); });
        mPoll.start(10);
    }
    bool closedUnseen = false;

private:
    void poll() {
        auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (dialog == nullptr || !dialog->isVisible()) return;
        if (mPressAfter >= 0) {
            mPoll.stop();
            QTimer::singleShot(static_cast<int>(mPressAfter), dialog, [dialog] {
                if (auto* button = dialog->findChild<QPushButton*>("button0Text")) button->click();
            });
        } else if (!mVisible) {
            mPoll.stop();
            if (auto* box = dialog->findChild<QCheckBox*>("checkBox4")) box->setChecked(false);
            closedUnseen = true;
            dialog->close();
        }
    }

    QTimer mPoll;
    long mPressAfter;
    bool mVisible;
};

int run(const QCommandLineParser& parser, Output& out) {
    if (parser.isSet("list") || parser.isSet("reset")) {
        if (parser.isSet("list") && parser.isSet("reset")) throw UsageError("--list or --reset, not both");
        if (parser.isSet("reset")) {
            MemoryWindow::ResetAllValues();
            out.data["reset"] = true;
            if (!out.json()) out.text() << "Every message will be shown again.\n";
            return 0;
        }
        std::unique_ptr<QSettings> settings(VersionInfo::createUserAppSettings());
        const QStringList ids = settings ? settings->value("MessageEntryList").toStringList() : QStringList();
        out.data["silenced"] = QJsonArray::fromStringList(ids);
        if (!out.json()) {
            if (ids.isEmpty()) out.text() << "No message is silenced.\n";
            for (const QString& id : ids) out.text() << id << "\n";
        }
        return 0;
    }
    if (!parser.isSet("text")) throw UsageError("--text is required (or --list, --reset)");
    const long autoClose = parser.isSet("auto-close") ? parseInteger(parser, "auto-close", 0, 3600000) : -1;
    const QString caption = parser.isSet("caption") ? parser.value("caption") : QStringLiteral("Low memory");
    const QString button = parser.isSet("button") ? parser.value("button") : QStringLiteral("OK");
    const QString id = parser.value("id");

    Closer closer(autoClose, QGuiApplication::platformName() != "offscreen");
    const int result = MemoryWindow::ShowMemoryMessage(nullptr, id, parser.isSet("checked"), caption,
                                                       parser.value("text"), button, parser.value("link"));
    if (closer.closedUnseen) {
        std::fprintf(stderr, "mirel: memwindow: no display to show the window on (set DISPLAY, "
                             "or use --auto-close)\n");
        return 1;
    }
    out.data["id"] = id;
    out.data["result"] = result;
    out.data["meaning"] = meaning(result);
    if (!out.json()) out.text() << QStringLiteral("%1  %2\n").arg(result).arg(meaning(result));
    return 0;
}

const Register memwindow{Command{"memwindow",
                                 "Show a low-memory message in the library's window; list or reset "
                                 "the silenced ones.",
                                 configure, run, false, true}};

}  // namespace
}  // namespace mirel::tool
