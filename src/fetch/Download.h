#pragma once
// Fetch over HTTPS through the delivery client; also a gate like the share copy.
#include <cstdint>

#include "core/string/corestring.h"

using CORE::corestring;

// What the client is told the payload is.
enum class MirelClientPayloadType : std::int32_t {
    EXE = 0,  // one file, named after the first URL
    TAR = 1,  // an archive whose content lands in the workspace
    ZIP = 2,  // never chosen; named for the log only
};

// "MirelClientPayloadType::EXE" and so on; "PayloadType ERR_%d" for others.
corestring PayloadTypeText(std::int32_t type);

// UPDATING: true, the download was an earlier run. DOWNLOAD: chooses the
// certificate check, names the local file (sFileName), runs the client and
// puts its outcome into sResult, sErrorCode and sErrorDesc; false. Any
// other state: false.
bool Util_DoDownload();

// "%xx" becomes the one character wcstol(xx, 16) gives, "+" a blank; each
// value is one wide character, and a "%" too near the end stays.
corestring Util_UrlDecode(const corestring& text);
