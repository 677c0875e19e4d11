// The resource folder that stands in for an application bundle: "<install>resources/" by
// default, or the folder the application set.
#include <QFileInfo>

#include "base/system/binres.h"
#include "base/system/system.h"

namespace mirel {

namespace {

QString sResourceDirectory;

}  // namespace

void BinRes::setResourceDirectory(const QString& dir) {
    sResourceDirectory = dir;
    if (!sResourceDirectory.isEmpty() && !sResourceDirectory.endsWith(QLatin1Char('/'))) {
        sResourceDirectory += QLatin1Char('/');
    }
}

QString BinRes::getResourceDirectory() {
    return sResourceDirectory.isEmpty() ? System::getInstallPath() + QLatin1String("resources/")
                                        : sResourceDirectory;
}

QString GetResourcePathNS(const QString& type, const QString& name) {
    if (name.isNull()) return QString();
    const QString path =
        BinRes::getResourceDirectory() + name + QLatin1Char('.') + type.toLower();
    // Only a file is a resource; a folder of that name is not.
    return QFileInfo(path).isFile() ? path : QString();
}

}  // namespace mirel
