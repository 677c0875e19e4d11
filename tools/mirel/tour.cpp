// mirel tour: every service of the library at work on built-in data, one step each.
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>

#include <algorithm>
#include <cstdio>

#include "command.h"

namespace mirel::tool {
namespace {

void configure(QCommandLineParser& parser) {
    parser.addOption({"gui", "Start mirel-demo instead: the window, message boxes and timers "
                             "on screen, walked through by themselves."});
    parser.addOption({"quit-after", "With --gui: close the demo after MS milliseconds (default: "
                                    "when its window is closed).", "MS"});
}

// mirel-demo is installed, and built, beside this program. Its output is passed through.
int runGuiTour(const QCommandLineParser& parser, Output& out) {
    QStringList args{"--play"};
    if (parser.isSet("quit-after")) {
        args << "--quit-after" << QString::number(parseInteger(parser, "quit-after", 0, 86400000));
    }
    const QString demo = QCoreApplication::applicationDirPath() + "/mirel-demo";
    if (!QFileInfo(demo).isExecutable()) {
        std::fprintf(stderr, "mirel: tour: %s is missing; install mirel-demo beside mirel\n", qPrintable(demo));
        return 1;
    }
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
        qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        std::fprintf(stderr, "mirel: tour: --gui needs a display (set DISPLAY)\n");
        return 1;
    }
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(demo, args);
    if (!process.waitForStarted()) {
        std::fprintf(stderr, "mirel: tour: could not start %s\n", qPrintable(demo));
        return 1;
    }
    QStringList lines;
    // No time limit: the demo runs until its window is closed or --quit-after.
    while (process.state() != QProcess::NotRunning) {
        process.waitForReadyRead(200);
        while (process.canReadLine()) {
            const QString line = QString::fromUtf8(process.readLine()).trimmed();
            lines << line;
            if (!out.json()) {
                out.text() << line << "\n";
                out.text().flush();
            }
        }
    }
    const QString rest = QString::fromUtf8(process.readAll()).trimmed();
    if (!rest.isEmpty()) {
        lines << rest.split('\n');
        if (!out.json()) out.text() << rest << "\n";
    }
    const int status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : 1;
    out.data["demo"] = QJsonArray::fromStringList(lines);
    out.data["status"] = status;
    return status;
}

int runTour(const QCommandLineParser& parser, Output& out) {
    if (parser.isSet("quit-after") && !parser.isSet("gui")) throw UsageError("--quit-after goes with --gui");
    if (parser.isSet("gui")) return runGuiTour(parser, out);
    auto steps = tourSteps();
    std::stable_sort(steps.begin(), steps.end(),
                     [](const TourStep& a, const TourStep& b) { return a.order < b.order; });
    QJsonArray results;
    int number = 0;
    for (const TourStep& step : steps) {
        ++number;
        if (!out.json()) {
            out.text() << QStringLiteral("== %1. %2 ==\n").arg(number).arg(step.title);
            out.text().flush();
        }
        Output stepOut(out.json());
        QElapsedTimer timer;
        timer.start();
        step.run(stepOut);
        stepOut.text().flush();
        QJsonObject entry{{"step", step.title}, {"result", stepOut.data},
                          {"elapsedMs", static_cast<double>(timer.nsecsElapsed()) / 1e6}};
        results.append(entry);
        if (!out.json()) out.text() << "\n";
        out.text().flush();
    }
    out.data["tour"] = results;
    if (!out.json()) out.text() << QStringLiteral("Tour complete: %1 steps.\n").arg(number);
    return 0;
}

const Register tour{Command{"tour", "Show each service of the library working on built-in data.",
                            configure, runTour}};

}  // namespace
}  // namespace mirel::tool
