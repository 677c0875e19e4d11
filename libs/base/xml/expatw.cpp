// Loads libexpatw with RTLD_LOCAL. expat calls its own functions directly (no PLT entries
// for XML_*), so the loaded copy never binds to the UTF-8 expat either.
#include "base/xml/expatw_p.h"

#include <dlfcn.h>

namespace mirel::detail {
namespace {

struct Loaded {
    ExpatW table{};
    QString failure;
};

template <typename F>
bool bind(void* handle, const char* name, F& slot, QString& failure) {
    slot = reinterpret_cast<F>(dlsym(handle, name));
    if (slot == nullptr && failure.isEmpty()) {
        failure = QStringLiteral("libexpatw lacks %1").arg(QString::fromLatin1(name));
    }
    return slot != nullptr;
}

Loaded load() {
    Loaded l;
    void* handle = nullptr;
    for (const char* name : {"libexpatw.so.1", "libexpatw.so"}) {
        handle = dlopen(name, RTLD_NOW | RTLD_LOCAL);
        if (handle != nullptr) break;
    }
    if (handle == nullptr) {
        const char* reason = dlerror();
        l.failure = QStringLiteral("Could not load libexpatw: %1")
                        .arg(reason != nullptr ? QString::fromLocal8Bit(reason) : QString());
        return l;
    }
    // Never closed: trees and messages may outlive any reader, and the copy is small.
    ExpatW& t = l.table;
    bool ok = bind(handle, "XML_ParserCreate", t.parserCreate, l.failure);
    ok &= bind(handle, "XML_ParserFree", t.parserFree, l.failure);
    ok &= bind(handle, "XML_SetUserData", t.setUserData, l.failure);
    ok &= bind(handle, "XML_SetElementHandler", t.setElementHandler, l.failure);
    ok &= bind(handle, "XML_SetCharacterDataHandler", t.setCharacterDataHandler, l.failure);
    ok &= bind(handle, "XML_Parse", t.parse, l.failure);
    ok &= bind(handle, "XML_GetErrorCode", t.getErrorCode, l.failure);
    ok &= bind(handle, "XML_ErrorString", t.errorString, l.failure);
    ok &= bind(handle, "XML_GetCurrentLineNumber", t.getCurrentLineNumber, l.failure);
    ok &= bind(handle, "XML_GetCurrentColumnNumber", t.getCurrentColumnNumber, l.failure);
    // A copy built for UTF-8 under this name would hand the handlers bytes, not UTF-16 units.
    decltype(&XML_GetFeatureList) features = nullptr;
    ok &= bind(handle, "XML_GetFeatureList", features, l.failure);
    if (ok) {
        bool utf16 = false;
        for (const XML_Feature* f = features(); f->feature != XML_FEATURE_END; ++f) {
            utf16 |= f->feature == XML_FEATURE_UNICODE;
        }
        if (!utf16) {
            ok = false;
            l.failure = QStringLiteral("libexpatw is not built for UTF-16");
        }
    }
    if (!ok) l.table = ExpatW{};
    return l;
}

}  // namespace

const ExpatW* expatW(QString* why) {
    static const Loaded loaded = load();
    if (loaded.table.parse == nullptr) {
        if (why != nullptr) *why = loaded.failure;
        return nullptr;
    }
    return &loaded.table;
}

}  // namespace mirel::detail
