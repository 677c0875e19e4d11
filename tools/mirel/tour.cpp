// mirel tour: every service of the library at work on built-in data, one step each.
#include <QElapsedTimer>

#include <algorithm>

#include "command.h"

namespace mirel::tool {
namespace {

int runTour(const QCommandLineParser&, Output& out) {
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
                            nullptr, runTour}};

}  // namespace
}  // namespace mirel::tool
