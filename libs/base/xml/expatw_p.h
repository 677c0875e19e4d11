// The UTF-16 expat (libexpatw), reached through a table of the few functions the reader
// uses. The library is loaded on first use with its symbols kept local: its XML_* names
// are the same as the UTF-8 expat's, and in the global scope they would capture other
// users of expat in the process (fontconfig, below Qt's GUI).
#pragma once

#include <expat.h>

#include <QString>

namespace mirel::detail {

struct ExpatW {
    decltype(&XML_ParserCreate) parserCreate;
    decltype(&XML_ParserFree) parserFree;
    decltype(&XML_SetUserData) setUserData;
    decltype(&XML_SetElementHandler) setElementHandler;
    decltype(&XML_SetCharacterDataHandler) setCharacterDataHandler;
    decltype(&XML_Parse) parse;
    decltype(&XML_GetErrorCode) getErrorCode;
    decltype(&XML_ErrorString) errorString;
    decltype(&XML_GetCurrentLineNumber) getCurrentLineNumber;
    decltype(&XML_GetCurrentColumnNumber) getCurrentColumnNumber;
};

// The table, loaded once by the first caller (thread-safe) and kept for the process's life;
// null when libexpatw or one of its functions cannot be found, with the reason in `why`.
const ExpatW* expatW(QString* why = nullptr);

}  // namespace mirel::detail
