// mirel plugin: load a plug-in by short name from the installation folder and look up
// symbols in it.
#include <QCoreApplication>
#include <QJsonArray>

#include <cstdio>

#include "base/system/library.h"
#include "base/system/system.h"
#include "command.h"

namespace mirel::tool {
namespace {

void configure(QCommandLineParser& parser) {
    parser.addPositionalArgument("NAME", "The plug-in's short name: 'foo' is "
                                         "<install>/libfoo.so, 'sub/foo' <install>/sublib/foo.so.");
    parser.addPositionalArgument("SYMBOL", "Symbols to resolve in it.", "[SYMBOL...]");
    parser.addOption({"install-path", "The installation folder (default: the tool's).", "DIR"});
}

int run(const QCommandLineParser& parser, Output& out) {
    QStringList args = parser.positionalArguments();
    if (args.isEmpty()) throw UsageError("name the plug-in");
    System::setInstallPath(parser.isSet("install-path") ? parser.value("install-path")
                                                        : QCoreApplication::applicationDirPath());
    Library library(args.takeFirst());
    out.data["file"] = library.getFilePath();
    // The library reports why on standard error itself.
    if (!library.load()) {
        std::fprintf(stderr, "mirel: plugin: could not load %s\n", qPrintable(library.getFilePath()));
        return 1;
    }
    if (!out.json()) out.text() << QStringLiteral("loaded  %1\n").arg(library.getFilePath());
    QJsonArray symbols;
    int missing = 0;
    for (const QString& symbol : args) {
        void* address = library.resolve(symbol);
        if (address == nullptr) ++missing;
        const QString where = address == nullptr
                                  ? QString()
                                  : QStringLiteral("0x%1").arg(reinterpret_cast<quintptr>(address), 0, 16);
        symbols.append(QJsonObject{{"symbol", symbol},
                                   {"address", address == nullptr ? QJsonValue() : QJsonValue(where)}});
        if (!out.json()) {
            out.text() << QStringLiteral("  %1  %2\n").arg(symbol, address == nullptr ? "not found" : where);
        }
    }
    out.data["loaded"] = true;
    out.data["symbols"] = symbols;
    library.unload();
    if (missing > 0) {
        out.text().flush();
        std::fprintf(stderr, "mirel: plugin: %d of %d symbols not found\n", missing,
                     static_cast<int>(args.size()));
        return 1;
    }
    return 0;
}

const Register plugin{Command{"plugin", "Load a plug-in from the installation folder and resolve symbols.",
                              configure, run, true}};

}  // namespace
}  // namespace mirel::tool
