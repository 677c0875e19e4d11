// mirel status: what status words mean, and the messages of the library's own subsystem.
#include <QJsonArray>

#include "base/status/statuscode.h"
#include "base/status/statussubsys.h"
#include "command.h"

namespace mirel::tool {
namespace {

StatusCode parseWord(const QString& text) {
    bool ok = false;
    const qulonglong value = text.startsWith("0x", Qt::CaseInsensitive)
                                 ? text.mid(2).toULongLong(&ok, 16)
                                 : text.toULongLong(&ok, 10);
    if (!ok || value > 0xFFFFFFFFull) {
        throw UsageError(
            QStringLiteral("'%1' is not a status word (0x followed by up to 8 hexadecimal digits, "
                           "or a decimal number below 4294967296)")
                .arg(text));
    }
    return static_cast<StatusCode>(value);
}

// The library's generic severity names, as it gives them for a subsystem nobody registered.
// Subsystem 0 cannot be asked: its severities never come back.
QString genericSeverity(StatusCode status) {
    for (unsigned subsystem = 0x3fff; subsystem > 0; --subsystem) {
        const StatusCode probe = makeStatusCode(statusSeverity(status), subsystem, 0);
        if (StatusGetSubsysName(probe) == QStringLiteral("Invalid")) {
            return StatusGetSeverityString(probe);
        }
    }
    return QString();
}

QJsonObject decode(StatusCode status) {
    const unsigned subsystem = statusSubsystem(status);
    const QString name = StatusGetSubsysName(status);
    const QString message = StatusGetErrorString(status);
    QString severity, printable;
    if (subsystem == 0) {
        // The library's own texts for this word would never return: compose the same line
        // from the parts that do, substitution by substitution as the library does. Its
        // fifth substitution changes nothing and is left out.
        severity = genericSeverity(status);
        printable = QStringLiteral("%1|%2|Error code %3 (0x%4)")
                        .arg(severity)
                        .arg(name)
                        .arg(message)
                        .arg(statusCode(status), 5);
    } else {
        severity = StatusGetSeverityString(status);
        printable = StatusGetPrintable(status);
    }
    return QJsonObject{
        {"word", QStringLiteral("0x%1").arg(status, 8, 16, QChar('0'))},
        {"severity", static_cast<int>(statusSeverity(status))},
        {"severityName", severity},
        {"subsystem", static_cast<int>(subsystem)},
        {"subsystemName", name},
        {"code", static_cast<int>(statusCode(status))},
        {"message", message.isNull() ? QJsonValue() : QJsonValue(message)},
        {"printable", printable},
        {"composedByTool", subsystem == 0},
    };
}

void printDecoded(Output& out, const QJsonObject& d) {
    QTextStream& t = out.text();
    t << d["word"].toString() << "  " << d["printable"].toString() << "\n";
    t << QStringLiteral("  severity   %1 (%2)\n").arg(d["severity"].toInt()).arg(d["severityName"].toString());
    t << QStringLiteral("  subsystem  %1 (%2)\n").arg(d["subsystem"].toInt()).arg(d["subsystemName"].toString());
    t << QStringLiteral("  code       %1 (0x%2)\n").arg(d["code"].toInt()).arg(d["code"].toInt(), 0, 16);
    t << QStringLiteral("  message    %1\n")
             .arg(d["message"].isNull() ? QStringLiteral("(none)") : d["message"].toString());
}

// Every word of "APP" that has a message.
QJsonArray appMessages() {
    QJsonArray list;
    const StatusCode candidates[] = {
        status::kInvalidArgument,     status::kObjectAlreadyActive,    status::kCacheNodeNotValid,
        status::kNoReferenceHeld,     status::kDecodeFailed,           status::kNoMoreMemory,
        status::kFileNotFound,        status::kFileOpenFailed,         status::kIOFailed,
        status::kNoSocketsAvailable,  status::kHostnameNotValid,       status::kConnectFailed,
        status::kSocketNotConnected,  status::kSocketReceiveTimedOut,  status::kReceivedInvalidResponse,
        status::kTextureAlreadyDefined, status::kObjectAlreadyExists,  status::kEntryIsDefunct,
        status::kNotImplemented,      status::kUrlNotFound,            status::kUrlNotValid,
        status::kReadPastEndOfFile,   status::kActionInProgress,       status::kActionAlreadyQueued,
    };
    for (StatusCode w : candidates) {
        list.append(QJsonObject{{"word", QStringLiteral("0x%1").arg(w, 8, 16, QChar('0'))},
                                {"message", StatusGetErrorString(w)}});
    }
    return list;
}

void listApp(Output& out) {
    const QJsonArray list = appMessages();
    out.data = QJsonObject{{"subsystem", 0}, {"subsystemName", StatusGetSubsysName(0)},
                           {"messages", list}};
    if (out.json()) return;
    out.text() << QStringLiteral("Subsystem 0 (%1), %2 messages:\n")
                      .arg(StatusGetSubsysName(0))
                      .arg(list.size());
    for (const auto& v : list) {
        const QJsonObject o = v.toObject();
        out.text() << "  " << o["word"].toString() << "  " << o["message"].toString() << "\n";
    }
}

int runStatus(const QCommandLineParser& parser, Output& out) {
    const QStringList words = parser.positionalArguments();
    if (words.isEmpty()) {
        listApp(out);
        return 0;
    }
    QList<StatusCode> parsed;
    for (const QString& w : words) parsed.append(parseWord(w));
    QJsonArray decoded;
    for (StatusCode s : parsed) {
        const QJsonObject d = decode(s);
        decoded.append(d);
        if (!out.json()) printDecoded(out, d);
    }
    out.data = QJsonObject{{"words", decoded}};
    return 0;
}

void configureStatus(QCommandLineParser& parser) {
    parser.addPositionalArgument(
        "WORD", "Status words to decode, 0x-hexadecimal or decimal. Without any, lists the "
                "messages of the library's own subsystem.",
        "[WORD...]");
}

const Register statusCommand{Command{"status", "Decode status words: severity, subsystem, code, message.",
                                     configureStatus, runStatus, true}};

const Register tourStep{TourStep{20, "Status codes: decoding status words", [](Output& out) {
                                     QJsonArray decoded;
                                     for (StatusCode s : {0xC0000006u, 0x40000081u, 0x80000003u,
                                                          0xC0050001u}) {
                                         const QJsonObject d = decode(s);
                                         decoded.append(d);
                                         if (!out.json()) printDecoded(out, d);
                                     }
                                     out.data = QJsonObject{{"words", decoded}};
                                 }}};

}  // namespace
}  // namespace mirel::tool
