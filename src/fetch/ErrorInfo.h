#pragma once
// The tool's table of error names: platform codes of share access and of the
// installer, and the tool's own negative codes of the share copy and its
// verification. These names are what "ERRORCODE" carries to the management
// side, the descriptions what "ERRORDESC" carries.
#include <cstdint>

#include "core/string/corestring.h"

using CORE::corestring;

struct ErrorInfo {
    corestring description;
    corestring name;
};

// The system's text of the code is the description unless the table has one
// of its own ("Unknown error" when the system has none either); a code
// missing from the table is named by its unsigned decimal value.
ErrorInfo Util_GetErrorInfo(std::uint32_t code);
// The same, with the name put into the record's sErrorCode and the
// description into its sErrorDesc.
ErrorInfo Util_SetFailureFromCode(std::uint32_t code);
