// The subsystem registry, the printable texts, and the status module's load and unload.
#include "base/status/statussubsys.h"

#include "base/linux/linuxutil_p.h"
#include "base/memory/memoryobject.h"
#include "base/status/statusregistry_p.h"
#include "base/threads/spinlock.h"

namespace mirel {

std::atomic<StatusSubsysTable*> subsysTable{nullptr};
StatusSubsysApp* appSubsys = nullptr;

FILE* LM_ERROR = stderr;
FILE* LM_NOTICE = stderr;

namespace {

// The registry's first size; the table rounds it up to its smallest prime and never grows.
constexpr unsigned int kRegistryBuckets = 15;

}  // namespace

// Registry ---------------------------------------------------------------------------------

void registerSubsys(StatusSubsys* subsys) {
    // After the library's finaliser the lock and the registry are gone for good: a
    // subsystem made that late is simply not listed.
    SpinLock* lock = GlobalLock::gGlobalLock();
    if (lock == nullptr) return;
    CSMutex hold(*lock);
    StatusSubsysTable* table = subsysTable.load(std::memory_order_relaxed);
    if (table == nullptr) {
        table = new StatusSubsysTable(kRegistryBuckets);
        if (table == nullptr) return;  // out of memory: the subsystem goes unlisted
        subsysTable.store(table, std::memory_order_release);
    }
    table->insert(subsys);
}

void unregisterSubsys(StatusSubsys* subsys) {
    if (subsysTable.load(std::memory_order_acquire) == nullptr) return;
    SpinLock* lock = GlobalLock::gGlobalLock();
    if (lock == nullptr) return;
    CSMutex hold(*lock);
    StatusSubsysTable* table = subsysTable.load(std::memory_order_relaxed);
    if (table != nullptr) table->remove(subsys);
}

StatusSubsys* getSubsys(unsigned short id) {
    // Tested before locking on purpose: with no registry there is nothing to wait for.
    if (subsysTable.load(std::memory_order_acquire) == nullptr) return nullptr;
    SpinLock* lock = GlobalLock::gGlobalLock();
    if (lock == nullptr) return nullptr;
    CSMutex hold(*lock);
    StatusSubsysTable* table = subsysTable.load(std::memory_order_relaxed);
    return table != nullptr ? table->find(id) : nullptr;
}

const QString& getSeverityString(StatusCode status) {
    static const QString names[4] = {QStringLiteral("No Error"), QStringLiteral("Info"),
                                     QStringLiteral("Warning"), QStringLiteral("Error")};
    return names[(status >> 30) & 3];
}

// StatusSubsys -----------------------------------------------------------------------------

namespace {

QString subsysName(unsigned short id, const QString& name) {
    return name.isEmpty() ? QStringLiteral("Unknown (%1)").arg(id) : name;
}

}  // namespace

StatusSubsys::StatusSubsys(unsigned short id, const QString& name)
    : id(id), name(subsysName(id, name)) {
    registerSubsys(this);
}

StatusSubsys::~StatusSubsys() { unregisterSubsys(this); }

void* StatusSubsys::operator new(std::size_t size) noexcept {
    return doNew(size == 0 ? 1 : size, nullptr);
}

void StatusSubsys::operator delete(void* ptr) noexcept { doDelete(ptr, nullptr); }

QString StatusSubsys::gString(StatusCode status) {
    // Five substitutions into four markers, kept as they are: the message lands after
    // "Error code ", the padded decimal code after "0x", and the hexadecimal code finds no
    // marker left (Qt warns and leaves the text unchanged).
    return QStringLiteral("%1|%2|Error code %3 (0x%4)")
        .arg(getSeverityString(status), 0)
        .arg(name, 0)
        .arg(getErrorString(status), 0)
        .arg(statusCode(status), 5)
        .arg(statusCode(status), 0, 16);
}

const QString& StatusSubsys::getSeverityString(StatusCode /*status*/) const {
    // Kept on purpose: the base class has no severity names, and asking itself again lands
    // right back here, for ever. Sleeping keeps the endless loop defined and off the
    // processor; a subsystem that prints severities overrides this.
    for (;;) linuxutil::sleepMilliseconds(1000);
}

// Public functions -------------------------------------------------------------------------

QString StatusGetPrintable(StatusCode status) {
    StatusSubsys* s = getSubsys(static_cast<unsigned short>(statusSubsystem(status)));
    if (s != nullptr) return s->gString(status);
    return QStringLiteral("Could not decode error 0x%1").arg(status, 0, 16);
}

const QString& StatusGetSubsysName(StatusCode status) {
    static const QString invalid = QStringLiteral("Invalid");
    StatusSubsys* s = getSubsys(static_cast<unsigned short>(statusSubsystem(status)));
    return s != nullptr ? s->name : invalid;
}

const QString& StatusGetSeverityString(StatusCode status) {
    StatusSubsys* s = getSubsys(static_cast<unsigned short>(statusSubsystem(status)));
    return s != nullptr ? s->getSeverityString(status) : getSeverityString(status);
}

const QString& StatusGetErrorString(StatusCode status) {
    static const QString none;
    StatusSubsys* s = getSubsys(static_cast<unsigned short>(statusSubsystem(status)));
    return s != nullptr ? s->getErrorString(status) : none;
}

// Load and unload --------------------------------------------------------------------------

namespace {

// Made at load before anything in the library can look a word up; its destructor is the
// module's finaliser. appSubsys itself is never deleted.
struct StatusModule {
    StatusModule() { appSubsys = new StatusSubsysApp; }
    ~StatusModule() {
        StatusSubsysTable* table = nullptr;
        if (SpinLock* lock = GlobalLock::gGlobalLock(); lock != nullptr) {
            CSMutex hold(*lock);
            table = subsysTable.exchange(nullptr, std::memory_order_acq_rel);
        } else {
            table = subsysTable.exchange(nullptr, std::memory_order_acq_rel);
        }
        delete table;
        BlockMainLock::shutdown();
        GlobalLock::shutdown();
    }
};

const StatusModule sStatusModule;

}  // namespace

}  // namespace mirel
