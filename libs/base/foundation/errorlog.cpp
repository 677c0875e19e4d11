// The timestamped log line, written in whatever orientation the stream already has.
#include "base/foundation/errorlog.h"

#include <cwchar>
#include <string>

#include "base/foundation/textconversion.h"
#include "base/system/system.h"

namespace mirel {

bool ErrorLog(FILE* stream, const QString& message) {
    if (stream == nullptr) return true;
    const std::wstring wide = toWString(message);
    const double now = System::getTime();

    wchar_t stamp[64];
    std::swprintf(stamp, sizeof stamp / sizeof *stamp, L"%f: ", now);
    // The message ends at its first 0 character, as "%S" would read it: the zeros that
    // toWString() leaves after combined pairs never reach the stream.
    std::wstring line(stamp);
    line.append(wide.c_str());

    // A glibc stream takes one orientation for good at its first use, and a wide write on
    // a byte stream writes nothing. Standard error is nearly always a byte stream (every
    // narrow fprintf makes it one), so bytes are also the choice for a fresh stream.
    if (fwide(stream, 0) > 0) {
        std::fputws(line.c_str(), stream);
    } else {
        std::fputs(toQString(line).toUtf8().constData(), stream);
    }
    std::fflush(stream);
    return true;
}

}  // namespace mirel
