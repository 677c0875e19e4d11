// The registry of status subsystems, private to the library: a hash table keyed by
// subsystem number, created by the first registration, guarded by GlobalLock.
#pragma once

#include <atomic>

#include "base/foundation/hashtable.h"
#include "base/status/statussubsys.h"

namespace mirel {

using StatusSubsysTable = IdentityHashTable<StatusSubsys, unsigned short, &StatusSubsys::id>;

// The library's own subsystem, "APP", number 0: the messages of its error and info words.
// It keeps the base getSeverityString(), so its severities cannot be printed.
class StatusSubsysApp : public StatusSubsys {
public:
    StatusSubsysApp();
    const QString& getErrorString(StatusCode status) const override;
};

// Null until the first registration; read without the lock, so atomic.
extern std::atomic<StatusSubsysTable*> subsysTable;
extern StatusSubsysApp* appSubsys;

void registerSubsys(StatusSubsys* subsys);
void unregisterSubsys(StatusSubsys* subsys);
// The newest subsystem registered under `id`, or null.
StatusSubsys* getSubsys(unsigned short id);
// The generic name of bits 31-30: "No Error", "Info", "Warning" or "Error".
const QString& getSeverityString(StatusCode status);

}  // namespace mirel
