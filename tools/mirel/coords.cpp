// mirel coords: texts read as coordinate pairs, latitudes, longitudes or single angles, and
// the pairs that the published pair pattern finds in a file.
#include <QFile>
#include <QJsonArray>
#include <QRegularExpression>

#include <cstdio>

#include "base/coords/latlngpair.h"
#include "base/coords/latlngvalue.h"
#include "command.h"

namespace mirel::tool {
namespace {

QString number(double v) { return QString::number(v, 'g', 12); }

// The form that read the text, named by the first attempt that succeeds in the library's
// own order.
QString pairNotation(const QString& text) {
    static const char* const kNames[] = {"DA", "DB", "SB"};
    for (int comma = 0; comma < 2; ++comma) {
        LatLngPair p;
        for (int form = 0; form < 3; ++form) {
            const bool hit = form == 0 ? p.TryDA(text, comma) : form == 1 ? p.TryDB(text, comma) : p.TrySB(text, comma);
            if (hit) return QStringLiteral("%1, decimal %2").arg(kNames[form], comma ? "comma" : "point");
        }
    }
    return QString();
}

template <class Single>
QString singleNotation(const QString& text) {
    Single s;
    return s.TryDA(text) ? QStringLiteral("DA") : s.TryDB(text) ? QStringLiteral("DB") : QStringLiteral("SB");
}

QString valueNotation(const QString& text) {
    for (int comma = 0; comma < 2; ++comma) {
        LatLngValue v;
        const QString mark = comma ? QStringLiteral(", decimal comma") : QStringLiteral(", decimal point");
        if (v.TryDMSF(text, comma)) return QStringLiteral("DMSF") + mark;
        if (v.TryDMF(text, comma)) return QStringLiteral("DMF") + mark;
        if (v.TryDF(text, comma)) return QStringLiteral("DF") + mark;
    }
    return QString();
}

// A pair, else a latitude, a longitude, a single angle.
QJsonObject classify(const QString& text) {
    QJsonObject r{{"text", text}};
    double a = 0, b = 0;
    if (LatLngPair::Parse(text, &a, &b)) {
        r["form"] = "pair";
        r["notation"] = pairNotation(text);
        r["lat"] = a;
        r["lng"] = b;
    } else if (LatValue::Parse(text, &a)) {
        r["form"] = "latitude";
        r["notation"] = singleNotation<LatValue>(text);
        r["value"] = a;
    } else if (LngValue::Parse(text, &a)) {
        r["form"] = "longitude";
        r["notation"] = singleNotation<LngValue>(text);
        r["value"] = a;
    } else if (LatLngValue::Parse(text, &a)) {
        r["form"] = "value";
        r["notation"] = valueNotation(text);
        r["value"] = a;
    } else {
        r["form"] = QJsonValue();
    }
    return r;
}

QString describe(const QJsonObject& r) {
    const QString form = r["form"].toString();
    if (form.isEmpty()) return QStringLiteral("no coordinate");
    const QString numbers = form == "pair" ? QStringLiteral("lat %1  lng %2")
                                                 .arg(number(r["lat"].toDouble()), number(r["lng"].toDouble()))
                                           : number(r["value"].toDouble());
    return QStringLiteral("%1 (%2)  %3").arg(form, r["notation"].toString(), numbers);
}

QString readInput(const QString& name) {
    QFile file;
    const bool opened = name == "-" ? file.open(stdin, QIODevice::ReadOnly) : (file.setFileName(name),
                                                                            file.open(QIODevice::ReadOnly));
    if (!opened) return QString();
    const QByteArray bytes = file.readAll();
    return QString::fromUtf8(bytes.isNull() ? QByteArray("") : bytes);
}

int runFind(const QString& name, Output& out) {
    QFile probe(name);
    if (name != "-" && !probe.exists()) {
        std::fprintf(stderr, "mirel: coords: cannot read '%s': no such file\n", qPrintable(name));
        return 1;
    }
    const QString text = readInput(name);
    if (text.isNull()) {
        std::fprintf(stderr, "mirel: coords: cannot read '%s'\n", qPrintable(name));
        return 1;
    }
    static const QRegularExpression pattern(LatLngPair::kREPattern);
    QJsonArray found;
    int parsed = 0;
    for (auto it = pattern.globalMatch(text); it.hasNext();) {
        const QRegularExpressionMatch m = it.next();
        const qsizetype at = m.capturedStart(1);
        const qsizetype lineStart = text.lastIndexOf(QLatin1Char('\n'), at - 1) + 1;
        const QString match = m.captured(1);
        QJsonObject r{{"line", static_cast<int>(text.left(at).count(QLatin1Char('\n')) + 1)},
                      {"column", static_cast<int>(at - lineStart + 1)},
                      {"match", match}};
        double lat = 0, lng = 0;
        if (LatLngPair::Parse(match, &lat, &lng)) {
            ++parsed;
            r["notation"] = pairNotation(match);
            r["lat"] = lat;
            r["lng"] = lng;
        }
        found.append(r);
        if (!out.json()) {
            QString shown = match;
            shown.replace(QLatin1Char('\n'), QStringLiteral("\\n"));
            out.text() << QStringLiteral("%1:%2  \"%3\"  ").arg(r["line"].toInt()).arg(r["column"].toInt()).arg(shown)
                       << (r.contains("lat") ? QStringLiteral("lat %1  lng %2 (%3)")
                                                   .arg(number(lat), number(lng), r["notation"].toString())
                                             : QStringLiteral("does not parse as a pair"))
                       << "\n";
        }
    }
    out.data = QJsonObject{{"file", name}, {"matches", found}, {"parsed", parsed}};
    if (!out.json()) out.text() << QStringLiteral("%1 matches, %2 parse as pairs\n").arg(found.size()).arg(parsed);
    return parsed > 0 ? 0 : 1;
}

void configureCoords(QCommandLineParser& parser) {
    parser.addPositionalArgument("TEXT", "Texts to read, each as a pair, else a latitude, a longitude "
                                         "or a single angle (quote texts with blanks).",
                                 "[TEXT...]");
    parser.addOption({"find", "List the pairs that the published pair pattern finds in FILE ('-' for "
                              "standard input), with line and column, and parse each.",
                      "FILE"});
}

int runCoords(const QCommandLineParser& parser, Output& out) {
    const QStringList args = parser.positionalArguments();
    if (parser.isSet("find")) {
        if (!args.isEmpty()) throw UsageError(QStringLiteral("give either TEXT... or --find FILE, not both"));
        return runFind(parser.value("find"), out);
    }
    if (args.isEmpty()) throw UsageError(QStringLiteral("give at least one TEXT, or --find FILE"));
    QJsonArray results;
    int failed = 0;
    for (const QString& text : args) {
        const QJsonObject r = classify(text);
        if (r["form"].isNull()) ++failed;
        results.append(r);
        if (!out.json()) out.text() << QStringLiteral("\"%1\"  %2\n").arg(text, describe(r));
    }
    out.data = QJsonObject{{"results", results}, {"unparsed", failed}};
    // Every text is shown; the status says whether any of them was no coordinate.
    return failed > 0 ? 1 : 0;
}

const Register coordsCommand{Command{"coords", "Read coordinates from text, or find pairs in a file.",
                                     configureCoords, runCoords, true}};
const Register tourStep{TourStep{30, "Coordinates: pairs, latitudes and angles in every notation", [](Output& out) {
                                     const char* const samples[] = {
                                         "37.42 N 122.08 W", "W 122.08, N 37.42",
                                         "37\u00b0 25' 19.2'' N 122\u00b0 5' 2.4'' W", "-37.5, 120.25",
                                         "37,5 120,25", "S 33.9", "37\u00b0 25,32'", "100 N 20 E"};
                                     QJsonArray results;
                                     for (const char* s : samples) {
                                         const QJsonObject r = classify(QString::fromUtf8(s));
                                         results.append(r);
                                         if (!out.json()) {
                                             out.text() << QStringLiteral("  \"%1\"  %2\n")
                                                               .arg(QString::fromUtf8(s), describe(r));
                                         }
                                     }
                                     out.data = QJsonObject{{"results", results}};
                                 }}};

}  // namespace
}  // namespace mirel::tool
