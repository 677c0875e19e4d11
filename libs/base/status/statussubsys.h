// Status subsystems and the printable texts of status words.
//
// Each subsystem that names codes is a StatusSubsys: constructing one registers it under
// its number, destroying it removes it. StatusGetPrintable() and friends look the word's
// subsystem up in that registry and fall back to generic texts for numbers nobody
// registered. The library registers subsystem 0, "APP", with the messages of its own
// words (statuscode.h) when it is loaded.
//
// A subsystem that is to print severities must override getSeverityString(): the base
// version never returns (it keeps asking itself). "APP" does not override it, so
// StatusGetSeverityString() and StatusGetPrintable() of any word of subsystem 0 never
// return; StatusGetSubsysName() and StatusGetErrorString() of such words are safe.
//
// The registry is guarded by GlobalLock; every function here is thread-safe.
#pragma once

#include <QString>

#include <cstddef>
#include <cstdio>

#include "base/mirel_export.h"
#include "base/status/statuscode.h"

namespace mirel {

class MIREL_EXPORT StatusSubsys {
public:
    // Registers the subsystem under `id`. An empty `name` becomes "Unknown (<id>)". Numbers
    // already taken are not refused: the newest subsystem of a number is the one found.
    // Only the low 14 bits of `id` can ever match a status word.
    StatusSubsys(unsigned short id, const QString& name);
    // Removes the subsystem from the registry.
    virtual ~StatusSubsys();

    // "<severity>|<name>|Error code <message> (0x<code, 5 wide>)", through the virtual
    // getSeverityString() and getErrorString().
    virtual QString gString(StatusCode status);
    // The base version calls itself for ever: override it to print severities.
    virtual const QString& getSeverityString(StatusCode status) const;
    // The subsystem's message for `status`; the null QString where it has none.
    virtual const QString& getErrorString(StatusCode status) const = 0;

    // Subsystems live in the library's allocator (the process heap), wherever they are
    // created; exhaustion yields null, as everywhere in the library.
    static void* operator new(std::size_t size) noexcept;
    static void operator delete(void* ptr) noexcept;

    const unsigned short id;
    const QString name;

    StatusSubsys(const StatusSubsys&) = delete;
    StatusSubsys& operator=(const StatusSubsys&) = delete;
};

// The registered subsystem's gString(), or "Could not decode error 0x<status in hex>".
MIREL_EXPORT QString StatusGetPrintable(StatusCode status);
// The registered subsystem's name, or "Invalid".
MIREL_EXPORT const QString& StatusGetSubsysName(StatusCode status);
// The registered subsystem's getSeverityString(), or the generic "No Error", "Info",
// "Warning" or "Error" from bits 31-30.
MIREL_EXPORT const QString& StatusGetSeverityString(StatusCode status);
// The registered subsystem's getErrorString(), or the null QString.
MIREL_EXPORT const QString& StatusGetErrorString(StatusCode status);

// The library's log streams, for ErrorLog(); both start as the standard error stream.
// Set them before other threads log. Streams set to anything else are closed when the
// library is unloaded.
MIREL_EXPORT extern FILE* LM_ERROR;
MIREL_EXPORT extern FILE* LM_NOTICE;

}  // namespace mirel
