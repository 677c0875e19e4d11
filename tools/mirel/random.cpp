// mirel random: the library's reproducible random sequences.
#include <QJsonArray>

#include <climits>

#include "base/system/system.h"
#include "command.h"

namespace mirel::tool {
namespace {

// Integers from random(lo, hi) when `range`, else floats from randf().
void draw(Output& out, unsigned int seed, int count, bool range, int lo, int hi) {
    System::seed(seed);
    QJsonArray values;
    QStringList shown;
    for (int i = 0; i < count; ++i) {
        if (range) {
            const int v = System::random(lo, hi);
            values.append(v);
            shown << QString::number(v);
        } else {
            const double v = System::randf();
            values.append(v);
            shown << QString::number(v, 'f', 6);
        }
    }
    out.data = QJsonObject{{"seed", static_cast<double>(seed)},
                           {"kind", range ? "random" : "randf"},
                           {"values", values}};
    if (range) {
        out.data["lo"] = lo;
        out.data["hi"] = hi;
    }
    if (out.json()) return;
    if (range) {
        out.text() << QStringLiteral("seed %1, random(%2, %3) x %4:\n").arg(seed).arg(lo).arg(hi).arg(count);
    } else {
        out.text() << QStringLiteral("seed %1, randf() x %2:\n").arg(seed).arg(count);
    }
    out.text() << shown.join(' ') << "\n";
}

int toInt(const QString& text, const char* what) {
    bool ok = false;
    const int v = text.toInt(&ok);
    if (!ok) {
        throw UsageError(QStringLiteral("%1 must be a whole number from %2 to %3, not '%4'")
                             .arg(what)
                             .arg(INT_MIN)
                             .arg(INT_MAX)
                             .arg(text));
    }
    return v;
}

void configureRandom(QCommandLineParser& parser) {
    parser.addOption({"seed", "Seed (0-4294967295); 0 seeds as 3141592 does.", "N", "0"});
    parser.addOption({"count", "How many values (1-100000).", "K", "10"});
    parser.addOption({"range", "Integers from LO up to, not including, HI (give HI after LO, "
                               "after -- when negative: --range -10 -- -3); without it, floats "
                               "in [0, 1).", "LO"});
    parser.addPositionalArgument("HI", "The upper bound that follows --range LO.", "[HI]");
}

int runRandom(const QCommandLineParser& parser, Output& out) {
    const auto seed = static_cast<unsigned int>(parseInteger(parser, "seed", 0, 4294967295L));
    const int count = static_cast<int>(parseInteger(parser, "count", 1, 100000));
    const QStringList rest = parser.positionalArguments();
    if (!parser.isSet("range")) {
        if (!rest.isEmpty()) throw UsageError(QStringLiteral("unexpected argument '%1'").arg(rest.first()));
        draw(out, seed, count, false, 0, 0);
        return 0;
    }
    if (rest.size() != 1) throw UsageError(QStringLiteral("--range takes two numbers: --range LO HI"));
    const int lo = toInt(parser.value("range"), "LO");
    const int hi = toInt(rest.first(), "HI");
    // The library answers 0 for a reversed range without drawing; a person asked for
    // something else.
    if (hi < lo) throw UsageError(QStringLiteral("--range %1 %2: HI must not be below LO").arg(lo).arg(hi));
    draw(out, seed, count, true, lo, hi);
    return 0;
}

const Register randomCommand{Command{"random", "Reproducible random sequences from a seed.",
                                     configureRandom, runRandom, true}};
const Register tourStep{TourStep{28, "Random numbers: the same seed, the same sequence",
                                 [](Output& out) { draw(out, 42, 12, true, 1, 7); }}};

}  // namespace
}  // namespace mirel::tool
