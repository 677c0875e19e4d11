// mirel date: calendar date-times read from their XML Schema text forms, with durations
// added, the duration between two of them, and the same instant in another zone.
#include <QJsonArray>

#include <cstdio>

#include "base/datetime/datetimetext.h"
#include "command.h"

namespace mirel::tool {
namespace {

// A refused text: the library's own message goes to standard error and the command exits 1.
struct Refused {
    QString message;
};

DateTime read(const QString& text) {
    DateTime d;
    try {
        text >> d;
    } catch (const QString& message) {
        throw Refused{message};
    }
    return d;
}

int number(const QString& text, const char* what) {
    bool ok = false;
    const int v = text.toInt(&ok);
    if (!ok) throw UsageError(QStringLiteral("%1: '%2' is not a whole number").arg(what, text));
    return v;
}

QString zone(const DateTime& d) {
    if (d.tzHours == 0 && d.tzMinutes == 0) return QStringLiteral("UTC");
    return QStringLiteral("%1 h %2 min").arg(d.tzHours).arg(d.tzMinutes);
}

QJsonObject fields(const DateTime& d) {
    DateTime utc(d);
    utc.normalize();
    return QJsonObject{{"year", d.year},         {"month", d.month},   {"day", d.day},
                       {"hour", d.hour},         {"minute", d.minute}, {"second", d.second},
                       {"tzHours", d.tzHours},   {"tzMinutes", d.tzMinutes},
                       {"text", d.toString()},   {"utc", utc.toString()},
                       {"seconds", static_cast<qint64>(d.toSeconds())}};
}

void showFields(QTextStream& t, const QString& title, const DateTime& d) {
    DateTime utc(d);
    utc.normalize();
    t << title << "\n";
    t << QStringLiteral("  fields   year %1, month %2, day %3, %4:%5:%6, zone %7\n")
             .arg(d.year)
             .arg(d.month)
             .arg(d.day)
             .arg(d.hour, 2, 10, QChar('0'))
             .arg(d.minute, 2, 10, QChar('0'))
             .arg(d.second, 2, 10, QChar('0'))
             .arg(zone(d));
    t << "  written  " << d.toString() << "\n";
    t << "  in UTC   " << utc.toString() << "\n";
    t << "  seconds  " << d.toSeconds() << "\n";
}

QJsonObject durationFields(const DateTime& d) {
    return QJsonObject{{"years", d.year}, {"months", d.month},   {"days", d.day},
                       {"hours", d.hour}, {"minutes", d.minute}, {"seconds", d.second}};
}

QString durationText(const DateTime& d) {
    return QStringLiteral("%1 years, %2 months, %3 days, %4:%5:%6")
        .arg(d.year)
        .arg(d.month)
        .arg(d.day)
        .arg(d.hour, 2, 10, QChar('0'))
        .arg(d.minute, 2, 10, QChar('0'))
        .arg(d.second, 2, 10, QChar('0'));
}

int parseTexts(const QStringList& texts, Output& out) {
    if (texts.isEmpty()) throw UsageError(QStringLiteral("parse needs at least one TEXT"));
    QJsonArray dates;
    int status = 0;
    for (const QString& text : texts) {
        try {
            const DateTime d = read(text);
            QJsonObject entry = fields(d);
            entry["input"] = text;
            dates.append(entry);
            if (!out.json()) showFields(out.text(), text, d);
        } catch (const Refused& r) {
            dates.append(QJsonObject{{"input", text}, {"error", r.message}});
            out.text().flush();
            std::fprintf(stderr, "mirel: date: %s\n", qPrintable(r.message));
            status = 1;
        }
    }
    out.data["dates"] = dates;
    return status;
}

int addDuration(const QStringList& args, Output& out) {
    if (args.size() != 7) throw UsageError(QStringLiteral("add takes TEXT Y M D h m s"));
    const char* names[] = {"years", "months", "days", "hours", "minutes", "seconds"};
    int parts[6];
    for (int i = 0; i < 6; ++i) parts[i] = number(args[i + 1], names[i]);
    const DateTime start = read(args[0]);
    DateTime d(start);
    d.add(parts[0], parts[1], parts[2], parts[3], parts[4], parts[5]);
    QJsonObject duration;
    for (int i = 0; i < 6; ++i) duration[names[i]] = parts[i];
    out.data = QJsonObject{{"start", fields(start)}, {"add", duration}, {"result", fields(d)}};
    if (!out.json()) {
        out.text() << start.toString() << " + " << parts[0] << "y " << parts[1] << "m " << parts[2] << "d "
                   << parts[3] << "h " << parts[4] << "min " << parts[5] << "s = " << d.toString() << "\n";
    }
    return 0;
}

int difference(const QStringList& args, Output& out) {
    if (args.size() != 2) throw UsageError(QStringLiteral("diff takes two texts, A and B"));
    const DateTime a = read(args[0]), b = read(args[1]);
    DateTime d(a);
    d -= b;
    const long long seconds = a.toSeconds() - b.toSeconds();
    out.data = QJsonObject{{"a", fields(a)},
                           {"b", fields(b)},
                           {"seconds", static_cast<qint64>(seconds)},
                           {"duration", durationFields(d)},
                           {"equal", a == b},
                           {"later", a > b}};
    if (!out.json()) {
        QTextStream& t = out.text();
        t << "A - B = " << durationText(d) << " (" << seconds << " s)\n";
        t << "A " << (a == b ? "is the same instant as" : (a > b ? "is later than" : "is earlier than")) << " B\n";
    }
    return 0;
}

int rezone(const QStringList& args, Output& out) {
    if (args.size() != 3) throw UsageError(QStringLiteral("zone takes TEXT H M"));
    const int h = number(args[1], "hours"), m = number(args[2], "minutes");
    const DateTime start = read(args[0]);
    DateTime d(start);
    d.adjustTimeZone(h, m);
    out.data = QJsonObject{{"start", fields(start)}, {"result", fields(d)}, {"sameInstant", d == start}};
    if (!out.json()) out.text() << start.toString() << " at " << zone(d) << " is " << d.toString() << "\n";
    return 0;
}

void configureDate(QCommandLineParser& parser) {
    parser.addPositionalArgument("ACTION",
                                 "parse TEXT...: the fields, the text written back, the UTC form and "
                                 "the seconds on the type's own scale (0000-01-01T00:00:00Z is 86400); "
                                 "add TEXT Y M D h m s: a duration added; diff A B: the duration A - B; "
                                 "zone TEXT H M: the same instant at another zone offset. Put -- before "
                                 "arguments that start with '-' (-- 2006-01-31 0 -1 0 0 0 0).",
                                 "ACTION ARGS...");
}

int runDate(const QCommandLineParser& parser, Output& out) {
    QStringList args = parser.positionalArguments();
    if (args.isEmpty()) throw UsageError(QStringLiteral("give an action: parse, add, diff or zone"));
    const QString action = args.takeFirst();
    try {
        if (action == "parse") return parseTexts(args, out);
        if (action == "add") return addDuration(args, out);
        if (action == "diff") return difference(args, out);
        if (action == "zone") return rezone(args, out);
    } catch (const Refused& r) {
        std::fprintf(stderr, "mirel: date: %s\n", qPrintable(r.message));
        return 1;
    }
    throw UsageError(QStringLiteral("unknown action '%1' (parse, add, diff or zone)").arg(action));
}

const Register dateCommand{Command{"date", "Date-times in their XML Schema text forms, with durations and zones.",
                                   configureDate, runDate, true}};

const Register tourStep{TourStep{24, "Date-time: a month after Jan 31, a duration, a zone", [](Output& out) {
                                     QJsonArray steps;
                                     for (const QStringList& args :
                                          {QStringList{"2006-01-31T10:00:00+02:00", "0", "1", "0", "0", "0", "0"},
                                           QStringList{"2004-01-31", "0", "1", "0", "0", "0", "0"}}) {
                                         addDuration(args, out);
                                         steps.append(out.data);
                                     }
                                     difference({"2007-03-01T12:30:00Z", "2006-01-31T10:00:00+02:00"}, out);
                                     steps.append(out.data);
                                     rezone({"2006-12-31T20:00:00Z", "5", "30"}, out);
                                     steps.append(out.data);
                                     out.data = QJsonObject{{"steps", steps}};
                                 }}};

}  // namespace
}  // namespace mirel::tool
