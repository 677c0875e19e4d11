// Locales, localised support addresses and browser launches, with the real settings store
// in a temporary home and launches caught by a URL handler: no browser ever starts.
#include <gtest/gtest.h>

#include <QDesktopServices>
#include <QGuiApplication>
#include <QLocale>
#include <QSettings>
#include <QTemporaryDir>
#include <QUrl>

#include <cstdlib>
#include <memory>

#include "base/system/system.h"
#include "base/version/versioninfo.h"

namespace mirel {
namespace {

// Qt reads XDG_CONFIG_HOME at the first QSettings of the process, so it is set before main().
const QString gConfigHome = [] {
    static QTemporaryDir dir;
    setenv("XDG_CONFIG_HOME", qPrintable(dir.path()), 1);
    setenv("HOME", qPrintable(dir.path()), 1);
    // The platform's languages, read by Qt at the first QLocale::system().
    setenv("LANGUAGE", "fr_CA:en", 1);
    return dir.path();
}();

void ensureGuiApp() {
    static int argc = 1;
    static char name[] = "systemlocale_test";
    static char* argv[] = {name, nullptr};
    if (QCoreApplication::instance() == nullptr) new QGuiApplication(argc, argv);
}

void setCommon(const QString& key, const QVariant& value) {
    std::unique_ptr<QSettings> s(VersionInfo::createUserCommonSettings());
    if (value.isNull()) {
        s->remove(key);
    } else {
        s->setValue(key, value);
    }
}

void setPreferred(const QVariant& value) {
    std::unique_ptr<QSettings> s(VersionInfo::createUserAppSettings());
    if (value.isNull()) {
        s->remove("Locale/preferred");
    } else {
        s->setValue("Locale/preferred", value);
    }
}

// Locales ------------------------------------------------------------------------------------

TEST(Locale, StartsAsThePlatformsFirstAndCanBeSet) {
    QStringList expected = QLocale::system().uiLanguages();
    for (QString& name : expected) name.replace('-', '_');
    EXPECT_EQ(System::getPlatformPreferredLocaleList(), expected);
    ASSERT_FALSE(expected.isEmpty());
    EXPECT_EQ(expected.first(), "fr_CA");
    EXPECT_EQ(System::getCurrentLocale(), "fr_CA");
    System::setCurrentLocale("fr_FR");
    EXPECT_EQ(System::getCurrentLocale(), "fr_FR");
    System::setCurrentLocale("");
    EXPECT_EQ(System::getCurrentLocale(), "");
}

TEST(Locale, StoredChoiceLeadsThePlatformList) {
    const QStringList platform = System::getPlatformPreferredLocaleList();
    setPreferred(QVariant());
    EXPECT_EQ(System::getPreferredLocaleList(), platform);

    setPreferred(QStringList{"fr_CA", " en ", "", "fr_CA"});
    QStringList list = System::getPreferredLocaleList();
    ASSERT_GE(list.size(), 2);
    EXPECT_EQ(list.mid(0, 2), (QStringList{"fr_CA", "en"}));
    // Each platform locale follows once.
    for (const QString& name : platform) EXPECT_EQ(list.count(name), 1) << name.toStdString();

    setPreferred(QString("de_DE"));
    list = System::getPreferredLocaleList();
    EXPECT_EQ(list.value(0), "de_DE");
    EXPECT_EQ(list.count("de_DE"), 1);
    setPreferred(QVariant());
}

// Addresses -------------------------------------------------------------------------------

TEST(Locale, SupportAddressesCarryTheLanguagesDomain) {
    setCommon("Web", QVariant());
    struct Row {
        const char* locale;
        const char* host;
    };
    const Row rows[] = {
        {"fr_FR", "https://support.vantor.fr"}, {"fr", "https://support.vantor.fr"},
        {"it_IT", "https://support.vantor.it"}, {"de_AT", "https://support.vantor.de"},
        {"es_MX", "https://support.vantor.es"}, {"en_US", "https://support.vantor.com"},
        {"pt_BR", "https://support.vantor.com"}, {"", "https://support.vantor.com"},
        {"f", "https://support.vantor.com"},     {"FR_fr", "https://support.vantor.com"},
    };
    for (const Row& row : rows) {
        System::setCurrentLocale(row.locale);
        const QString host = row.host;
        EXPECT_EQ(System::getLocalizedSupportURL(123), host + "/support/bin/answer.py?answer=123")
            << row.locale;
        EXPECT_EQ(System::getLocalizedGenericSupportURL(), host + "/support/bin/request.py")
            << row.locale;
        EXPECT_EQ(System::getLocalizedContactSupportURL(),
                  host + "/support/bin/request.py?contact_type=problem&submit=Continue")
            << row.locale;
    }
    System::setCurrentLocale("en_US");
    EXPECT_EQ(System::getLocalizedSupportURL(-5), "https://support.vantor.com/support/bin/answer.py?answer=-5");

    // Every occurrence is replaced; other text is not touched.
    System::setCurrentLocale("de_DE");
    EXPECT_EQ(System::getVantorURLLocalizedByLang("http://www.vantor.com/a?next=vantor.com/b"),
              "http://www.vantor.de/a?next=vantor.de/b");
    EXPECT_EQ(System::getVantorURLLocalizedByLang("http://example.org/"), "http://example.org/");
}

TEST(Locale, DomainsAndHostComeFromTheSettingsStore) {
    setCommon("Web/domain", "example.org");
    setCommon("Web/domain_it", "example.it");
    setCommon("Web/supportHost", "http://help.example.org");
    System::setCurrentLocale("it_IT");
    EXPECT_EQ(System::getLocalizedGenericSupportURL(), "http://help.example.it/support/bin/request.py");
    System::setCurrentLocale("fr_FR");
    // The French domain keeps its default and stands in for the configured default domain.
    EXPECT_EQ(System::getLocalizedGenericSupportURL(), "http://help.vantor.fr/support/bin/request.py");
    // An empty value is no value.
    setCommon("Web/supportHost", "");
    setCommon("Web/domain", QVariant());
    EXPECT_EQ(System::getLocalizedGenericSupportURL(), "https://support.vantor.fr/support/bin/request.py");
    setCommon("Web", QVariant());
}

// Browser ------------------------------------------------------------------------------------

class Catcher : public QObject {
    Q_OBJECT
public:
    QList<QUrl> urls;
public slots:
    void open(const QUrl& url) { urls.append(url); }
};

TEST(Browser, LaunchesReachTheHandlerEncoded) {
    ensureGuiApp();
    Catcher catcher;
    QDesktopServices::setUrlHandler("https", &catcher, "open");
    QDesktopServices::setUrlHandler("http", &catcher, "open");

    EXPECT_TRUE(System::LaunchExternalBrowser("https://x.test/a b/\u00e9t\u00e9?q=%2F", true, true));
    ASSERT_EQ(catcher.urls.size(), 1);
    EXPECT_EQ(catcher.urls[0].toEncoded().toStdString(), "https://x.test/a%20b/%C3%A9t%C3%A9?q=%2F");
    EXPECT_TRUE(System::sLastLaunchSucceded);

    // Refused before anything is opened; the last answer stays.
    EXPECT_FALSE(System::LaunchExternalBrowser(""));
    EXPECT_FALSE(System::LaunchExternalBrowser("http://[::1"));
    EXPECT_FALSE(System::LaunchExternalBrowser("no scheme at all"));
    EXPECT_EQ(catcher.urls.size(), 1);
    EXPECT_TRUE(System::sLastLaunchSucceded);

    System::setCurrentLocale("es_ES");
    EXPECT_TRUE(System::LaunchExternalBrowser(System::getLocalizedSupportURL(7)));
    ASSERT_EQ(catcher.urls.size(), 2);
    EXPECT_EQ(catcher.urls[1].toString(), "https://support.vantor.es/support/bin/answer.py?answer=7");
    System::showBrowserError(1, "https://x.test");

    QDesktopServices::unsetUrlHandler("https");
    QDesktopServices::unsetUrlHandler("http");
}

}  // namespace
}  // namespace mirel

#include "systemlocale_test.moc"
