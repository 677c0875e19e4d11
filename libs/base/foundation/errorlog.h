// ErrorLog: one timestamped line on a log stream, usually LM_ERROR or LM_NOTICE.
#pragma once

#include <QString>

#include <cstdio>

#include "base/mirel_export.h"

namespace mirel {

// Writes "<seconds since load, %f>: <message>" to `stream` and flushes it. No line end is
// added: messages carry their own. The text appears whichever orientation the stream has
// taken (wide streams get wide characters, all others UTF-8). A null stream writes
// nothing. Always true. Thread-safe as far as the C library's stream locking goes.
MIREL_EXPORT bool ErrorLog(FILE* stream, const QString& message);

}  // namespace mirel
