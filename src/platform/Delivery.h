#pragma once
#include "mirel_types.h"

namespace platform {

// The delivery client library's six operations.
class Delivery {
public:
    virtual ~Delivery() = default;
    virtual std::int32_t MirelRunDownloads(const NarrowText& workspace, const DownloadHandleList& downloads) = 0;
    virtual void* MirelCreateDownload(const NarrowText& identity, std::int32_t expectedSize, bool flag,
                                      NarrowTextList urls, NarrowTextList thumbprints, NarrowTextList proxies,
                                      const NarrowText& pacUrl, const NarrowText& workspace,
                                      const NarrowText& checksum, std::int32_t reserved,
                                      std::int32_t payloadType) = 0;
    virtual void MirelDestroyDownload(void* download) = 0;
    virtual void MirelSetLogCallback(MirelLogCallback callback) = 0;
    virtual void MirelSetPemFile(const NarrowText& pemFile) = 0;
    virtual void MirelUseSystemCA(const bool* useSystemCA) = 0;
};

}  // namespace platform
