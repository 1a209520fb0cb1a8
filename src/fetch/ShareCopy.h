#pragma once
// Fetch from an SMB share; also the gate between fetching and installing.
#include "core/string/corestring.h"

using CORE::corestring;

// UPDATING: true, the copy was an earlier run. DOWNLOAD: copies (when the
// share type is "SMB") and returns false. Any other state: false.
bool Util_UNCDownload();
// Connects to the folder of sUNC, copies the file into the workspace,
// verifies it, disconnects. Always false: the outcome is in sResult.
bool CopyFromSMBshare();
// Copies source into the workspace under the file name of sUNC and verifies
// it. Always false: the outcome is in sResult.
bool Util_CopyFileFromUNC(const wchar_t* source);
// The text behind the last backslash of a copy of path with every / turned
// into \; the whole copy when there is no backslash.
corestring Util_GetFileNamePart(const corestring& path);
