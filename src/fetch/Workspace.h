#pragma once
#include "core/string/corestring.h"

using CORE::corestring;

// The one local directory where the payload lands: "updatetool-data" below
// the temporary directory, found or made on first use and kept.
corestring Util_GetWorkspace();
// Deletes the payload named by the record's sFileName.
bool UtilCleanupWorkspace();
// A copy with every / turned into \, cut before the last backslash; empty
// when there is none.
corestring Util_GetParentPath(const corestring& path);
// Forgets the cached path, so a test can start from the first call again.
void Util_ResetWorkspaceForTest();
