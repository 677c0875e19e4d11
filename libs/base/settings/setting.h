// Settings: named, typed values that live in named groups (settinggroup.h). A module
// declares its options as settings of its own group, usually as statics:
//
//   SettingGroup gMapOptions("Map");
//   IntSetting gGridSpacing(gMapOptions, "gridSpacing", 10);
//   TypedSetting<QString> gUnits(gMapOptions, "units", "metric");
//
// Static constructors of different modules run in an order nobody controls, so a setting
// may be constructed before its group: it then waits on a process-wide orphan list and
// joins its group when the group is constructed.
//
// TypedSetting<T>::set() is the one way a value changes. Every call stamps the setting with
// Setting::sCurrentModifier (who is changing settings now); a call that really changes the
// value records the old one in the innermost open snapshot (pushAllSettings) and then tells
// the observers (observer.h). popAllSettings() rolls back the innermost snapshot silently.
//
// Nothing here takes a lock: settings, groups, observers and snapshots belong to the main
// thread (and to static constructors during load).
#pragma once

#include <QString>

#include <cstdint>
#include <forward_list>

#include "base/memory/memoryobject.h"
#include "base/mirel_export.h"
#include "base/settings/observer.h"

namespace mirel {

class SettingGroup;

// The codes getType() returns for the library's two instantiations; other codes belong to
// instantiations made elsewhere.
inline constexpr unsigned int kIntSettingType = 1;
inline constexpr unsigned int kTextSettingType = 4;

// The typeless face of a setting: what lists, editors and the snapshot machinery use.
class MIREL_EXPORT Setting : public MemoryObject {
public:
    // Snapshot frames: the front frame is the innermost; within a frame the front entry is
    // the most recent change. A setting appears once per effective change.
    using RestoreFrame = std::forward_list<Setting*>;
    using RestoreList = std::forward_list<RestoreFrame>;

    // Joins `group` if it is constructed, else waits on the orphan list until it is. Only
    // the address of `group` is used here, so a group that is not constructed yet is fine.
    // `flag` is kept for the settings' users; the library never reads it.
    Setting(SettingGroup& group, const QString& name, bool flag);
    // Leaves the group (if it still exists) and detaches the observers without telling
    // them. A setting destroyed while still orphaned is left on the orphan list: never
    // destroy a setting before its group has been constructed.
    virtual ~Setting();

    // Parses `text` and set()s the result; parse failures are not reported (see the typed
    // settings for what each type makes of bad text).
    virtual void fromString(const QString& text) = 0;
    virtual QString toString() const = 0;
    // The value as a number, and a number as the value, where the type has a meaning for it.
    virtual double getVal() const = 0;
    virtual void setVal(double value) = 0;
    // kIntSettingType, kTextSettingType, or a code of an instantiation made elsewhere.
    virtual unsigned int getType() const = 0;
    // Saves the value on the setting's own stack / restores the latest saved one without
    // telling anyone (false when nothing is saved).
    virtual void pushSetting() = 0;
    virtual bool popSetting() = 0;

    const QString& getName() const { return mName; }
    // The group given at construction (possibly not constructed yet while orphaned); null
    // once that group has been destroyed.
    SettingGroup* getGroup() const { return mGroup; }
    // sCurrentModifier as it was at the last set(), changed or not; 0 before any.
    std::uint32_t getModifier() const { return mModifier; }

    // Tells the setting's enabled observers, then its group's (if the group still exists).
    void notifyChanged();
    // Detaches every observer of the setting and tells the enabled ones that it is going.
    void notifyPreDelete();

    // Opens a snapshot frame; frames nest without limit.
    static void pushAllSettings();
    // Restores every change recorded in the innermost frame, most recent first, and closes
    // it. Silent: observers are not told and modifiers are not restored. False when no
    // frame is open. Every setting recorded in the frame must still exist.
    static bool popAllSettings();

    // Copied into every setting that set() touches. 1 at load; the application writes it.
    static std::uint32_t sCurrentModifier;
    // The open snapshot frames; made when the library is loaded, freed when it is unloaded.
    static RestoreList* sRestoreList;

