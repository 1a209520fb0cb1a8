#include "fetch/Workspace.h"

#include "core/log/LogLine.h"
#include "fetch/DeliveryLog.h"
#include "platform/Services.h"
#include "update/UpdateRecord.h"

namespace {
corestring g_workspace;
}

corestring Util_GetParentPath(const corestring& path)
{
    corestring copy = corestring::toBackslashes(path.c_str());
    std::uint64_t last = corestring::npos;
    for (std::uint64_t i = copy.length(); i > 0; --i) {
        if (copy.charAt(i - 1) == L'\\') {
            last = i - 1;
            break;
        }
    }
    if (last == corestring::npos)
        return corestring();
    return copy.left(last);
}

corestring Util_GetWorkspace()
{
    if (!g_workspace.empty())
        return g_workspace;

    wchar_t buffer[261] = {};
    DWORD n = platform::files().GetTempPathW(260, buffer);
    if (n == 0 || n > 260)
        wcscpy(buffer, L"C:\\Temp");

    g_workspace = buffer;
    g_workspace.appendPath(L"updatetool-data");
    if (platform::files().GetFileAttributesW(g_workspace.c_str()) == INVALID_FILE_ATTRIBUTES &&
        !platform::files().CreateDirectoryW(g_workspace.c_str())) {
        // Work straight in the temporary directory rather than not at all.
        g_workspace = Util_GetParentPath(corestring(buffer));
    }

    // The one point where the delivery client learns of the tool's log.
    platform::delivery().MirelSetLogCallback(DeliveryLogCallback);
    return g_workspace;
}

bool UtilCleanupWorkspace()
{
    const corestring& file = g_updateRecord.sFileName;
    if (file.empty())
        return true;
    if (platform::files().DeleteFileW(file.c_str()))
        return true;
    LogLine(L"%s: delete failed: %s error: %s", L"UtilCleanupWorkspace", file.c_str(),
            CORE::errorText(::GetLastError()).c_str());
    return false;
}

void Util_ResetWorkspaceForTest() { g_workspace = corestring(); }
