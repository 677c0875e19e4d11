// The current locale, the preferred-locale list, the localised support addresses and the
// browser launch. Portable: the platform's answers come through Qt.
#include <QDesktopServices>
#include <QLocale>
#include <QSettings>
#include <QUrl>

#include <memory>

#include "base/system/system.h"
#include "base/version/versioninfo.h"

namespace mirel {

bool System::sLastLaunchSucceded = false;

namespace {

QString sLocale;
bool bLocaleSet = false;

struct Deployment {
    const char* key;
    const char* fallback;
};

constexpr Deployment kDomain{"Web/domain", "vantor.com"};
constexpr Deployment kSupportHost{"Web/supportHost", "https://support.vantor.com"};

// The language codes that have a country domain, in the order they are tried.
constexpr Deployment kCountryDomains[] = {
    {"Web/domain_fr", "vantor.fr"},
    {"Web/domain_it", "vantor.it"},
    {"Web/domain_de", "vantor.de"},
    {"Web/domain_es", "vantor.es"},
};
constexpr const char* kLanguages[] = {"fr", "it", "de", "es"};

// Deployment values are read at each use, so a changed store takes effect at once.
QString deploymentValue(const Deployment& d) {
    const std::unique_ptr<QSettings> user(VersionInfo::createUserCommonSettings());
    QString value = user->value(QLatin1String(d.key)).toString();
    if (value.isEmpty()) {
        const std::unique_ptr<QSettings> global(VersionInfo::createGlobalCommonSettings());
        value = global->value(QLatin1String(d.key)).toString();
    }
    return value.isEmpty() ? QString::fromLatin1(d.fallback) : value;
}

QString supportAddress(const QString& pathAndQuery) {
    return System::getVantorURLLocalizedByLang(deploymentValue(kSupportHost) + pathAndQuery);
}

}  // namespace

void System::setCurrentLocale(const QString& locale) {
    sLocale = locale;
    bLocaleSet = true;
}

QString System::getCurrentLocale() {
    if (!bLocaleSet) setCurrentLocale(getPlatformPreferredLocaleList().value(0));
    return sLocale;
}

QStringList System::getPlatformPreferredLocaleList() {
    QStringList list = QLocale::system().uiLanguages();
    for (QString& name : list) name.replace(QLatin1Char('-'), QLatin1Char('_'));
    return list;
}

QStringList System::getPreferredLocaleList() {
    QStringList list;
    const std::unique_ptr<QSettings> settings(VersionInfo::createUserAppSettings());
    // One name reads back as a string, several as a list; toStringList() takes both.
    for (const QString& name : settings->value(QStringLiteral("Locale/preferred")).toStringList()) {
        const QString trimmed = name.trimmed();
        if (!trimmed.isEmpty() && !list.contains(trimmed)) list.append(trimmed);
    }
    for (const QString& name : getPlatformPreferredLocaleList()) {
        if (!list.contains(name)) list.append(name);
    }
    return list;
}

QString System::getVantorURLLocalizedByLang(const QString& url) {
    const QString language = getCurrentLocale().left(2);
    for (int i = 0; i < 4; ++i) {
        if (language == QLatin1String(kLanguages[i])) {
            QString localised = url;
            localised.replace(deploymentValue(kDomain), deploymentValue(kCountryDomains[i]));
            return localised;
        }
    }
    return url;
}

QString System::getLocalizedSupportURL(int answer) {
    return supportAddress(QStringLiteral("/support/bin/answer.py?answer=") +
                          QString::number(answer, 10));
}

QString System::getLocalizedGenericSupportURL() {
    return supportAddress(QStringLiteral("/support/bin/request.py"));
}

QString System::getLocalizedContactSupportURL() {
    return supportAddress(
        QStringLiteral("/support/bin/request.py?contact_type=problem&submit=Continue"));
}

bool System::LaunchExternalBrowser(const QString& url, bool, bool) {
    if (url.isEmpty()) return false;
    // Tolerant parsing percent-encodes blanks and non-ASCII text as UTF-8 and keeps
    // escapes already present.
    const QUrl address(url, QUrl::TolerantMode);
    if (!address.isValid() || address.scheme().isEmpty()) return false;
    sLastLaunchSucceded = QDesktopServices::openUrl(address);
    return sLastLaunchSucceded;
}

void System::showBrowserError(int, const QString&) {}

}  // namespace mirel
