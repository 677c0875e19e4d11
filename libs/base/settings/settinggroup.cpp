// The group list and the adoption of settings constructed before their group.
#include "base/settings/settinggroup.h"

#include <stdexcept>

#include "base/settings/setting.h"

namespace mirel {

// Constant-initialised, so they are valid before any static constructor of any module.
constinit SettingGroup* SettingGroup::sSettingGroups = nullptr;
constinit int SettingGroup::sNumSettingGroups = 0;

SettingGroup::SettingGroup(const QString& name) : mName(name) {
    mNext = sSettingGroups;
    if (sSettingGroups != nullptr) sSettingGroups->mPrev = this;
    sSettingGroups = this;
    ++sNumSettingGroups;

    // Orphans join in orphan-list order, newest first.
    Setting* s = Setting::sOrphanedSettings;
    while (s != nullptr) {
        Setting* following = s->mOrphanNext;
        if (s->mGroup == this) {
            if (s->mOrphanPrev != nullptr) {
                s->mOrphanPrev->mOrphanNext = s->mOrphanNext;
            } else {
                Setting::sOrphanedSettings = s->mOrphanNext;
            }
            if (s->mOrphanNext != nullptr) s->mOrphanNext->mOrphanPrev = s->mOrphanPrev;
            s->mOrphanNext = nullptr;
            s->mOrphanPrev = nullptr;
            mSettings.push_back(s);
        }
        s = following;
    }
}

SettingGroup::~SettingGroup() {
    // Observers stay linked while they are told, so one may detach or destroy itself.
    mObservers.notify(&SettingGroupObserver::onGroupPreDelete,
                      SettingGroupObserver::Event{this, nullptr}, false);

    if (mPrev != nullptr) {
        mPrev->mNext = mNext;
    } else {
        sSettingGroups = mNext;
    }
    if (mNext != nullptr) mNext->mPrev = mPrev;
    mNext = nullptr;
    mPrev = nullptr;
    --sNumSettingGroups;

    for (Setting* s : mSettings) s->mGroup = nullptr;
    mSettings.clear();
    mObservers.detachAll();
}

const QString& SettingGroup::getName() const { return mName; }

int SettingGroup::getSettingCount() const { return static_cast<int>(mSettings.size()); }

Setting* SettingGroup::getSetting(int index) const {
    if (index < 0 || static_cast<std::size_t>(index) >= mSettings.size()) {
        throw std::out_of_range("vector [] access out of range");
    }
    return mSettings[static_cast<std::size_t>(index)];
}

Setting* SettingGroup::getSetting(const QString& name) const {
    const int count = getSettingCount();
    for (int i = 0; i < count; ++i) {
        Setting* s = getSetting(i);
        if (s->getName() == name) return s;
    }
    return nullptr;
}

SettingGroup* SettingGroup::getGroup(const QString& name) {
    for (SettingGroup* g = sSettingGroups; g != nullptr; g = g->mNext) {
        if (g->mName == name) return g;
    }
    return nullptr;
}

SettingGroup* SettingGroup::getGroup(int index) {
    SettingGroup* g = sSettingGroups;
    for (int i = 0; i < index && g != nullptr; ++i) g = g->mNext;
    return g;
}

int SettingGroup::getGroupCount() { return sNumSettingGroups; }

bool SettingGroup::isLive(const SettingGroup* group) {
    for (const SettingGroup* g = sSettingGroups; g != nullptr; g = g->mNext) {
        if (g == group) return true;
    }
    return false;
}

}  // namespace mirel
