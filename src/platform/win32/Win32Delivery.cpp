#include "platform/win32/Win32Services.h"

namespace platform {

// mirelclient.dll is imported by ordinal through its import library.

std::int32_t Win32Delivery::MirelRunDownloads(const NarrowText& workspace, const DownloadHandleList& downloads)
{
    return ::MirelRunDownloads(workspace, downloads);
}

void* Win32Delivery::MirelCreateDownload(const NarrowText& identity, std::int32_t expectedSize, bool flag,
                                         NarrowTextList urls, NarrowTextList thumbprints, NarrowTextList proxies,
                                         const NarrowText& pacUrl, const NarrowText& workspace,
                                         const NarrowText& checksum, std::int32_t reserved, std::int32_t payloadType)
{
    return ::MirelCreateDownload(identity, expectedSize, flag, urls, thumbprints, proxies, pacUrl, workspace, checksum,
                                 reserved, payloadType);
}

void Win32Delivery::MirelDestroyDownload(void* download) { ::MirelDestroyDownload(download); }

void Win32Delivery::MirelSetLogCallback(MirelLogCallback callback) { ::MirelSetLogCallback(callback); }

void Win32Delivery::MirelSetPemFile(const NarrowText& pemFile) { ::MirelSetPemFile(pemFile); }

void Win32Delivery::MirelUseSystemCA(const bool* useSystemCA) { ::MirelUseSystemCA(useSystemCA); }

}  // namespace platform
