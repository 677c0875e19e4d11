// Observers of settings: SettingObserver watches one setting, SettingGroupObserver every
// setting of one group. Both sit in intrusive lists held by what they watch (ObserverList),
// so attaching and detaching allocate nothing, and an observer detaches itself when it is
// destroyed.
//
//   struct Redraw : SettingObserver {
//       using SettingObserver::SettingObserver;
//       void onSettingChanged(const Event& e) override { repaint(e.setting); }
//       void onSettingPreDelete(const Event&) override {}
//   } redraw(gridSpacing);   // told of every effective change of gridSpacing
//
// A new observer goes to the front of its list, so the newest observer is told first. An
// observer whose `enabled` word is 0 stays linked but hears nothing. Like the settings
// themselves, observers and their lists take no lock: use them from the main thread.
#pragma once

#include <cstdint>

#include "base/memory/memoryobject.h"
#include "base/mirel_export.h"

namespace mirel {

class ObserverList;
class Setting;
class SettingGroup;

// The link part of every observer. Linked to at most one owner's list.
class MIREL_EXPORT Observer : public MemoryObject {
public:
    Observer() = default;
    // Detaches (remove()); the owner is not told.
    virtual ~Observer();

    // Detaches from the owner's list if linked; an unlinked observer is left as it is.
    void remove();
    bool isLinked() const { return mListHead != nullptr; }

    // The `enabled` word: 1 at construction; while 0 the observer is skipped by every
    // notification but stays linked (and is still detached by a pre-delete notification).
    bool isEnabled() const { return mEnabled != 0; }
    void setEnabled(bool enabled) { mEnabled = enabled ? 1 : 0; }

    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;

private:
    friend class ObserverList;

    Observer** mListHead = nullptr;  // the owner's first-observer slot; null while unlinked
    Observer* mNext = nullptr;
    Observer* mPrev = nullptr;
    std::int32_t mEnabled = 1;
};

// The head of one intrusive observer list, embedded in the setting or group it belongs to.
// It owns nothing: observers come and go on their own.
class ObserverList {
public:
    ObserverList() = default;
    ObserverList(const ObserverList&) = delete;
    ObserverList& operator=(const ObserverList&) = delete;

    // Links `o` (which must be unlinked) at the front.
    void pushFront(Observer* o) {
        o->mListHead = &mHead;
        o->mNext = mHead;
        o->mPrev = nullptr;
        if (mHead != nullptr) mHead->mPrev = o;
        mHead = o;
    }

    // Unlinks every observer without telling it.
    void detachAll() {
        while (mHead != nullptr) mHead->remove();
    }

    Observer* first() const { return mHead; }
    static Observer* next(const Observer* o) { return o->mNext; }
    bool empty() const { return mHead == nullptr; }

    // Calls (o->*method)(event) on every enabled observer, front to back. Each observer's
    // successor is read before its handler runs, so a handler may detach or destroy its own
    // observer, but not the successor. With `detachFirst` every observer, enabled or not,
    // is detached before its turn.
    template <typename O, typename E>
    void notify(void (O::*method)(const E&), const E& event, bool detachFirst) {
        Observer* o = mHead;
        while (o != nullptr) {
            Observer* following = o->mNext;
            if (detachFirst) o->remove();
            if (o->mEnabled != 0) (static_cast<O*>(o)->*method)(event);
            o = following;
        }
    }

private:
    Observer* mHead = nullptr;
};

// Watches one setting.
class MIREL_EXPORT SettingObserver : public Observer {
public:
    struct Event {
        Setting* setting;
    };

    // Links at the front of `setting`'s observers; a null pointer leaves the observer
    // unlinked.
    explicit SettingObserver(Setting* setting);
    explicit SettingObserver(Setting& setting);
    ~SettingObserver() override;

    // After every effective change of the setting's value (not after a snapshot restore).
    virtual void onSettingChanged(const Event& event) = 0;
    // The setting is being destroyed; the observer has already been detached.
    virtual void onSettingPreDelete(const Event& event) = 0;
};

// Watches every setting of one group.
class MIREL_EXPORT SettingGroupObserver : public Observer {
public:
    // `setting` is null in onGroupPreDelete.
    struct Event {
        SettingGroup* group;
        Setting* setting;
    };

    // Links at the front of `group`'s observers; a null pointer leaves the observer
    // unlinked.
    explicit SettingGroupObserver(SettingGroup* group);
    explicit SettingGroupObserver(SettingGroup& group);
    ~SettingGroupObserver() override;

    // After every effective change of any setting of the group, after the setting's own
    // observers were told.
    virtual void onGroupSettingChanged(const Event& event) = 0;
    // The group is being destroyed. The observer is still linked during this call and is
    // detached silently afterwards.
    virtual void onGroupPreDelete(const Event& event) = 0;
};

}  // namespace mirel
