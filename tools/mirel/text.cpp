// mirel text: a text as the library's conversions see it (UTF-16 units, wide characters,
// the UTF-8 of Utf8OStream, percent encoding), case-insensitive comparison and the log.
#include <QJsonArray>

#include "base/foundation/errorlog.h"
#include "base/foundation/textconversion.h"
#include "base/foundation/utf8ostream.h"
#include "base/status/statussubsys.h"
#include "command.h"

namespace mirel::tool {
namespace {

QString hex(unsigned value, int width) { return QString::number(value, 16).rightJustified(width, '0'); }

// "d83d,de00,41": raw UTF-16 units, so that unpaired surrogates can be typed.
QString parseUnits(const QString& list) {
    QString s;
    for (const QString& part : list.split(',', Qt::SkipEmptyParts)) {
        bool ok = false;
        const uint u = part.trimmed().toUInt(&ok, 16);
        if (!ok || u > 0xFFFF) {
            throw UsageError(QStringLiteral("--units: '%1' is not a 16-bit hexadecimal unit").arg(part));
        }
        s.append(QChar(static_cast<char16_t>(u)));
    }
    return s;
}

void describe(Output& out, const QString& text, const QString* other, bool log) {
    QJsonArray utf16, wide, utf8;
    QStringList utf16Shown, wideShown, utf8Shown;
    for (QChar c : text) {
        utf16.append(c.unicode());
        utf16Shown << hex(c.unicode(), 4);
    }
    const std::wstring w = toWString(text);
    for (wchar_t c : w) {
        wide.append(static_cast<double>(static_cast<std::uint32_t>(c)));
        wideShown << hex(static_cast<std::uint32_t>(c), 4);
    }
    Utf8OStream stream;
    stream << text;
    QString percent;
    for (int i = 0; i < stream.length(); ++i) {
        const auto b = static_cast<unsigned char>(stream.data()[i]);
        utf8.append(b);
        utf8Shown << hex(b, 2);
        percent += QString::fromLatin1(hexEncode(stream.data()[i]));
    }
    const bool roundTrip = toQString(w.c_str()) == text.left(text.indexOf(QChar(0)));
    out.data = QJsonObject{{"text", text},         {"utf16", utf16},
                           {"wide", wide},         {"wideLength", static_cast<int>(std::wcslen(w.c_str()))},
                           {"utf8", utf8},         {"percent", percent},
                           {"qtUtf8Agrees", QByteArray(stream.data(), stream.length()) == text.toUtf8()},
                           {"roundTrip", roundTrip}};
    int order = 0;
    if (other != nullptr) {
        order = wcsicmp(w.c_str(), toWString(*other).c_str());
        out.data["compareWith"] = *other;
        out.data["wcsicmp"] = order;
    }
    if (log) {
        ErrorLog(LM_NOTICE, text + "\n");
        out.data["logged"] = true;
    }
    if (out.json()) return;
    QTextStream& t = out.text();
    t << QStringLiteral("UTF-16 units  %1 (%2)\n").arg(utf16Shown.join(' ')).arg(text.size());
    t << QStringLiteral("wide (UTF-32) %1 (%2, %3 before the first 0)\n")
             .arg(wideShown.join(' '))
             .arg(w.size())
             .arg(std::wcslen(w.c_str()));
    t << QStringLiteral("UTF-8 stream  %1 (%2 bytes%3)\n")
             .arg(utf8Shown.join(' '))
             .arg(stream.length())
             .arg(out.data["qtUtf8Agrees"].toBool() ? ", as QString::toUtf8"
                                                     : ", surrogates one by one, unlike QString::toUtf8");
    t << QStringLiteral("percent       %1\n").arg(percent);
    if (other != nullptr) {
        t << QStringLiteral("wcsicmp       %1 against \"%2\"\n").arg(order).arg(*other);
    }
}

void configureText(QCommandLineParser& parser) {
    parser.addPositionalArgument("TEXT", "The text to convert.", "[TEXT]");
    parser.addOption({"units", "The text as UTF-16 units instead, hexadecimal, comma-separated "
                               "(d83d,de00 or a lone dc00).", "LIST"});
    parser.addOption({"compare", "Compare with OTHER ignoring case (wcsicmp): -1, 0 or 1.", "OTHER"});
    parser.addOption({"log", "Also write the text as a log line (ErrorLog) to standard error."});
}

int runText(const QCommandLineParser& parser, Output& out) {
    const QStringList args = parser.positionalArguments();
    QString text;
    if (parser.isSet("units")) {
        if (!args.isEmpty()) throw UsageError(QStringLiteral("give either TEXT or --units, not both"));
        text = parseUnits(parser.value("units"));
    } else {
        if (args.size() != 1) throw UsageError(QStringLiteral("give one TEXT (quote it if it has blanks)"));
        text = args.first();
    }
    const QString other = parser.value("compare");
    describe(out, text, parser.isSet("compare") ? &other : nullptr, parser.isSet("log"));
    return 0;
}

const Register textCommand{Command{"text", "A text through the library's conversions.",
                                   configureText, runText, true}};
const Register tourStep{TourStep{22, "Text: UTF-16, UTF-32 and UTF-8 of one text", [](Output& out) {
                                     const QString other = QStringLiteral("GLOBE \u00e9 \U0001F30D");
                                     describe(out, QStringLiteral("globe \u00e9 \U0001F30D"), &other,
                                              false);
                                 }}};

}  // namespace
}  // namespace mirel::tool
