// The project's own delivery client. In this version it keeps the caller's
// log callback and reports through it; the transfer itself is not part of it
// yet, so every download operation answers MIRELCLIENT_INIT_FAILED.
#include "ClientLog.h"
#include "mirel_types.h"

using mirel::log;
using mirel::textOf;

MIRELCLIENT_API void MirelSetLogCallback(MirelLogCallback callback)
{
    // Quiet here: the caller is usually still opening its own log.
    mirel::setLogCallback(callback);
}

MIRELCLIENT_API void MirelSetPemFile(const NarrowText& pemFile)
{
    log(3, "mirelclient: PEM file %s not taken: this client has no download support", textOf(pemFile));
}

MIRELCLIENT_API void MirelUseSystemCA(const bool* useSystemCA)
{
    log(3, "mirelclient: system CA (%d) not taken: this client has no download support",
        useSystemCA ? static_cast<int>(*useSystemCA) : -1);
}

MIRELCLIENT_API void* MirelCreateDownload(const NarrowText& identity, std::int32_t, bool, NarrowTextList,
                                          NarrowTextList, NarrowTextList, const NarrowText&, const NarrowText&,
                                          const NarrowText&, std::int32_t, std::int32_t)
{
    log(3, "mirelclient: download %s not created: this client has no download support", textOf(identity));
    return nullptr;
}

MIRELCLIENT_API std::int32_t MirelRunDownloads(const NarrowText& workspace, const DownloadHandleList&)
{
    log(3, "mirelclient: downloads into %s not run: this client has no download support (%d)", textOf(workspace),
        static_cast<int>(MIRELCLIENT_INIT_FAILED));
    return MIRELCLIENT_INIT_FAILED;
}

MIRELCLIENT_API void MirelDestroyDownload(void*) {}
