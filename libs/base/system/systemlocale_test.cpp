// Locales, localised support addresses and browser launches, with the real settings store
// in a temporary home and launches caught by a URL handler: no browser ever starts.
#include <gtest/gtest.h>

#include <QDesktopServices>
#include <QGuiApplication>
#include <QLocale>
#include <QSettings>
#include <QUrl>

#include <cstdlib>
#include <memory>

#include "base/system/system.h"
#include "base/testing/tempenv.h"
#include "base/version/versioninfo.h"

namespace mirel {
namespace {

// Qt reads these once, at the first QSettings and the first QLocale::system().
const bool gEnvironment = [] {
    testing::temporaryHome();
    return setenv("LANGUAGE", "fr_CA:en", 1) == 0;
}();

void store(QSettings* settings, const QString& key, const QVariant& value) {
    std::unique_ptr<QSettings> s(settings);
    if (value.isNull()) {
        s->remove(key);
    } else {
        s->setValue(key, value);
    }
}

TEST(Locale, PlatformFirstThenStoredChoiceLeads) {
    QStringList platform = QLocale::system().uiLanguages();
    for (QString& name : platform) name.replace('-', '_');
    EXPECT_EQ(System::getPlatformPreferredLocaleList(), platform);
    EXPECT_EQ(platform.value(0), "fr_CA");
    EXPECT_EQ(System::getCurrentLocale(), "fr_CA");

    store(VersionInfo::createUserAppSettings(), "Locale/preferred", QStringList{"de_DE", " en ", "", "de_DE"});
    const QStringList list = System::getPreferredLocaleList();
    EXPECT_EQ(list.mid(0, 3), (QStringList{"de_DE", "en", "fr_CA"}));
    EXPECT_EQ(list.count("en"), 1);
    store(VersionInfo::createUserAppSettings(), "Locale/preferred", QVariant());
}

TEST(Locale, SupportAddressesCarryTheLanguagesDomain) {
    struct Row {
        const char *locale, *host;
    };
    for (const Row& row : {Row{"fr_FR", "https://support.vantor.fr"}, Row{"it_IT", "https://support.vantor.it"},
                           Row{"de_AT", "https://support.vantor.de"}, Row{"es", "https://support.vantor.es"},
                           Row{"en_US", "https://support.vantor.com"}, Row{"pt_BR", "https://support.vantor.com"},
                           Row{"", "https://support.vantor.com"}, Row{"FR_fr", "https://support.vantor.com"}}) {
        System::setCurrentLocale(row.locale);
        const QString host = row.host;
        EXPECT_EQ(System::getLocalizedSupportURL(123), host + "/support/bin/answer.py?answer=123") << row.locale;
        EXPECT_EQ(System::getLocalizedGenericSupportURL(), host + "/support/bin/request.py");
        EXPECT_EQ(System::getLocalizedContactSupportURL(),
                  host + "/support/bin/request.py?contact_type=problem&submit=Continue");
    }
    System::setCurrentLocale("de_DE");
    EXPECT_EQ(System::getVantorURLLocalizedByLang("http://www.vantor.com/a?next=vantor.com/b"),
              "http://www.vantor.de/a?next=vantor.de/b");

    // Deployment values from the settings store; an empty value is no value.
    store(VersionInfo::createUserCommonSettings(), "Web/domain", "example.org");
    store(VersionInfo::createUserCommonSettings(), "Web/domain_it", "example.it");
    store(VersionInfo::createUserCommonSettings(), "Web/supportHost", "http://help.example.org");
    System::setCurrentLocale("it_IT");
    EXPECT_EQ(System::getLocalizedGenericSupportURL(), "http://help.example.it/support/bin/request.py");
    store(VersionInfo::createUserCommonSettings(), "Web/supportHost", "");
    store(VersionInfo::createUserCommonSettings(), "Web/domain", QVariant());
    EXPECT_EQ(System::getLocalizedGenericSupportURL(), "https://support.example.it/support/bin/request.py");
    store(VersionInfo::createUserCommonSettings(), "Web", QVariant());
}

class Catcher : public QObject {
    Q_OBJECT
public:
    QList<QUrl> urls;
public slots:
    void open(const QUrl& url) { urls.append(url); }
};

TEST(Browser, LaunchesReachTheHandlerEncoded) {
    static int argc = 1;
    static char name[] = "locale_test";
    static char* argv[] = {name, nullptr};
    QGuiApplication app(argc, argv);
    Catcher catcher;
    QDesktopServices::setUrlHandler("https", &catcher, "open");
    EXPECT_TRUE(System::LaunchExternalBrowser("https://x.test/a b/\u00e9t\u00e9?q=%2F", true, true));
    ASSERT_EQ(catcher.urls.size(), 1);
    EXPECT_EQ(catcher.urls[0].toEncoded().toStdString(), "https://x.test/a%20b/%C3%A9t%C3%A9?q=%2F");
    EXPECT_TRUE(System::sLastLaunchSucceded);
    // Refused before anything is opened.
    EXPECT_FALSE(System::LaunchExternalBrowser(""));
    EXPECT_FALSE(System::LaunchExternalBrowser("http://[::1"));
    EXPECT_FALSE(System::LaunchExternalBrowser("no scheme at all"));
    EXPECT_EQ(catcher.urls.size(), 1);
    QDesktopServices::unsetUrlHandler("https");
}

}  // namespace
}  // namespace mirel

#include "systemlocale_test.moc"
