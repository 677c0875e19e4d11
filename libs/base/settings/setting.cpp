// Settings: construction against a group that may not exist yet, change notification,
// snapshot frames, and the int and QString instantiations.
#include "base/settings/setting.h"

#include <QIODevice>
#include <QTextStream>

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/settings/settinggroup.h"

namespace mirel {

constinit std::uint32_t Setting::sCurrentModifier = 1;
constinit Setting::RestoreList* Setting::sRestoreList = nullptr;
constinit Setting* Setting::sOrphanedSettings = nullptr;

namespace {

// The frame list exists from load to unload. pushAllSettings() also makes it on demand, so
// a snapshot opened by another module's static constructor before this one ran is kept.
struct RestoreListLifetime {
    RestoreListLifetime() {
        if (Setting::sRestoreList == nullptr) Setting::sRestoreList = new Setting::RestoreList;
    }
    ~RestoreListLifetime() {
        delete Setting::sRestoreList;
        Setting::sRestoreList = nullptr;
    }
} restoreListLifetime;

}  // namespace

Setting::Setting(SettingGroup& group, const QString& name, bool flag)
    : mName(name), mGroup(&group), mFlag(flag) {
    if (SettingGroup::isLive(&group)) {
        group.mSettings.push_back(this);
        return;
    }
    // Only the address is kept: the group's constructor matches on it when it runs.
    mOrphanNext = sOrphanedSettings;
    if (sOrphanedSettings != nullptr) sOrphanedSettings->mOrphanPrev = this;
    sOrphanedSettings = this;
}

Setting::~Setting() {
    // An orphan is in no array, and its group's storage may not hold a group yet. It also
    // stays on the orphan list: that is how the shipped library behaves, and callers are
    // told never to destroy a setting before its group exists.
    if (mGroup != nullptr && !isOrphaned()) {
        std::vector<Setting*>& list = mGroup->mSettings;
        auto it = std::find(list.begin(), list.end(), this);
        if (it != list.end()) list.erase(it);
    }
    mObservers.detachAll();
}

bool Setting::isOrphaned() const { return mOrphanPrev != nullptr || sOrphanedSettings == this; }

void Setting::notifyChanged() {
    mObservers.notify(&SettingObserver::onSettingChanged, SettingObserver::Event{this}, false);
    if (mGroup != nullptr && !isOrphaned()) {
        mGroup->mObservers.notify(&SettingGroupObserver::onGroupSettingChanged,
                                  SettingGroupObserver::Event{mGroup, this}, false);
    }
}

void Setting::notifyPreDelete() {
    mObservers.notify(&SettingObserver::onSettingPreDelete, SettingObserver::Event{this}, true);
}

void Setting::pushAllSettings() {
    if (sRestoreList == nullptr) sRestoreList = new RestoreList;
    sRestoreList->emplace_front();
}

bool Setting::popAllSettings() {
    if (!snapshotOpen()) return false;
    // A setting changed n times in the frame has n entries and n saved values, so popping
    // every entry brings it back to its value at push time.
    for (Setting* s : sRestoreList->front()) s->popSetting();
    sRestoreList->pop_front();
    return true;
}

void Setting::recordChange() {
    sRestoreList->front().push_front(this);
    pushSetting();
}

// int -------------------------------------------------------------------------------------

template <>
void TypedSetting<int>::fromString(const QString& text) {
    QString source = text;
    QTextStream in(&source, QIODevice::ReadOnly);
    int value = 0;
    in >> value;  // bad text leaves 0, and 0 is what gets set
    set(value);
}

template <>
QString TypedSetting<int>::toString() const {
    QString text;
    QTextStream(&text) << mValue;
    return text;
}

template <>
double TypedSetting<int>::getVal() const {
    return mValue;
}

template <>
void TypedSetting<int>::setVal(double value) {
    // Truncation toward zero; beyond int's range the conversion would be undefined, so
    // those values saturate and NaN becomes 0.
    int v = 0;
    if (std::isnan(value)) {
        v = 0;
    } else if (value >= 2147483647.0) {
        v = std::numeric_limits<int>::max();
    } else if (value <= -2147483648.0) {
        v = std::numeric_limits<int>::min();
    } else {
        v = static_cast<int>(value);
    }
    set(v);
}

template <>
unsigned int TypedSetting<int>::getType() const {
    return kIntSettingType;
}

// QString ---------------------------------------------------------------------------------

template <>
void TypedSetting<QString>::fromString(const QString& text) {
    // One word only: text with blanks does not survive toString() and back. Kept as the
    // shipped library has it.
    QString source = text;
    QTextStream in(&source, QIODevice::ReadOnly);
    QString word;
    in >> word;
    set(word);
}

template <>
QString TypedSetting<QString>::toString() const {
    QString text;
    QTextStream(&text) << mValue;
    return text;
}

template <>
double TypedSetting<QString>::getVal() const {
    return 0.0;
}

template <>
void TypedSetting<QString>::setVal(double) {
    // A number converts to no text at all, so the value stays; set() still stamps the
    // modifier, as the shipped library does.
    set(mValue);
}

template <>
unsigned int TypedSetting<QString>::getType() const {
    return kTextSettingType;
}

template class TypedSetting<int>;
template class TypedSetting<QString>;

IntSetting::IntSetting(SettingGroup& group, const QString& name, int value, bool flag)
    : TypedSetting<int>(group, name, value, flag) {}

IntSetting::~IntSetting() = default;

}  // namespace mirel
