// Plug-ins through the dynamic loader.
#include <dlfcn.h>

#include <cstdio>

#include "base/system/library.h"
#include "base/system/system.h"

namespace mirel {

// The library's own operator new makes this record through doNew().
struct Library::Data {
    void* handle = nullptr;
    bool loaded = false;
    QString name;
};

Library::Library(const QString& name) : d(new Data) { d->name = name; }

Library::~Library() { delete d; }

QString Library::getLibraryName() const { return d->name; }

void Library::calculatePathAndBaseName(QString& path, QString& base) const {
    path = System::getInstallPath();
    base = d->name;
    const qsizetype p = d->name.lastIndexOf(QLatin1Char('/'));
    if (p >= 0) {
        // The separator stays with the base, so it lands after "lib": kept as it always was.
        path += d->name.left(p);
        base = d->name.right(d->name.size() - p);
    }
}

QString Library::getFilePath() const {
    QString path, base;
    calculatePathAndBaseName(path, base);
    return path + QLatin1String("lib") + base + QLatin1String(".so");
}

bool Library::load() {
    if (d->name.isEmpty()) {
        d->loaded = true;
        return true;
    }
    if (d->loaded) return false;
    const QByteArray file = getFilePath().toUtf8();
    d->handle = dlopen(file.constData(), RTLD_LAZY | RTLD_GLOBAL);
    if (d->handle == nullptr) {
        const char* reason = dlerror();
        std::fprintf(stderr, "Failed to load \"%s\" because \"%s\"\n", file.constData(),
                     reason != nullptr ? reason : "");
        return false;
    }
    d->loaded = true;
    return true;
}

bool Library::unload() {
    if (!d->loaded) return false;
    // An empty name was marked loaded without a handle: closing nothing fails, as a close
    // of a null handle always did, but is not handed to a loader that would crash on it.
    const int rc = d->handle != nullptr ? dlclose(d->handle) : -1;
    d->loaded = false;
    d->handle = nullptr;
    return rc == 0;
}

bool Library::isLoaded() const { return d->loaded; }

void* Library::resolve(const QString& symbol) const {
    if (!d->loaded || d->handle == nullptr) return nullptr;
    return dlsym(d->handle, symbol.toUtf8().constData());
}

}  // namespace mirel
