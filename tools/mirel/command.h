// The command frame of the mirel tool: each subcommand family registers its commands and
// its steps of the tour from its own file; main() parses, dispatches and reports.
#pragma once

#include <QCommandLineParser>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QTextStream>

#include <functional>
#include <stdexcept>
#include <vector>

namespace mirel::tool {

// A bad argument: main() prints it on one line and exits with status 2.
class UsageError : public std::runtime_error {
public:
    explicit UsageError(const QString& message) : std::runtime_error(message.toStdString()) {}
};

// Where a command reports: text for a person, or one JSON document with --json. A command
// fills `data` either way and writes text only when !json().
class Output {
public:
    explicit Output(bool json);
    bool json() const { return mJson; }
    QTextStream& text() { return mText; }
    QJsonObject data;

private:
    bool mJson;
    QTextStream mText;
};

struct Command {
    QString name;
    QString summary;
    // Adds the command's options and positional arguments; --help and --json are added for
    // every command.
    std::function<void(QCommandLineParser&)> configure;
    // Returns the exit status; throws UsageError for bad arguments.
    std::function<int(const QCommandLineParser&, Output&)> run;
    // Whether the command takes positional arguments; stray ones are refused otherwise.
    bool positional = false;
    // Whether the command shows widgets: main() then makes a QApplication instead of a
    // QCoreApplication, on the offscreen platform when there is no display.
    bool widgets = false;
};

// One step of `mirel tour`: shows one service working on built-in data. Steps run in
// ascending `order`.
struct TourStep {
    int order;
    QString title;
    std::function<void(Output&)> run;
};

std::vector<Command>& commands();
std::vector<TourStep>& tourSteps();

// Registers at static initialisation; use one per command or step at namespace scope.
struct Register {
    explicit Register(Command command);
    explicit Register(TourStep step);
};

// Option helpers that turn bad values into UsageError.
long parseInteger(const QCommandLineParser& parser, const QString& option, long min, long max);

}  // namespace mirel::tool
