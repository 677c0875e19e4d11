// Referent's out-of-line members: the vtable lives here, in the library.
#include "base/foundation/referent.h"

namespace mirel {

Referent::~Referent() = default;

void Referent::orphaned() { delete this; }

}  // namespace mirel
