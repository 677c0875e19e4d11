// Library: a plug-in (shared object) under the installation folder, loaded by short name,
// and its symbols.
//
//   Library plugin("render");          // <install>/librender.so
//   if (plugin.load()) {
//       auto start = reinterpret_cast<void (*)()>(plugin.resolve("renderStart"));
//   }
//
// The file is System::getInstallPath() + "lib" + name + ".so". A name with a "/" puts
// "lib" after its folder part's last character, not before the file: "sub/foo" is
// "<install>/sublib/foo.so". That composition is kept as it always was.
//
// Security: the name is not checked. "../x" or "a/../../x" reaches outside the install
// folder, and loading runs the library's initialisers with the process's rights. Names
// must come from the application itself, never from users, files or the network.
//
// Not thread-safe: callers serialise use of one Library.
#pragma once

#include <QString>

#include "base/mirel_export.h"

namespace mirel {

class MIREL_EXPORT Library {
public:
    // Keeps `name`; loads nothing.
    explicit Library(const QString& name);
    // Leaves a loaded library mapped: symbols handed out stay valid.
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    QString getLibraryName() const;
    // `path`: the install folder plus the name's folder part (up to, not including, its
    // last "/"); `base`: the rest of the name, from that "/" on.
    void calculatePathAndBaseName(QString& path, QString& base) const;
    // path + "lib" + base + ".so".
    QString getFilePath() const;
    // Opens the file with lazy binding, its symbols made global. An empty name is marked
    // loaded without opening anything. False when already loaded, or when the file cannot
    // be opened: then one line, Failed to load "PATH" because "REASON", goes to standard
    // error.
    bool load();
    // Closes the library; false when not loaded, when nothing was opened (an empty name) or
    // when the system refuses. It is marked unloaded either way.
    bool unload();
    bool isLoaded() const;
    // The address of `symbol` in this library; null when absent or not loaded.
    void* resolve(const QString& symbol) const;

private:
    struct Data;
    Data* d;
};

}  // namespace mirel
