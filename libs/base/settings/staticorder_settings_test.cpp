// The settings of the static-construction test, in a translation unit apart from their
// groups.
#include "base/settings/staticorder_test.h"

namespace statictest {

mirel::IntSetting a1 __attribute__((init_priority(1000)))(gLate, "a1", 1);
mirel::IntSetting x1 __attribute__((init_priority(1001)))(gLater, "x1", 1);
mirel::TypedSetting<QString> a2 __attribute__((init_priority(1002)))(gLate, "a2", "two");
mirel::IntSetting e1 __attribute__((init_priority(1200)))(gEarly, "e1", 1);
mirel::IntSetting c1 __attribute__((init_priority(1500)))(gLate, "c1", 1);
mirel::TypedSetting<QString> x2 __attribute__((init_priority(1600)))(gLater, "x2", "");

namespace {

// Another module's initialiser changing a setting whose group is not constructed yet.
struct EarlyWriter {
    EarlyWriter() {
        x2.fromString("early");
        gObservedBeforeAdoption = x2.getValue() == "early" ? 1 : 0;
    }
} earlyWriter __attribute__((init_priority(1700)));

}  // namespace

mirel::IntSetting a3 __attribute__((init_priority(3000)))(gLate, "a3", 3);

}  // namespace statictest
