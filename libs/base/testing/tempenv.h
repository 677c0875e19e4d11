// A temporary home for tests that use the real settings store or the user's folders, so that
// no test reads or writes the files of the person running it.
#pragma once

#include <QString>

namespace mirel::testing {

// The process's temporary home: made on the first call, with HOME and XDG_CONFIG_HOME
// pointed at it, and removed at exit. Qt reads these once, at the first QSettings or
// QStandardPaths look-up, so call it before those: from a namespace-scope initialiser.
QString temporaryHome();

}  // namespace mirel::testing
