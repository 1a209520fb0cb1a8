#include "fetch/ShareCopy.h"

#include <vector>

#include "core/log/LogLine.h"
#include "fetch/ErrorInfo.h"
#include "fetch/FetchGate.h"
#include "fetch/Verification.h"
#include "fetch/Workspace.h"
#include "platform/Services.h"
#include "update/UpdateRecord.h"

bool Util_UNCDownload()
{
    FetchGate gate = Util_FetchGate(L"Util_UNCDownload");
    if (gate != FetchGate::Fetch)
        return gate == FetchGate::Install;

    UpdateRecord& r = g_updateRecord;
    // Exact and case-sensitive: "smb" is refused.
    if (CORE::keywordEquals(r.sShareType.c_str(), L"SMB", false))
        return CopyFromSMBshare();

    LogLine(L"%s: Invalid Share type: %s", L"Util_UNCDownload", r.sShareType.c_str());
    Util_SetFailureFromCode(static_cast<std::uint32_t>(-1));
    r.sResult = L"FAILURE";
    return false;
}

bool CopyFromSMBshare()
{
    UpdateRecord& r = g_updateRecord;
    // The file's folder, not the share's root, is what gets connected.
    corestring folder = Util_GetParentPath(r.sUNC);

    NETRESOURCEW resource{};
    resource.dwScope = 0;
    resource.dwType = RESOURCETYPE_DISK;
    resource.dwDisplayType = 0;
    resource.dwUsage = 0;
    resource.lpLocalName = nullptr;
    resource.lpRemoteName = const_cast<LPWSTR>(folder.c_str());
    resource.lpComment = nullptr;
    resource.lpProvider = nullptr;

    // No credentials: the connection runs as the process's own identity.
    DWORD code = platform::network().WNetAddConnection2W(&resource, nullptr, nullptr, 0);
    if (code != NO_ERROR) {
        ErrorInfo info = Util_SetFailureFromCode(code);
        LogLine(L"%s: Error Connecting to the SMB share: %s, Error: %s", L"CopyFromSMBshare", folder.c_str(),
                info.description.c_str());
        r.sResult = L"FAILURE";
        return false;
    }

    bool copied = Util_CopyFileFromUNC(r.sUNC.c_str());

    code = platform::network().WNetCancelConnection2W(folder.c_str(), CONNECT_UPDATE_PROFILE, TRUE);
    if (code != NO_ERROR) {
        // Only logged: the copy's outcome stands.
        corestring number = corestring::fromNumber(static_cast<std::uint32_t>(code), 10);
        LogLine(L"%s: Error Disconnecting the device: %s Error, %s", L"CopyFromSMBshare", folder.c_str(),
                number.c_str());
    }
    return copied;
}

bool Util_CopyFileFromUNC(const wchar_t* source)
{
    const wchar_t* tag = L"Util_CopyFileFromUNC";
    UpdateRecord& r = g_updateRecord;
    LogLine(L"%s: Copying file from source %s", tag, source);

    corestring workspace = Util_GetWorkspace();
    corestring name = Util_GetFileNamePart(r.sUNC);
    corestring destination = workspace;
    destination.appendPath(name.c_str());
    // Named before the copy, so that the record names it even when the copy fails.
    r.sFileName = destination;

    if (!platform::files().CopyFileW(source, destination.c_str(), FALSE)) {
        DWORD error = ::GetLastError();
        ErrorInfo info = Util_SetFailureFromCode(error);
        LogLine(L"%s: File copy failed DestFile: %s, Error:%s", tag, destination.c_str(),
                info.description.c_str());
        r.sResult = L"FAILURE";
        return false;
    }

    LogLine(L"%s: File copy done at destination %s", tag, destination.c_str());
    r.sResult = L"OK";

    if (!Util_CompareFileSize(destination.c_str())) {
        r.sResult = L"FAILURE";
        return false;
    }

    std::vector<unsigned char> digest;
    if (!Util_ComputeCheckSum(destination.c_str(), digest)) {
        r.sResult = L"FAILURE";
        return false;
    }
    // Sets sResult to "FAILURE" itself on a mismatch.
    Util_CompareCheckSum(digest);
    return false;
}

corestring Util_GetFileNamePart(const corestring& path)
{
    corestring copy = corestring::toBackslashes(path.c_str());
    for (std::uint64_t i = copy.length(); i > 0; --i)
        if (copy.charAt(i - 1) == L'\\')
            return copy.mid(i, copy.length() - i);
    return copy;
}
