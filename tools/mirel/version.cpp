// mirel version: the application's identity and where its settings live on this machine.
#include <QSettings>

#include <memory>

#include "base/version/versioninfo.h"
#include "command.h"

namespace mirel::tool {
namespace {

QString fromWide(const std::wstring& s) { return QString::fromStdWString(s); }

QString fileOf(QSettings* made) {
    std::unique_ptr<QSettings> s(made);  // ours to delete
    return s->fileName();
}

void identity(Output& out) {
    const QJsonObject files{{"userCommon", fileOf(VersionInfo::createUserCommonSettings())},
                            {"userApp", fileOf(VersionInfo::createUserAppSettings())},
                            {"globalCommon", fileOf(VersionInfo::createGlobalCommonSettings())},
                            {"globalApp", fileOf(VersionInfo::createGlobalAppSettings())}};
    const int types[] = {0, 1, 2, 3, 4, 5, 255};
    QJsonObject ids;
    for (int type : types) {
        ids[QString::number(type)] = VersionInfo::getIDFromType(static_cast<VersionInfo::AppType>(type));
    }
    out.data["appName"] = fromWide(VersionInfo::getAppNameW());
    out.data["company"] = fromWide(VersionInfo::getAppCompanyW());
    out.data["version"] = fromWide(VersionInfo::getAppVersionW());
    out.data["versionTag"] = fromWide(VersionInfo::getAppVersionTagW());
    out.data["appID"] = fromWide(VersionInfo::getAppIDW());
    out.data["appType"] = VersionInfo::getAppType();
    out.data["appGroup"] = VersionInfo::getAppGroup();
    out.data["controlType"] = VersionInfo::isControlType();
    out.data["commonSettingsRegistryPath"] = VersionInfo::getCommonSettingsRegistryPath();
    out.data["appSettingsRegistryPath"] = VersionInfo::getAppSettingsRegistryPath();
    out.data["settingsFiles"] = files;
    out.data["idsByType"] = ids;
    if (out.json()) return;
    QTextStream& t = out.text();
    const QJsonObject& d = out.data;
    t << QStringLiteral("application     %1\n").arg(d["appName"].toString());
    t << QStringLiteral("company         %1\n").arg(d["company"].toString());
    t << QStringLiteral("version         %1 (%2)\n").arg(d["version"].toString(), d["versionTag"].toString());
    t << QStringLiteral("application ID  %1\n").arg(d["appID"].toString());
    t << QStringLiteral("type            %1, group %2%3\n")
             .arg(d["appType"].toInt())
             .arg(d["appGroup"].toInt())
             .arg(d["controlType"].toBool() ? ", control type" : "");
    t << QStringLiteral("registry paths  %1\n                %2\n")
             .arg(d["commonSettingsRegistryPath"].toString(), d["appSettingsRegistryPath"].toString());
    t << "settings files\n";
    t << QStringLiteral("  user, common    %1\n").arg(files["userCommon"].toString());
    t << QStringLiteral("  user, app       %1\n").arg(files["userApp"].toString());
    t << QStringLiteral("  global, common  %1\n").arg(files["globalCommon"].toString());
    t << QStringLiteral("  global, app     %1\n").arg(files["globalApp"].toString());
    t << "application IDs by type\n";
    for (int type : types) {
        t << QStringLiteral("  %1  %2\n").arg(type, 3).arg(ids[QString::number(type)].toString());
    }
}

void configureVersion(QCommandLineParser& parser) {
    parser.addOption({"set-type", "Switch to application type T first (taken only within the current type's group).",
                      "T"});
    parser.addOption({"control", "Set the control-type flag first (read only when the identity is built)."});
}

int runVersion(const QCommandLineParser& parser, Output& out) {
    const int configured = VersionInfo::getAppType();
    if (parser.isSet("control")) VersionInfo::setControlType(true);
    if (parser.isSet("set-type")) {
        const int wanted = static_cast<int>(parseInteger(parser, "set-type", 0, 2147483647));
        VersionInfo::setAppType(static_cast<VersionInfo::AppType>(wanted));
        const bool taken = VersionInfo::getAppType() == wanted;
        out.data["setType"] = QJsonObject{{"from", configured}, {"requested", wanted}, {"taken", taken}};
        if (!out.json()) {
            out.text() << QStringLiteral("setAppType(%1) from type %2: %3\n\n")
                              .arg(wanted)
                              .arg(configured)
                              .arg(taken ? "taken (same group)" : "ignored (another group)");
        }
    }
    identity(out);
    return 0;
}

const Register version{Command{"version", "The application's identity and the paths of its four settings files.",
                               configureVersion, runVersion}};
const Register tourStep{TourStep{65, "Identity: version and settings locations", identity}};

}  // namespace
}  // namespace mirel::tool
