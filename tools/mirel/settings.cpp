// mirel settings: every live settings group with its settings, and setting one of them with
// observers attached (and, on request, inside a snapshot that is rolled back).
#include <QStringList>

#include <algorithm>
#include <new>

#include "base/settings/observer.h"
#include "base/settings/setting.h"
#include "base/settings/settinggroup.h"
#include "command.h"

namespace mirel::tool {
namespace {

QString typeName(const Setting& s) {
    switch (s.getType()) {
        case kIntSettingType: return "int";
        case kTextSettingType: return "text";
        default: return QStringLiteral("type %1").arg(s.getType());
    }
}

// Text values are quoted so that an empty one shows.
QString shown(const Setting& s, const QString& text) {
    return s.getType() == kTextSettingType ? QStringLiteral("\"%1\"").arg(text) : text;
}

QJsonValue jsonValue(const Setting& s, const QString& text) {
    if (s.getType() == kIntSettingType) return text.toInt();
    return text;
}

// The default in its text form; null for types this tool does not know.
QString defaultText(const Setting& s) {
    if (const auto* i = dynamic_cast<const TypedSetting<int>*>(&s)) return QString::number(i->getDefault());
    if (const auto* t = dynamic_cast<const TypedSetting<QString>*>(&s)) return t->getDefault();
    return QString();
}

QJsonObject settingJson(const Setting& s) {
    return {{"name", s.getName()},
            {"type", typeName(s)},
            {"typeCode", static_cast<int>(s.getType())},
            {"value", jsonValue(s, s.toString())},
            {"default", jsonValue(s, defaultText(s))},
            {"modifier", static_cast<double>(s.getModifier())}};
}

void listGroups(Output& out) {
    QJsonArray groups;
    QTextStream& t = out.text();
    const int count = SettingGroup::getGroupCount();
    if (!out.json()) {
        t << QStringLiteral("%1 live group%2, newest first\n").arg(count).arg(count == 1 ? "" : "s");
    }
    for (int i = 0; i < count; ++i) {
        const SettingGroup* g = SettingGroup::getGroup(i);
        QJsonArray settings;
        QList<QStringList> rows{{"setting", "type", "value", "default", "modifier"}};
        for (int k = 0; k < g->getSettingCount(); ++k) {
            const Setting& s = *g->getSetting(k);
            settings.append(settingJson(s));
            rows.append({s.getName(), typeName(s), shown(s, s.toString()), shown(s, defaultText(s)),
                         QString::number(s.getModifier())});
        }
        groups.append(QJsonObject{{"name", g->getName()}, {"settings", settings}});
        if (out.json()) continue;
        t << QStringLiteral("\n%1 (%2 setting%3)\n")
                 .arg(g->getName())
                 .arg(g->getSettingCount())
                 .arg(g->getSettingCount() == 1 ? "" : "s");
        if (g->getSettingCount() == 0) continue;
        std::vector<qsizetype> width(5, 0);
        for (const QStringList& r : rows) {
            for (int c = 0; c < 5; ++c) width[c] = std::max(width[c], r[c].size());
        }
        for (const QStringList& r : rows) {
            t << " ";
            for (int c = 0; c < 5; ++c) t << "  " << r[c].leftJustified(c == 4 ? 0 : width[c]);
            t << "\n";
        }
    }
    out.data = QJsonObject{{"groupCount", count}, {"groups", groups}};
}

// Observers that write down what they are told ------------------------------------------------

struct EventLog {
    QJsonArray events;
    QStringList lines;
};

class Watcher : public SettingObserver {
public:
    Watcher(Setting& s, EventLog& log, const QString& label = "setting")
        : SettingObserver(s), mLog(log), mLabel(label) {}
    void onSettingChanged(const Event& e) override {
        const QString value = e.setting->toString();
        mLog.events.append(QJsonObject{{"observer", mLabel},
                                       {"event", "changed"},
                                       {"setting", e.setting->getName()},
                                       {"value", jsonValue(*e.setting, value)}});
        mLog.lines << QStringLiteral("%1 observer: %2 changed to %3")
                          .arg(mLabel, e.setting->getName(), shown(*e.setting, value));
    }
    void onSettingPreDelete(const Event&) override {}

private:
    EventLog& mLog;
    QString mLabel;
};

class GroupWatcher : public SettingGroupObserver {
public:
    GroupWatcher(SettingGroup& g, EventLog& log) : SettingGroupObserver(g), mLog(log) {}
    void onGroupSettingChanged(const Event& e) override {
        const QString value = e.setting->toString();
        mLog.events.append(QJsonObject{{"observer", "group"},
                                       {"event", "changed"},
                                       {"group", e.group->getName()},
                                       {"setting", e.setting->getName()},
                                       {"value", jsonValue(*e.setting, value)}});
        mLog.lines << QStringLiteral("group observer of \"%1\": %2 changed to %3")
                          .arg(e.group->getName(), e.setting->getName(), shown(*e.setting, value));
    }
    void onGroupPreDelete(const Event&) override {}

private:
    EventLog& mLog;
};

// Setting one value ---------------------------------------------------------------------------

struct SetRequest {
    QString path;  // GROUP/NAME
    QString value;
    bool asNumber = false;
    bool rollback = false;
    bool hasModifier = false;
    std::uint32_t modifier = 0;
};

Setting& findSetting(const QString& path, SettingGroup** group) {
    const qsizetype slash = path.lastIndexOf('/');
    if (slash <= 0 || slash == path.size() - 1) {
        throw UsageError(QStringLiteral("name the setting as GROUP/NAME (e.g. Version/osName), not '%1'").arg(path));
    }
    const QString groupName = path.left(slash);
    const QString name = path.mid(slash + 1);
    *group = SettingGroup::getGroup(groupName);
    if (*group == nullptr) {
        throw UsageError(QStringLiteral("no live group named '%1' (see 'mirel settings')").arg(groupName));
    }
    Setting* s = (*group)->getSetting(name);
    if (s == nullptr) {
        throw UsageError(QStringLiteral("group '%1' has no setting named '%2' (see 'mirel settings')")
                             .arg(groupName, name));
    }
    return *s;
}

void setOne(Output& out, const SetRequest& r) {
    SettingGroup* group = nullptr;
    Setting& s = findSetting(r.path, &group);
    double number = 0;
    if (r.asNumber) {
        bool ok = false;
        number = r.value.toDouble(&ok);
        if (!ok) throw UsageError(QStringLiteral("--number needs a number, not '%1'").arg(r.value));
    } else if (s.getType() == kIntSettingType) {
        bool ok = false;
        r.value.trimmed().toInt(&ok, 0);
        if (!ok) {
            throw UsageError(QStringLiteral("%1 holds an integer; '%2' is not one").arg(r.path, r.value));
        }
    }

    EventLog log;
    Watcher watcher(s, log);
    GroupWatcher groupWatcher(*group, log);
    if (r.hasModifier) Setting::sCurrentModifier = r.modifier;
    const QString before = s.toString();
    if (r.rollback) Setting::pushAllSettings();
    if (r.asNumber) {
        s.setVal(number);
    } else {
        s.fromString(r.value);
    }
    const QString after = s.toString();
    const qsizetype eventsBefore = log.events.size();
    QString restored;
    if (r.rollback) {
        Setting::popAllSettings();
        restored = s.toString();
    }

    out.data = QJsonObject{{"group", group->getName()},
                           {"setting", s.getName()},
                           {"type", typeName(s)},
                           {"input", r.value},
                           {"call", r.asNumber ? "setVal" : "fromString"},
                           {"before", jsonValue(s, before)},
                           {"after", jsonValue(s, after)},
                           {"changed", before != after},
                           {"modifier", static_cast<double>(s.getModifier())},
                           {"events", log.events}};
    if (r.rollback) {
        out.data["rolledBack"] = true;
        out.data["afterRollback"] = jsonValue(s, restored);
        out.data["eventsDuringRollback"] = static_cast<int>(log.events.size() - eventsBefore);
    }
    if (out.json()) return;
    QTextStream& t = out.text();
    t << QStringLiteral("%1/%2 (%3): %4(%5)\n")
             .arg(group->getName(), s.getName(), typeName(s), r.asNumber ? "setVal" : "fromString",
                  r.asNumber ? r.value : QStringLiteral("\"%1\"").arg(r.value));
    if (r.rollback) t << "  snapshot opened (pushAllSettings)\n";
    if (before != after) {
        t << QStringLiteral("  %1 -> %2, modifier %3\n").arg(shown(s, before), shown(s, after)).arg(s.getModifier());
    } else {
        t << QStringLiteral("  %1 unchanged, modifier stamped %2\n").arg(shown(s, after)).arg(s.getModifier());
    }
    if (log.lines.isEmpty()) t << "  no observer was told\n";
    for (const QString& line : log.lines) t << "  " << line << "\n";
    if (r.rollback) {
        t << QStringLiteral("  snapshot popped (popAllSettings): back to %1, observers told %2 more times\n")
                 .arg(shown(s, restored))
                 .arg(log.events.size() - eventsBefore);
    }
}

void configureSettings(QCommandLineParser& parser) {
    parser.addPositionalArgument("set", "Set one setting: set GROUP/NAME VALUE.", "[set GROUP/NAME VALUE]");
    parser.addOption({"number", "Set VALUE as a number through setVal instead of as text through fromString."});
    parser.addOption({"modifier", "Stamp the change with this modifier (0-4294967295).", "N"});
    parser.addOption({"rollback", "Set inside a snapshot, then roll the snapshot back."});
}

int runSettings(const QCommandLineParser& parser, Output& out) {
    const QStringList args = parser.positionalArguments();
    const bool setOptions = parser.isSet("number") || parser.isSet("modifier") || parser.isSet("rollback");
    if (args.isEmpty()) {
        if (setOptions) throw UsageError("--number, --modifier and --rollback go with 'set'");
        listGroups(out);
        return 0;
    }
    if (args.first() != "set") {
        throw UsageError(QStringLiteral("unknown action '%1': use 'mirel settings' or 'mirel settings set GROUP/NAME VALUE'")
                             .arg(args.first()));
    }
    if (args.size() != 3) throw UsageError("set takes two arguments: GROUP/NAME VALUE");
    SetRequest r;
    r.path = args[1];
    r.value = args[2];
    r.asNumber = parser.isSet("number");
    r.rollback = parser.isSet("rollback");
    if (parser.isSet("modifier")) {
        r.hasModifier = true;
        r.modifier = static_cast<std::uint32_t>(parseInteger(parser, "modifier", 0, 4294967295L));
    }
    setOne(out, r);
    return 0;
}

// A group constructed after its settings, as the statics of two modules may be.
void adoption(Output& out) {
    alignas(SettingGroup) unsigned char storage[sizeof(SettingGroup)];
    auto& late = *std::launder(reinterpret_cast<SettingGroup*>(storage));
    IntSetting spacing(late, "gridSpacing", 10);
    TypedSetting<QString> units(late, "units", "metric");
    auto* group = ::new (storage) SettingGroup("Map");
    IntSetting opacity(*group, "opacity", 80);

    QJsonArray order;
    for (int i = 0; i < group->getSettingCount(); ++i) order.append(group->getSetting(i)->getName());

    EventLog log;
    Watcher first(spacing, log, "older setting");
    Watcher second(spacing, log, "newer setting");  // told first
    GroupWatcher all(*group, log);
    Setting::pushAllSettings();
    spacing.set(20);
    spacing.set(25);
    units.fromString("imperial feet");
    const QString tried = QStringLiteral("%1, %2").arg(spacing.getValue()).arg(units.getValue());
    const qsizetype told = log.events.size();
    Setting::popAllSettings();
    const QString restored = QStringLiteral("%1, %2").arg(spacing.getValue()).arg(units.getValue());

    out.data = QJsonObject{{"group", group->getName()},
                           {"joiningOrder", order},
                           {"events", log.events},
                           {"duringSnapshot", tried},
                           {"afterRollback", restored},
                           {"eventsDuringRollback", static_cast<int>(log.events.size() - told)}};
    group->~SettingGroup();  // its settings live on, groupless
    if (out.json()) return;
    QTextStream& t = out.text();
    t << "gridSpacing and units were made before their group \"Map\", opacity after it.\n";
    t << "joining order (early ones adopted newest first):";
    for (const auto& name : order) t << " " << name.toString();
    t << "\nin a snapshot: gridSpacing 10 -> 20 -> 25, units fromString(\"imperial feet\")\n";
    for (const QString& line : log.lines) t << "  " << line << "\n";
    t << QStringLiteral("values then %1; after popAllSettings %2, with %3 observer calls\n")
             .arg(tried, restored)
             .arg(log.events.size() - told);
}

const Register settings{Command{"settings",
                                "List every live settings group, or set one setting with observers attached.",
                                configureSettings, runSettings, true}};
const Register tourList{TourStep{60, "Settings: the live groups", listGroups}};
const Register tourSet{TourStep{61, "Settings: set Version/osName with observers, in a snapshot rolled back",
                                [](Output& out) {
                                    SetRequest r;
                                    r.path = "Version/osName";
                                    r.value = "Linux";
                                    r.rollback = true;
                                    setOne(out, r);
                                }}};
const Register tourAdoption{TourStep{62, "Settings: a group constructed after its settings", adoption}};

}  // namespace
}  // namespace mirel::tool
