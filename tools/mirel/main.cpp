// mirel: the library's services in a terminal.
#include <QApplication>
#include <QCoreApplication>
#include <QJsonDocument>
#include <QRegularExpression>

#include <algorithm>
#include <cstdio>
#include <memory>

#include "command.h"

namespace mirel::tool {

Output::Output(bool json) : mJson(json), mText(stdout) {}

std::vector<Command>& commands() {
    static std::vector<Command> list;
    return list;
}

std::vector<TourStep>& tourSteps() {
    static std::vector<TourStep> list;
    return list;
}

Register::Register(Command command) { commands().push_back(std::move(command)); }
Register::Register(TourStep step) { tourSteps().push_back(std::move(step)); }

long parseInteger(const QCommandLineParser& parser, const QString& option, long min, long max) {
    const QString text = parser.value(option);
    bool ok = false;
    long value = text.toLong(&ok);
    if (!ok || value < min || value > max) {
        throw UsageError(QStringLiteral("--%1 must be a whole number from %2 to %3, not '%4'")
                             .arg(option)
                             .arg(min)
                             .arg(max)
                             .arg(text));
    }
    return value;
}

namespace {

QString usage() {
    QString text = QStringLiteral(
        "Usage: mirel [--version] [--help] <command> [options]\n\n"
        "The mirel platform library's services in a terminal.\n\nCommands:\n");
    auto list = commands();
    std::sort(list.begin(), list.end(),
              [](const Command& a, const Command& b) { return a.name < b.name; });
    for (const Command& c : list) text += QStringLiteral("  %1  %2\n").arg(c.name, -10).arg(c.summary);
    text += QStringLiteral("\nRun 'mirel <command> --help' for a command's options.\n");
    return text;
}

// The offscreen platform and a missing XDG_RUNTIME_DIR are normal for a terminal tool;
// Qt's notes about them would only look like errors.
QtMessageHandler sNextHandler = nullptr;

void quietOffscreenNotes(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (type == QtWarningMsg && (message.contains("does not support propagateSizeHints") ||
                                 message.startsWith("QStandardPaths: XDG_RUNTIME_DIR"))) {
        return;
    }
    if (sNextHandler != nullptr) {
        sNextHandler(type, context, message);
    } else {
        std::fprintf(stderr, "%s\n", qPrintable(message));
    }
}

const Command* find(const QString& name) {
    for (const Command& c : commands()) {
        if (c.name == name) return &c;
    }
    return nullptr;
}

int fail(const QString& message, int status) {
    std::fprintf(stderr, "mirel: %s\n", qPrintable(message));
    return status;
}

int runCommand(const Command& command, const QStringList& args) {
    QCommandLineParser parser;
    parser.setApplicationDescription(command.summary);
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    QCommandLineOption help(QStringList{"h", "help"}, "Show this help.");
    QCommandLineOption json("json", "Write the result as one JSON document.");
    parser.addOption(help);
    parser.addOption(json);
    if (command.configure) command.configure(parser);
    if (!parser.parse(args)) return fail(command.name + ": " + parser.errorText(), 2);
    if (!command.positional && !parser.positionalArguments().isEmpty()) {
        return fail(QStringLiteral("%1: unexpected argument '%2'")
                        .arg(command.name, parser.positionalArguments().first()),
                    2);
    }
    if (parser.isSet(help)) {
        QString text = parser.helpText();
        // Qt names the program by its path; a person typed `mirel <command>`.
        text.replace(QRegularExpression(QStringLiteral("^Usage: \\S+")),
                     QStringLiteral("Usage: mirel ") + command.name);
        std::fputs(qPrintable(text), stdout);
        return 0;
    }
    Output out(parser.isSet(json));
    int status = 0;
    try {
        status = command.run(parser, out);
    } catch (const UsageError& e) {
        return fail(command.name + ": " + QString::fromStdString(e.what()), 2);
    }
    if (out.json()) {
        out.text() << QJsonDocument(out.data).toJson(QJsonDocument::Indented);
    }
    out.text().flush();
    return status;
}

}  // namespace
}  // namespace mirel::tool

int main(int argc, char** argv) {
    using namespace mirel::tool;
    // The command decides the application object, so it is looked up before one exists.
    const Command* early = argc >= 2 ? find(QString::fromLocal8Bit(argv[1])) : nullptr;
    std::unique_ptr<QCoreApplication> app;
    if (early != nullptr && early->widgets) {
        // Over ssh or in CI there is no display; a box on the offscreen platform still works.
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY") &&
            qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
            qputenv("QT_QPA_PLATFORM", "offscreen");
        }
        sNextHandler = qInstallMessageHandler(quietOffscreenNotes);
        app = std::make_unique<QApplication>(argc, argv);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName("mirel");
    QCoreApplication::setApplicationVersion(MIREL_TOOL_VERSION);

    QStringList args = QCoreApplication::arguments();
    if (args.size() < 2) {
        std::fputs(qPrintable(usage()), stderr);
        return 2;
    }
    const QString first = args.at(1);
    if (first == "--help" || first == "-h" || first == "help") {
        std::fputs(qPrintable(usage()), stdout);
        return 0;
    }
    if (first == "--version" || first == "-v") {
        std::printf("mirel %s\n", MIREL_TOOL_VERSION);
        return 0;
    }
    if (first.startsWith('-')) return fail(QStringLiteral("unknown option '%1' (see 'mirel --help')").arg(first), 2);
    const Command* command = find(first);
    if (command == nullptr) {
        return fail(QStringLiteral("unknown command '%1' (see 'mirel --help')").arg(first), 2);
    }
    args.removeAt(1);
    return runCommand(*command, args);
}
