// mirel time: the library's clocks, and its frame clock timing a few frames.
#include <QJsonArray>

#include <ctime>

#include "base/system/system.h"
#include "command.h"

namespace mirel::tool {
namespace {

void showClocks(Output& out, int frames, int intervalMs) {
    const double time = System::getTime();
    const unsigned long long systemTime = System::getSystemTime();
    const unsigned long currTime = System::getCurrTime();
    const long now = static_cast<long>(currTime);
    const QString local = System::wctime(&now);

    // A fixed rate: every frame lasts 1/rate at once.
    System::setFixedFrameRate(true, 25.0);
    System::updateGlobalDT(true);
    const double fixedDT = System::getGlobalDT();
    System::setFixedFrameRate(false, 0.0);

    // A variable rate: frames timed on the clock, the first one only restarting it.
    QJsonArray dts;
    System::updateGlobalDT(false);
    for (int i = 0; i <= frames; ++i) {
        if (i > 0) System::sleep(intervalMs);
        System::updateGlobalDT(true);
        System::setNextFrame();
        if (i > 0) dts.append(System::getGlobalDT());
    }

    out.data = QJsonObject{
        {"getTime", time},
        {"getStartTime", System::getStartTime()},
        {"getSystemTime", static_cast<double>(systemTime)},
        {"getCurrTime", static_cast<double>(currTime)},
        {"wctime", local.trimmed()},
        {"fixedRate", 25.0},
        {"fixedGlobalDT", fixedDT},
        {"frameIntervalMs", intervalMs},
        {"variableGlobalDT", dts},
        {"currentFrame", System::getCurrentFrame()},
        {"planetRadius", System::getPlanetRadius()},
    };
    if (out.json()) return;
    QTextStream& t = out.text();
    t << QStringLiteral("getTime        %1 s since the library was loaded (getStartTime %2 s)\n")
             .arg(time, 0, 'f', 6)
             .arg(System::getStartTime(), 0, 'f', 6);
    t << QStringLiteral("getSystemTime  %1 ms since 1970\n").arg(systemTime);
    t << QStringLiteral("getCurrTime    %1 s since 1970: %2\n").arg(currTime).arg(local.trimmed());
    t << QStringLiteral("frame clock    fixed at 25 fps: globalDT %1 s\n").arg(fixedDT, 0, 'f', 4);
    QStringList shown;
    for (const auto& v : dts) shown << QString::number(v.toDouble(), 'f', 4);
    t << QStringLiteral("               %1 frames %2 ms apart: globalDT %3 s\n")
             .arg(frames)
             .arg(intervalMs)
             .arg(shown.join(' '));
    t << QStringLiteral("               frames counted: %1\n").arg(System::getCurrentFrame());
    t << QStringLiteral("planet radius  %1 m\n").arg(System::getPlanetRadius(), 0, 'f', 0);
}

void configureTime(QCommandLineParser& parser) {
    parser.addOption({"frames", "Rendered frames to time on the frame clock (0-100).", "N", "4"});
    parser.addOption({"interval", "Milliseconds between those frames (0-1000).", "MS", "20"});
}

int runTime(const QCommandLineParser& parser, Output& out) {
    const int frames = static_cast<int>(parseInteger(parser, "frames", 0, 100));
    const int interval = static_cast<int>(parseInteger(parser, "interval", 0, 1000));
    showClocks(out, frames, interval);
    return 0;
}

const Register timeCommand{Command{"time", "The library's clocks and its frame clock.",
                                   configureTime, runTime}};
const Register tourStep{TourStep{26, "Clocks: time since load, wall clock, frame clock",
                                 [](Output& out) { showClocks(out, 3, 20); }}};

}  // namespace
}  // namespace mirel::tool
