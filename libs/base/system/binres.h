// BinRes: the application's resource files (images, icons, cursors, layout pieces) found by
// number or by name and type, read into memory or decoded into pixmaps, and their
// per-locale variants.
//
// Resources are files "<resource folder>/<name>.<type, lower-cased>"; the folder is
// "<install path>resources/" unless set with setResourceDirectory(). Numbers map to names
// through resIDNameMap. Main thread only (pixmaps need the GUI thread anyway).
#pragma once

#include <QPixmap>
#include <QString>
#include <QStringList>

#include <cstdint>

#include "base/mirel_export.h"

namespace mirel {

struct ResIDName {
    std::int32_t id;
    const char* name;
};

constexpr int kResIDNameCount = 62;
// Resource numbers and base names. Some numbers and names appear twice: look-ups take the
// first row that matches.
MIREL_EXPORT extern const ResIDName resIDNameMap[kResIDNameCount];

// The name of the first row of resIDNameMap with `id`; null when none has it.
MIREL_EXPORT const char* FindResName(int id);
// The path of the resource file `name` of `type`; the null QString when the file does not
// exist or `name` is null.
MIREL_EXPORT QString GetResourcePathNS(const QString& type, const QString& name);
// GetResourcePathNS() for the name of resource number `id`.
MIREL_EXPORT QString MakeBinResourcePath(int id, const QString& type);

class MIREL_EXPORT BinRes {
public:
    // Where resource files are looked up; an empty folder restores the default.
    static void setResourceDirectory(const QString& dir);
    // The folder, ending in "/".
    static QString getResourceDirectory();

    static QString GetResourcePath(const QString& type, const QString& name);
    // The whole resource file as file::readFile() gives it: a malloc() block the caller
    // frees with free(), `size` its length; null (and `size` untouched) when there is no
    // such resource.
    static void* ExtractBinResource(const QString& type, int id, int& size);
    static void* ExtractBinResource(const QString& type, const QString& name, int& size);
    // The resource decoded as an image (format from its content); a null pixmap when it is
    // missing or not an image. Needs a QGuiApplication.
    static QPixmap ExtractPixmap(const QString& type, int id);
    static QPixmap ExtractPixmap(const QString& type, const QString& name);
    // The resource's path: resources already are files, so nothing is written and the third
    // argument is not used.
    static QString ExtractToDisk(const QString& type, int id, const QString& unused);
    // "<dir>/<name>.<type>" when it exists; otherwise, for each preferred locale L
    // (System::getPreferredLocaleList()) in turn, "<dir>/<L>.<suffix>/<name>.<type>" and,
    // when L has a region ("fr_CA"), "<dir>/<language>.<suffix>/<name>.<type>". The first
    // existing file wins; empty when none exists.
    static QString SearchLocaleDirsForResource(const QString& type, const QString& name,
                                               const QString& dir, const QString& suffix);
    // The same search over `locales` instead of the preferred ones.
    static QString SearchLocaleDirsForResource(const QString& type, const QString& name,
                                               const QString& dir, const QString& suffix,
                                               const QStringList& locales);
    // A flag for the user-interface code; nothing here reads it.
    static void setUseMirelStyle(bool use);
    static bool useMirelStyle();
    // Nothing to release.
    static void cleanup();
};

}  // namespace mirel
