// "APP", subsystem 0: the messages of the library's own status words.
#include "base/status/statusregistry_p.h"

namespace mirel {

StatusSubsysApp::StatusSubsysApp() : StatusSubsys(0, QStringLiteral("APP")) {}

const QString& StatusSubsysApp::getErrorString(StatusCode status) const {
    static const QString none;
    const unsigned code = statusCode(status);
    switch (statusSeverity(status)) {
        case kSeverityError: {
            // Index 21 has never had a message.
            static const QString errors[23] = {
                QStringLiteral("Invalid argument"),
                QStringLiteral("Object already active"),
                QStringLiteral("Cache node not valid"),
                QStringLiteral("No reference held"),
                QStringLiteral("Decode failed"),
                QStringLiteral("No more memory"),
                QStringLiteral("File not found"),
                QStringLiteral("File open failed"),
                QStringLiteral("I/O failed"),
                QStringLiteral("No sockets available"),
                QStringLiteral("Hostname not valid"),
                QStringLiteral("Connect failed"),
                QStringLiteral("Socket not connected"),
                QStringLiteral("Socket receive timed out"),
                QStringLiteral("Received invalid response"),
                QStringLiteral("Texture already defined"),
                QStringLiteral("Object already exists"),
                QStringLiteral("Entry is defunct"),
                QStringLiteral("Not implemented"),
                QStringLiteral("Requested URL not found"),
                QStringLiteral("Requested URL not valid"),
                QString(),
                QStringLiteral("Attempt to read past end of file"),
            };
            // The library never passes a code outside the table, but a word typed in by a
            // person may hold one: it has no message rather than someone else's memory.
            if (code < std::size(errors)) return errors[code];
            break;
        }
        case kSeverityInfo: {
            // Info codes start at 128.
            static const QString infos[2] = {QStringLiteral("Action in progress"),
                                             QStringLiteral("Action already queued")};
            if (code >= 128 && code - 128 < std::size(infos)) return infos[code - 128];
            break;
        }
        default:
            break;
    }
    return none;
}

}  // namespace mirel
