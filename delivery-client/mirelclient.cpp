// The six operations of mirelclient.dll: the boundary's texts and lists
// turned into the client's own, the rest done by the client's library.
#include <windows.h>

#include <string>
#include <vector>

#include "BoundaryText.h"
#include "ClientLog.h"
#include "DownloadRegistry.h"
#include "Outcome.h"
#include "TextUtil.h"
#include "TrustChoice.h"
#include "mirel_types.h"

using mirel::log;

namespace {

void copyText(const NarrowText* text, const char* name, std::string& out, std::vector<std::string>& refused)
{
    std::string why;
    if (!text) {
        refused.push_back(std::string(name) + ": null");
        return;
    }
    if (!mirel::readText(*text, out, why))
        refused.push_back(std::string(name) + ": " + why);
}

void noteList(const char* name, const mirel::TakenList& list)
{
    if (list.notReleased > 0)
        log(mirel::kWarning, "mirelclient: %u block(s) of the %s list were not the process heap's and were left alone",
            static_cast<unsigned>(list.notReleased), name);
}

}  // namespace

MIRELCLIENT_API void MirelSetLogCallback(MirelLogCallback callback)
{
    // Quiet here: the caller is usually still opening its own log.
    mirel::setLogCallback(callback);
}

MIRELCLIENT_API void MirelSetPemFile(const NarrowText& pemFile)
{
    try {
        std::string path;
        std::string why;
        const bool valid = mirel::readText(pemFile, path, why);
        mirel::choosePemFile(path, valid, why);
        if (valid)
            log(mirel::kInfo, "mirelclient: certificate check: the CA file %s", mirel::forLog(path).c_str());
        else
            log(mirel::kError, "mirelclient: the CA file's path is malformed (%s); downloads will fail with %d",
                why.c_str(), static_cast<int>(MIRELCLIENT_PEM_FILE_FAILED));
    } catch (...) {
        mirel::choosePemFile(std::string(), false, "it could not be copied (internal error)");
        log(mirel::kError, "mirelclient: the CA file's path could not be taken (internal error)");
    }
}

MIRELCLIENT_API void MirelUseSystemCA(const bool* useSystemCA)
{
    if (!useSystemCA) {
        log(mirel::kWarning, "mirelclient: MirelUseSystemCA called with a null pointer; nothing changed");
        return;
    }
    mirel::chooseSystemCa(*useSystemCA);
    log(mirel::kInfo, "mirelclient: certificate check: %s",
        *useSystemCA ? "the system's trusted CAs" : "no CA chosen (thumbprints if given, else the system's CAs)");
}

MIRELCLIENT_API void* MirelCreateDownload(const NarrowText& identity, std::int32_t expectedSize, bool flag,
                                          NarrowTextList urls, NarrowTextList thumbprints, NarrowTextList proxies,
                                          const NarrowText& pacUrl, const NarrowText& workspace,
                                          const NarrowText& checksum, std::int32_t reserved, std::int32_t payloadType)
{
    try {
        // The lists are ours from here: copied and given back at once, whatever
        // happens next.
        mirel::DownloadRequest request;
        request.urls = mirel::takeList(urls);
        request.thumbprints = mirel::takeList(thumbprints);
        request.proxies = mirel::takeList(proxies);
        noteList("URL", request.urls);
        noteList("thumbprint", request.thumbprints);
        noteList("proxy", request.proxies);
        copyText(&identity, "identity", request.identity, request.refusedTexts);
        const std::string identityText = request.identity;
        copyText(&pacUrl, "PAC URL", request.pacUrl, request.refusedTexts);
        copyText(&workspace, "workspace", request.workspace, request.refusedTexts);
        copyText(&checksum, "checksum", request.checksum, request.refusedTexts);
        request.expectedSize = expectedSize;
        request.flag = flag;
        request.reserved = reserved;
        request.payloadType = payloadType;
        request.trust = mirel::currentTrustChoice();
        if (!flag)
            log(mirel::kDebug, "mirelclient: the create flag is false; it has no effect in this client");
        if (reserved != 0)
            log(mirel::kDebug, "mirelclient: the reserved argument is %d; it has no effect",
                static_cast<int>(reserved));

        void* download = mirel::createDownload(std::move(request));
        if (download)
            log(mirel::kDebug, "mirelclient: download %s created (%p)", mirel::forLog(identityText, 100).c_str(),
                download);
        return download;
    } catch (...) {
        // Memory ran out while copying: the caller's run then reports the
        // missing download (2).
        log(mirel::kError, "mirelclient: the download could not be created (internal error)");
        return nullptr;
    }
}

MIRELCLIENT_API std::int32_t MirelRunDownloads(const NarrowText& workspace, const DownloadHandleList& list)
{
    try {
        std::string runWorkspace;
        std::string why;
        if (!mirel::readText(workspace, runWorkspace, why))
            log(mirel::kWarning,
                "mirelclient: the run's workspace argument is malformed (%s); each download uses its own", why.c_str());
        std::vector<void*> handles;
        if (!mirel::readHandles(list, handles, why)) {
            log(mirel::kError, "mirelclient: the list of downloads is malformed (%s): %d (%s)", why.c_str(),
                static_cast<int>(MIRELCLIENT_QUEUE_DOWNLOAD_FAILED),
                mirel::resultName(MIRELCLIENT_QUEUE_DOWNLOAD_FAILED));
            return MIRELCLIENT_QUEUE_DOWNLOAD_FAILED;
        }
        return mirel::runDownloads(runWorkspace, handles);
    } catch (...) {
        log(mirel::kError, "mirelclient: the run stopped on an internal error: %d (%s)",
            static_cast<int>(MIRELCLIENT_DOWNLOAD_FAILED), mirel::resultName(MIRELCLIENT_DOWNLOAD_FAILED));
        return MIRELCLIENT_DOWNLOAD_FAILED;
    }
}

MIRELCLIENT_API void MirelDestroyDownload(void* handle) { mirel::destroyDownload(handle); }