    Setting(const Setting&) = delete;
    Setting& operator=(const Setting&) = delete;

protected:
    static bool snapshotOpen() { return sRestoreList != nullptr && !sRestoreList->empty(); }
    // Puts this setting at the front of the innermost frame and saves its value; call only
    // while snapshotOpen() and before the value changes.
    void recordChange();

    std::uint32_t mModifier = 0;
    ObserverList mObservers;
    // Kept for the settings' users, with its initial value; the library never reads it.
    std::int32_t mUserWord = 1;
    QString mName;
    SettingGroup* mGroup;
    Setting* mOrphanNext = nullptr;
    Setting* mOrphanPrev = nullptr;
    // The construction flag, kept for the settings' users.
    bool mFlag;

private:
    friend class SettingGroup;
    friend class SettingObserver;

    bool isOrphaned() const;

    // Settings whose group was not constructed yet, newest first.
    static Setting* sOrphanedSettings;
};

// A setting holding a T. The library instantiates it for int and QString; another T needs
// its own fromString, toString, getVal, setVal and getType.
template <typename T>
class MIREL_EXPORT TypedSetting : public Setting {
public:
    // The value and the default both start as `value`.
    TypedSetting(SettingGroup& group, const QString& name, const T& value, bool flag = true);
    // Tells the observers first (notifyPreDelete), while the value is still readable.
    ~TypedSetting() override;

    // Stamps the modifier; if `value` differs from the current one, records the old value
    // in the innermost open snapshot, stores `value` and tells the observers.
    void set(T value);
    const T& getValue() const { return mValue; }
    const T& getDefault() const { return mDefault; }

    void fromString(const QString& text) override;
    QString toString() const override;
    double getVal() const override;
    void setVal(double value) override;
    unsigned int getType() const override;
    void pushSetting() override;
    bool popSetting() override;

protected:
    T mValue;
    T mDefault;
    // Saved by pushSetting(); the front is the most recent.
    std::forward_list<T> mSavedValues;
};

template <typename T>
TypedSetting<T>::TypedSetting(SettingGroup& group, const QString& name, const T& value, bool flag)
    : Setting(group, name, flag), mValue(value), mDefault(value) {}

template <typename T>
TypedSetting<T>::~TypedSetting() {
    notifyPreDelete();
    mSavedValues.clear();
}

template <typename T>
void TypedSetting<T>::set(T value) {
    mModifier = sCurrentModifier;
    if (value == mValue) return;
    if (snapshotOpen()) recordChange();
    mValue = std::move(value);
    notifyChanged();
}

template <typename T>
void TypedSetting<T>::pushSetting() {
    mSavedValues.push_front(mValue);
}

template <typename T>
bool TypedSetting<T>::popSetting() {
    if (mSavedValues.empty()) return false;
    mValue = std::move(mSavedValues.front());
    mSavedValues.pop_front();
    return true;
}

// int: decimal text through QTextStream; fromString reads one integer (0 for text that does
// not start with one); getVal/setVal convert, truncating toward zero.
template <> MIREL_EXPORT void TypedSetting<int>::fromString(const QString& text);
template <> MIREL_EXPORT QString TypedSetting<int>::toString() const;
template <> MIREL_EXPORT double TypedSetting<int>::getVal() const;
template <> MIREL_EXPORT void TypedSetting<int>::setVal(double value);
template <> MIREL_EXPORT unsigned int TypedSetting<int>::getType() const;

// QString: toString gives the whole text but fromString keeps only its first
// whitespace-delimited word, so text with blanks does not survive a round trip. getVal is
// always 0, and setVal leaves the text alone and only stamps the modifier.
template <> MIREL_EXPORT void TypedSetting<QString>::fromString(const QString& text);
template <> MIREL_EXPORT QString TypedSetting<QString>::toString() const;
template <> MIREL_EXPORT double TypedSetting<QString>::getVal() const;
template <> MIREL_EXPORT void TypedSetting<QString>::setVal(double value);
template <> MIREL_EXPORT unsigned int TypedSetting<QString>::getType() const;

extern template class TypedSetting<int>;
extern template class TypedSetting<QString>;

// The integer setting applications declare.
class MIREL_EXPORT IntSetting : public TypedSetting<int> {
public:
    IntSetting(SettingGroup& group, const QString& name, int value, bool flag = true);
    ~IntSetting() override;
};

}  // namespace mirel
