#pragma once
// The delivery client library's six operations, in the order and with the
// arguments of the library, but in the tool's own types: texts are UTF-8,
// lists are vectors. The Win32 set turns them into the library's boundary
// types (mirel_types.h) and calls the library by ordinal.
#include <cstdint>
#include <string>
#include <vector>

#include "mirel_types.h"

namespace platform {

class Delivery {
public:
    virtual ~Delivery() = default;
    virtual std::int32_t MirelRunDownloads(const std::string& workspace, const std::vector<void*>& downloads) = 0;
    virtual void* MirelCreateDownload(const std::string& identity, std::int32_t expectedSize, bool flag,
                                      const std::vector<std::string>& urls,
                                      const std::vector<std::string>& thumbprints,
                                      const std::vector<std::string>& proxies, const std::string& pacUrl,
                                      const std::string& workspace, const std::string& checksum,
                                      std::int32_t reserved, std::int32_t payloadType) = 0;
    virtual void MirelDestroyDownload(void* download) = 0;
    virtual void MirelSetLogCallback(MirelLogCallback callback) = 0;
    virtual void MirelSetPemFile(const std::string& pemFile) = 0;
    virtual void MirelUseSystemCA(const bool* useSystemCA) = 0;
};

}  // namespace platform
