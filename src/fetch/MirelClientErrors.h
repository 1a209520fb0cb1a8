#pragma once
// The result codes of the delivery client's MirelRunDownloads, with the name
// that "ERRORCODE" carries and the description that "ERRORDESC" carries.
#include <cstdint>

#include "fetch/ErrorInfo.h"

// The row of the code; a code outside the table is "MIRELCLIENT_MAXCOUNT",
// "Unknown MIREL client error".
ErrorInfo MirelClientError(std::int32_t code);
