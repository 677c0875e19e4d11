// mirel sysinfo: what the library knows of this machine and of the user's folders.
#include <QCoreApplication>
#include <QJsonArray>

#include "base/system/system.h"
#include "command.h"

namespace mirel::tool {
namespace {

QString guidText(const GUID& guid) {
    QString text;
    for (int i = 0; i < 16; ++i) {
        if (i == 8) text += '-';
        text += QStringLiteral("%1").arg(guid.data[i], 2, 16, QChar('0'));
    }
    return text;
}

void describe(Output& out) {
    System::OSVersion os;
    int major, minor, bugfix, build;
    System::getOSVersion(os, major, minor, bugfix, build);
    int avail, limit, used, paged, total, total4;
    System::getAvailableMemoryMB(avail, limit);
    System::getUsedMemoryMB(used, paged);
    System::getTotalMemoryMB(total, total4);
    const double mhz = System::getProcessorClockSpeed() / 1e6;
    const unsigned long cpuType = System::getProcessorType();
    const QString guid = guidText(System::getGUID());
    const QStringList preferred = System::getPreferredLocaleList();

    out.data = QJsonObject{
        {"os", QJsonObject{{"family", static_cast<int>(os)},
                           {"name", System::getOSName(os)},
                           {"version", QJsonArray{major, minor, bugfix, build}},
                           {"text", System::getOSVersionString()}}},
        {"processor", QJsonObject{{"type", static_cast<double>(cpuType)},
                                  {"count", System::getNumProcessors()},
                                  {"clockMHz", mhz},
                                  {"mmx", System::supportsIntelMMX()},
                                  {"simd", System::supportsIntelSIMD()}}},
        {"memoryMB", QJsonObject{{"available", avail}, {"limit", limit}, {"used", used},
                                 {"paged", paged}, {"total", total}, {"total4", total4}}},
        {"guid", guid},
        {"folders", QJsonObject{{"install", System::getInstallPath()},
                                {"application", System::getAppDirectory()},
                                {"cache", System::getCacheDirectory()},
                                {"documents", System::getMyDocumentsDirectory()},
                                {"temp", System::getTempDirectory()}}},
        {"locale", QJsonObject{{"current", System::getCurrentLocale()},
                               {"preferred", QJsonArray::fromStringList(preferred)}}},
        // Kept for scripts written against the first form of this command.
        {"processors", System::getNumProcessors()},
    };
    if (out.json()) return;
    QTextStream& t = out.text();
    t << QStringLiteral("system:         %1\n").arg(System::getOSVersionString());
    t << QStringLiteral("processor:      type %1, %2 online, %3 MHz\n")
             .arg(cpuType)
             .arg(System::getNumProcessors())
             .arg(mhz, 0, 'f', 0);
    t << QStringLiteral("intel mmx/simd: %1/%2\n")
             .arg(System::supportsIntelMMX() ? "yes" : "no", System::supportsIntelSIMD() ? "yes" : "no");
    t << QStringLiteral("memory (MB):    available %1 (limit %2), used %3, paged %4, total %5 "
                        "(x4 %6)\n")
             .arg(avail).arg(limit).arg(used).arg(paged).arg(total).arg(total4);
    t << QStringLiteral("guid:           %1\n").arg(guid);
    t << QStringLiteral("install:        %1\n").arg(System::getInstallPath());
    t << QStringLiteral("application:    %1\n").arg(System::getAppDirectory());
    t << QStringLiteral("cache:          %1\n").arg(System::getCacheDirectory());
    t << QStringLiteral("documents:      %1\n").arg(System::getMyDocumentsDirectory());
    t << QStringLiteral("temp:           %1\n").arg(System::getTempDirectory());
    t << QStringLiteral("locale:         %1 (preferred: %2)\n")
             .arg(System::getCurrentLocale(), preferred.join(", "));
}

void configure(QCommandLineParser& parser) {
    parser.addOption({"install-path", "The installation folder to report (default: the tool's).",
                      "DIR"});
}

int run(const QCommandLineParser& parser, Output& out) {
    System::setInstallPath(parser.isSet("install-path") ? parser.value("install-path")
                                                        : QCoreApplication::applicationDirPath());
    describe(out);
    return 0;
}

const Register sysinfo{Command{"sysinfo",
                               "This machine and the user's folders as the library sees them.",
                               configure, run}};
const Register tourStep{TourStep{0, "System: this machine", describe}};

}  // namespace
}  // namespace mirel::tool
