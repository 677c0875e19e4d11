// Platform facts read from the Linux kernel and C library.
#include <unistd.h>

#include "base/system/system.h"

namespace mirel {

int System::getNumProcessors() { return static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)); }

}  // namespace mirel
