#include "base/testing/tempenv.h"

#include <QTemporaryDir>

#include <cstdlib>

namespace mirel::testing {

QString temporaryHome() {
    static const QString home = [] {
        // Static so that it outlives every test and is removed when the process ends.
        static QTemporaryDir dir;
        setenv("HOME", qPrintable(dir.path()), 1);
        setenv("XDG_CONFIG_HOME", qPrintable(dir.path()), 1);
        return dir.path();
    }();
    return home;
}

}  // namespace mirel::testing
