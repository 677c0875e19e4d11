// mirel sysinfo: what the library knows of this machine.
#include "base/system/system.h"
#include "command.h"

namespace mirel::tool {
namespace {

void describe(Output& out) {
    const int processors = System::getNumProcessors();
    out.data = QJsonObject{{"processors", processors}};
    if (!out.json()) out.text() << QStringLiteral("processors: %1\n").arg(processors);
}

const Register sysinfo{Command{"sysinfo", "What the library knows of this machine.", nullptr,
                               [](const QCommandLineParser&, Output& out) {
                                   describe(out);
                                   return 0;
                               }}};
const Register tourStep{TourStep{0, "System: this machine", describe}};

}  // namespace
}  // namespace mirel::tool
