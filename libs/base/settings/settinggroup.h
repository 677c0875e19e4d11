// SettingGroup: a named set of settings (setting.h), and the process-wide list of every
// live group. Groups are found by name or by position, newest first; settings within a
// group keep the order in which they joined it.
//
// A group adopts, when constructed, the settings that were constructed for it earlier (the
// newest of them first). Destroying a group leaves its settings alive but groupless. No
// lock is taken: groups belong to the main thread and to static constructors during load.
#pragma once

#include <QString>

#include <vector>

#include "base/memory/memoryobject.h"
#include "base/mirel_export.h"
#include "base/settings/observer.h"

namespace mirel {

class Setting;

class MIREL_EXPORT SettingGroup : public MemoryObject {
public:
    // Joins the front of the group list and adopts its orphaned settings. Names need not
    // be unique; lookups by name find the newest group.
    explicit SettingGroup(const QString& name);
    // Tells the enabled group observers, leaves the group list, makes every setting
    // groupless and detaches the remaining observers silently.
    virtual ~SettingGroup();

    virtual const QString& getName() const;
    virtual int getSettingCount() const;
    // The index-th setting in joining order; an index outside [0, getSettingCount()) throws
    // std::out_of_range("vector [] access out of range"), the only exception the library's
    // settings throw.
    virtual Setting* getSetting(int index) const;
    // The first setting, in joining order, named exactly `name` (case-sensitive); null if
    // none.
    virtual Setting* getSetting(const QString& name) const;

    // The newest live group named exactly `name`; null if none.
    static SettingGroup* getGroup(const QString& name);
    // The group `index` steps from the newest; an index below 1 gives the newest, one past
    // the oldest gives null.
    static SettingGroup* getGroup(int index);
    // The number of live groups.
    static int getGroupCount();

    SettingGroup(const SettingGroup&) = delete;
    SettingGroup& operator=(const SettingGroup&) = delete;

private:
    friend class Setting;
    friend class SettingGroupObserver;

    // Whether `group` is a constructed, live group (a setting's group may not be yet).
    static bool isLive(const SettingGroup* group);

    ObserverList mObservers;
    std::vector<Setting*> mSettings;
    QString mName;
    SettingGroup* mNext = nullptr;
    SettingGroup* mPrev = nullptr;

    static SettingGroup* sSettingGroups;  // the newest live group
    static int sNumSettingGroups;
};

}  // namespace mirel
