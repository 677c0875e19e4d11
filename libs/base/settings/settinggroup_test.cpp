#include "base/settings/settinggroup.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <vector>

#include "base/settings/setting.h"

namespace mirel {
namespace {

// Every live group, newest first, by walking the indices until null.
std::vector<SettingGroup*> walkGroups() {
    std::vector<SettingGroup*> list;
    for (int i = 0; SettingGroup* g = SettingGroup::getGroup(i); ++i) list.push_back(g);
    return list;
}

std::vector<Setting*> members(const SettingGroup& g) {
    std::vector<Setting*> list;
    for (int i = 0; i < g.getSettingCount(); ++i) list.push_back(g.getSetting(i));
    return list;
}

// The group list -----------------------------------------------------------------------------

TEST(SettingGroup, IndicesWalkFromTheNewestAndEndInNull) {
    const int before = SettingGroup::getGroupCount();
    SettingGroup* oldHead = SettingGroup::getGroup(0);
    SettingGroup g1("G1"), g2("G2"), g3("G3");
    EXPECT_EQ(SettingGroup::getGroupCount(), before + 3);
    EXPECT_EQ(SettingGroup::getGroup(0), &g3);
    EXPECT_EQ(SettingGroup::getGroup(1), &g2);
    EXPECT_EQ(SettingGroup::getGroup(2), &g1);
    EXPECT_EQ(SettingGroup::getGroup(3), oldHead);
    EXPECT_EQ(SettingGroup::getGroup(-5), &g3) << "below 1 is the head";
    EXPECT_EQ(SettingGroup::getGroup(before + 3), nullptr) << "one past the oldest";
    EXPECT_EQ(static_cast<int>(walkGroups().size()), SettingGroup::getGroupCount());
}

TEST(SettingGroup, DestroyingAnyGroupKeepsTheListWhole) {
    const std::vector<SettingGroup*> before = walkGroups();
    auto a = std::make_unique<SettingGroup>("A");
    auto b = std::make_unique<SettingGroup>("B");
    auto c = std::make_unique<SettingGroup>("C");
    b.reset();  // the middle
    std::vector<SettingGroup*> now = walkGroups();
    ASSERT_EQ(now.size(), before.size() + 2);
    EXPECT_EQ(now[0], c.get());
    EXPECT_EQ(now[1], a.get());
    c.reset();  // the head
    EXPECT_EQ(SettingGroup::getGroup(0), a.get());
    a.reset();
    EXPECT_EQ(walkGroups(), before);
    EXPECT_EQ(SettingGroup::getGroupCount(), static_cast<int>(before.size()));
}

TEST(SettingGroup, DuplicateNamesFindTheNewest) {
    SettingGroup older("Twin");
    {
        SettingGroup newer("Twin");
        EXPECT_EQ(SettingGroup::getGroup("Twin"), &newer);
    }
    EXPECT_EQ(SettingGroup::getGroup("Twin"), &older);
    EXPECT_EQ(SettingGroup::getGroup("twin"), nullptr) << "names compare exactly";
    EXPECT_EQ(SettingGroup::getGroup("NoSuchGroup"), nullptr);
}

// Settings in a group ------------------------------------------------------------------------

TEST(SettingGroup, SettingsKeepJoiningOrderAndLeaveOnDestruction) {
    SettingGroup g("Members");
    IntSetting a(g, "a", 1);
    auto b = std::make_unique<IntSetting>(g, "b", 2);
    TypedSetting<QString> c(g, "c", "x");
    IntSetting dup(g, "a", 4);
    EXPECT_EQ(members(g), (std::vector<Setting*>{&a, b.get(), &c, &dup}));
    b.reset();
    EXPECT_EQ(members(g), (std::vector<Setting*>{&a, &c, &dup}));
    EXPECT_EQ(g.getSetting("a"), &a) << "the first in array order";
    EXPECT_EQ(g.getSetting("c"), &c);
    EXPECT_EQ(g.getSetting("b"), nullptr);
    EXPECT_EQ(g.getSetting("A"), nullptr) << "case-sensitive";
}

TEST(SettingGroup, IndexOutsideTheArrayThrowsTheStandardError) {
    SettingGroup g("Bounds");
    IntSetting a(g, "a", 1);
    EXPECT_EQ(g.getSetting(0), &a);
    for (int bad : {1, -1, 1000}) {
        try {
            g.getSetting(bad);
            ADD_FAILURE() << "no throw for " << bad;
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), "vector [] access out of range");
        }
    }
    SettingGroup empty("Empty");
    EXPECT_THROW(empty.getSetting(0), std::out_of_range);
    EXPECT_EQ(empty.getSetting("a"), nullptr);
}

// Group lifetime -----------------------------------------------------------------------------

TEST(SettingGroup, SettingsOutliveTheirGroupGroupless) {
    auto g = std::make_unique<SettingGroup>("Doomed");
    IntSetting s(*g, "s", 1);
    TypedSetting<QString> t(*g, "t", "x");
    g.reset();
    EXPECT_EQ(s.getGroup(), nullptr);
    EXPECT_EQ(t.getGroup(), nullptr);
    s.set(2);
    t.fromString("y");
    EXPECT_EQ(s.getValue(), 2);
    EXPECT_EQ(t.getValue(), "y");
}

// Adoption -----------------------------------------------------------------------------------

// Storage for a group constructed after its settings, as a static of another module would be.
struct LateGroup {
    alignas(SettingGroup) unsigned char bytes[sizeof(SettingGroup)];
    SettingGroup& ref() { return *std::launder(reinterpret_cast<SettingGroup*>(bytes)); }
    SettingGroup* construct(const QString& name) { return ::new (bytes) SettingGroup(name); }
};

TEST(SettingGroup, AGroupAdoptsItsOrphansNewestFirstAndLeavesOthers) {
    LateGroup late, other;
    IntSetting first(late.ref(), "first", 1);
    IntSetting foreign1(other.ref(), "foreign1", 1);
    TypedSetting<QString> second(late.ref(), "second", "");
    IntSetting foreign2(other.ref(), "foreign2", 1);
    IntSetting third(late.ref(), "third", 3);

    third.set(30);  // a change before the group exists is kept
    SettingGroup* g = late.construct("Late");
    IntSetting fourth(*g, "fourth", 4);  // the group exists now: joins directly
    EXPECT_EQ(members(*g), (std::vector<Setting*>{&third, &second, &first, &fourth}));
    EXPECT_EQ(g->getSettingCount(), 4);
    EXPECT_EQ(third.getValue(), 30);

    SettingGroup* o = other.construct("Other");
    EXPECT_EQ(members(*o), (std::vector<Setting*>{&foreign2, &foreign1}))
        << "orphans of another group must survive the first adoption, newest first";

    g->~SettingGroup();
    o->~SettingGroup();
    EXPECT_EQ(first.getGroup(), nullptr);
    EXPECT_EQ(foreign1.getGroup(), nullptr);
}

}  // namespace
}  // namespace mirel
