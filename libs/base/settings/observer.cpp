// Observer links: a doubly linked list whose head slot lives in the observed object, so an
// observer can unlink itself knowing nothing but its own three links.
#include "base/settings/observer.h"

#include "base/settings/setting.h"
#include "base/settings/settinggroup.h"

namespace mirel {

Observer::~Observer() { remove(); }

void Observer::remove() {
    if (mListHead == nullptr) return;
    if (mPrev != nullptr) {
        mPrev->mNext = mNext;
    } else {
        *mListHead = mNext;
    }
    if (mNext != nullptr) mNext->mPrev = mPrev;
    mListHead = nullptr;
    mNext = nullptr;
    mPrev = nullptr;
}

SettingObserver::SettingObserver(Setting* setting) {
    if (setting != nullptr) setting->mObservers.pushFront(this);
}

SettingObserver::SettingObserver(Setting& setting) : SettingObserver(&setting) {}

SettingObserver::~SettingObserver() = default;

SettingGroupObserver::SettingGroupObserver(SettingGroup* group) {
    if (group != nullptr) group->mObservers.pushFront(this);
}

SettingGroupObserver::SettingGroupObserver(SettingGroup& group) : SettingGroupObserver(&group) {}

SettingGroupObserver::~SettingGroupObserver() = default;

}  // namespace mirel
