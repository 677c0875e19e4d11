// mirel::file: whole-file helpers on QString paths (existence, size, reading a file into
// memory, copying and moving that replace the destination, path clean-up).
//
// Use these for files the application owns (settings, caches, resources). Paths go to the
// system in UTF-8; one holding a NUL or an unpaired surrogate names no file here. All
// functions are reentrant; they keep no state.
#pragma once

#include <QString>

#include "base/mirel_export.h"

struct stat;

namespace mirel::file {

// Whether `path` names an existing file or folder (QFileInfo::exists).
MIREL_EXPORT bool exists(const QString& path);
// The size of the named file in bytes; -1 when it cannot be examined.
MIREL_EXPORT long long getSize(const QString& path);
// The whole file in a block from malloc(): the caller frees it with free(). `size`
// receives the length. A file that cannot be opened gives null and leaves `size` alone; a
// folder, a file of 2 GiB or more (its size does not fit the size word), a failed
// allocation or a failed read give null with `size` set. An empty file gives a valid
// block and 0.
MIREL_EXPORT void* readFile(const QString& path, int& size);
// Copies `from` (a folder with its contents) to `to`, removing whatever `to` held first:
// an existing destination is always replaced. False when `from` does not exist (`to` is
// then left alone), when the two name the same file or one lies inside the other (nothing
// is touched), or when the copy fails.
MIREL_EXPORT bool copy(const QString& from, const QString& to);
// Moves `from` to `to` with the same replacement and refusals as copy(); across file
// systems it copies, then removes `from`.
MIREL_EXPORT bool move(const QString& from, const QString& to);
// `path` unchanged. With `create` the file is made empty first: an existing file is
// truncated, deliberately.
MIREL_EXPORT QString getCompatName(const QString& path, bool create);
// POSIX stat(); true on success.
MIREL_EXPORT bool stat(const char* path, struct ::stat* info);
MIREL_EXPORT bool wstat(const QString& path, struct ::stat* info);
// Normalises a plain path in place (QDir::cleanPath: doubled slashes and "." and ".."
// segments go); text holding "://" is a URL and stays as it is.
MIREL_EXPORT void cleanupPathname(QString& path);

}  // namespace mirel::file
