// mirel resource: find a resource file by number or name, in the resource folder or its
// locale folders, and say what it holds.
#include <QCoreApplication>
#include <QPixmap>

#include <cstdlib>

#include "base/system/binres.h"
#include "base/system/file.h"
#include "base/system/system.h"
#include "command.h"

namespace mirel::tool {
namespace {

void configure(QCommandLineParser& parser) {
    parser.addPositionalArgument("ID|NAME", "A resource number (211) or base name (dglogo).");
    parser.addPositionalArgument("TYPE", "The file type, such as png.");
    parser.addOption({"dir", "The resource folder (default: <install>/resources).", "DIR"});
    parser.addOption({"install-path", "The installation folder (default: the tool's).", "DIR"});
    parser.addOption({"locale", "Look in the folders of this locale first: <dir>/<LOCALE>.<suffix>, "
                                "then its language's.", "LOCALE"});
    parser.addOption({"suffix", "The suffix of locale folders (default: lproj).", "SUFFIX", "lproj"});
}

int run(const QCommandLineParser& parser, Output& out) {
    const QStringList args = parser.positionalArguments();
    if (args.size() != 2) throw UsageError("give a resource number or name, and a type");
    System::setInstallPath(parser.isSet("install-path") ? parser.value("install-path")
                                                        : QCoreApplication::applicationDirPath());
    if (parser.isSet("dir")) BinRes::setResourceDirectory(parser.value("dir"));
    const QString type = args[1];
    if (type.isEmpty()) throw UsageError("the type is empty");

    bool numeric = false;
    const int id = args[0].toInt(&numeric, 10);
    QString name = args[0];
    if (numeric) {
        const char* found = FindResName(id);
        if (found == nullptr) {
            std::fprintf(stderr, "mirel: resource: no resource is numbered %d\n", id);
            return 1;
        }
        name = QString::fromLatin1(found);
    }
    out.data["name"] = name;

    QString path;
    if (parser.isSet("locale")) {
        QStringList locales{parser.value("locale")};
        locales += System::getPreferredLocaleList();
        QString dir = BinRes::getResourceDirectory();
        dir.chop(1);
        path = BinRes::SearchLocaleDirsForResource(type.toLower(), name, dir,
                                                   parser.value("suffix"), locales);
    } else {
        path = numeric ? MakeBinResourcePath(id, type) : BinRes::GetResourcePath(type, name);
    }
    if (path.isEmpty()) {
        std::fprintf(stderr, "mirel: resource: no %s.%s in %s\n", qPrintable(name),
                     qPrintable(type.toLower()), qPrintable(BinRes::getResourceDirectory()));
        return 1;
    }
    int size = 0;
    void* data = file::readFile(path, size);
    if (data == nullptr) {
        std::fprintf(stderr, "mirel: resource: cannot read %s\n", qPrintable(path));
        return 1;
    }
    QPixmap pixmap;
    pixmap.loadFromData(static_cast<const uchar*>(data), static_cast<uint>(size));
    std::free(data);

    out.data["path"] = path;
    out.data["bytes"] = size;
    if (!pixmap.isNull()) {
        out.data["width"] = pixmap.width();
        out.data["height"] = pixmap.height();
    }
    if (!out.json()) {
        out.text() << QStringLiteral("%1  %2 bytes").arg(path).arg(size);
        if (!pixmap.isNull()) out.text() << QStringLiteral(", image %1x%2").arg(pixmap.width()).arg(pixmap.height());
        out.text() << "\n";
    }
    return 0;
}

const Register resource{Command{"resource", "Find a resource file by number or name; its size and pixels.",
                                configure, run, true, true}};

const Register tourStep{TourStep{96, "System: resource numbers", [](Output& out) {
                                     QJsonObject names;
                                     for (int id : {211, 638, 521, 550, 1}) {
                                         const char* name = FindResName(id);
                                         names[QString::number(id)] =
                                             name != nullptr ? QJsonValue(name) : QJsonValue();
                                         if (!out.json()) {
                                             out.text() << QStringLiteral("%1  %2\n")
                                                               .arg(id, 4)
                                                               .arg(name != nullptr ? name : "(none)");
                                         }
                                     }
                                     out.data = names;
                                 }}};

}  // namespace
}  // namespace mirel::tool
