#include "platform/win32/DeliveryWire.h"
#include "platform/win32/Win32Services.h"

namespace platform {

// mirelclient.dll is imported by ordinal through its import library. Texts
// passed by reference are lent for the call; lists go by value and become
// the library's (DeliveryWire.h).

std::int32_t Win32Delivery::MirelRunDownloads(const std::string& workspace, const std::vector<void*>& downloads)
{
    std::vector<void*> handles(downloads);
    DownloadHandleList list{handles.data(), handles.data() + handles.size(), handles.data() + handles.size()};
    return ::MirelRunDownloads(WireText(workspace).get(), list);
}

void* Win32Delivery::MirelCreateDownload(const std::string& identity, std::int32_t expectedSize, bool flag,
                                         const std::vector<std::string>& urls,
                                         const std::vector<std::string>& thumbprints,
                                         const std::vector<std::string>& proxies, const std::string& pacUrl,
                                         const std::string& workspace, const std::string& checksum,
                                         std::int32_t reserved, std::int32_t payloadType)
{
    return ::MirelCreateDownload(WireText(identity).get(), expectedSize, flag, GiveAwayList(urls),
                                 GiveAwayList(thumbprints), GiveAwayList(proxies), WireText(pacUrl).get(),
                                 WireText(workspace).get(), WireText(checksum).get(), reserved, payloadType);
}

void Win32Delivery::MirelDestroyDownload(void* download) { ::MirelDestroyDownload(download); }

void Win32Delivery::MirelSetLogCallback(MirelLogCallback callback) { ::MirelSetLogCallback(callback); }

void Win32Delivery::MirelSetPemFile(const std::string& pemFile) { ::MirelSetPemFile(WireText(pemFile).get()); }

void Win32Delivery::MirelUseSystemCA(const bool* useSystemCA) { ::MirelUseSystemCA(useSystemCA); }

}  // namespace platform
