// mirel url: the support site's addresses in the user's language, and the browser.
#include "base/system/system.h"
#include "command.h"

namespace mirel::tool {
namespace {

void configure(QCommandLineParser& parser) {
    parser.addPositionalArgument("WHAT", "'support [ANSWER]' for the support pages, or "
                                         "'localize URL' for any address.",
                                 "support [ANSWER] | localize URL");
    parser.addOption({"locale", "The locale to localise for, such as fr_FR (default: the "
                                "user's).", "LOCALE"});
    parser.addOption({"open", "Open the first address in the browser."});
}

int run(const QCommandLineParser& parser, Output& out) {
    const QStringList args = parser.positionalArguments();
    if (args.isEmpty()) throw UsageError("say 'support [ANSWER]' or 'localize URL'");
    if (parser.isSet("locale")) System::setCurrentLocale(parser.value("locale"));

    QList<QPair<QString, QString>> addresses;
    if (args[0] == "support") {
        if (args.size() > 2) throw UsageError(QStringLiteral("unexpected argument '%1'").arg(args[2]));
        if (args.size() == 2) {
            bool ok = false;
            const int answer = args[1].toInt(&ok, 10);
            if (!ok) throw UsageError(QStringLiteral("'%1' is not an answer number").arg(args[1]));
            addresses.append({"answer", System::getLocalizedSupportURL(answer)});
        }
        addresses.append({"request", System::getLocalizedGenericSupportURL()});
        addresses.append({"contact", System::getLocalizedContactSupportURL()});
    } else if (args[0] == "localize") {
        if (args.size() != 2) throw UsageError("'localize' takes one address");
        addresses.append({"url", System::getVantorURLLocalizedByLang(args[1])});
    } else {
        throw UsageError(QStringLiteral("unknown kind '%1': say 'support' or 'localize'").arg(args[0]));
    }

    QJsonObject data{{"locale", System::getCurrentLocale()}};
    for (const auto& [name, address] : addresses) {
        data[name] = address;
        if (!out.json()) out.text() << QStringLiteral("%1  %2\n").arg(name, -8).arg(address);
    }
    int status = 0;
    if (parser.isSet("open")) {
        const bool opened = System::LaunchExternalBrowser(addresses.first().second);
        data["opened"] = opened;
        if (!opened) {
            out.text().flush();
            std::fprintf(stderr, "mirel: url: the browser could not open %s\n",
                         qPrintable(addresses.first().second));
            status = 1;
        }
    }
    out.data = data;
    return status;
}

const Register url{Command{"url", "Localised support addresses; --open shows one in the browser.",
                           configure, run, true, true}};

const Register tourStep{TourStep{95, "System: support addresses by language", [](Output& out) {
                                     QJsonObject data;
                                     const QString saved = System::getCurrentLocale();
                                     for (const char* locale : {"en_US", "fr_FR", "de_CH"}) {
                                         System::setCurrentLocale(locale);
                                         const QString address = System::getLocalizedSupportURL(123);
                                         data[locale] = address;
                                         if (!out.json()) {
                                             out.text() << QStringLiteral("%1  %2\n").arg(locale, address);
                                         }
                                     }
                                     System::setCurrentLocale(saved);
                                     out.data = data;
                                 }}};

}  // namespace
}  // namespace mirel::tool
