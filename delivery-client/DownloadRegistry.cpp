#include "DownloadRegistry.h"

#include <exception>
#include <mutex>
#include <new>
#include <set>

#include "ClientLog.h"
#include "Outcome.h"
#include "TextUtil.h"

namespace mirel {

namespace {

struct Registry {
    std::mutex lock;
    std::set<Download*> live;
    std::set<Download*> running;
    std::set<Download*> destroyLater;
};

Registry& registry()
{
    // Never destroyed: a caller may still hold handles while statics go.
    static Registry* instance = new Registry;
    return *instance;
}

// Takes the download for a run, or says why it can't be run.
std::int32_t claim(Registry& r, void* handle, std::size_t index)
{
    auto* download = static_cast<Download*>(handle);
    std::lock_guard<std::mutex> guard(r.lock);
    std::int32_t code = MIRELCLIENT_SUCCESS;
    if (!download) {
        code = MIRELCLIENT_CREATE_CLIENT_FAILED;
        log(kError, "mirelclient: download %u of the run is null (it was never created): %d (%s)",
            static_cast<unsigned>(index + 1), static_cast<int>(code), resultName(code));
    } else if (!r.live.count(download)) {
        code = MIRELCLIENT_CREATE_CLIENT_FAILED;
        log(kError, "mirelclient: download %u of the run (%p) is not a live download of this client: %d (%s)",
            static_cast<unsigned>(index + 1), handle, static_cast<int>(code), resultName(code));
    } else if (r.running.count(download)) {
        code = MIRELCLIENT_DOWNLOAD_PENDING;
        log(kError, "mirelclient: download %s is already running in another call: %d (%s)",
            forLog(download->identity(), 100).c_str(), static_cast<int>(code), resultName(code));
    } else {
        r.running.insert(download);
    }
    return code;
}

void release(Registry& r, Download* download)
{
    std::lock_guard<std::mutex> guard(r.lock);
    r.running.erase(download);
    if (r.destroyLater.erase(download)) {
        r.live.erase(download);
        delete download;
    }
}

// A run that throws (memory, a thread that can't start) ends as a failed
// download instead of unwinding into the caller.
std::int32_t runGuarded(Download& download)
{
    try {
        return download.run();
    } catch (const std::exception& e) {
        log(kError, "mirelclient: download %s stopped by an internal error (%s): %d (%s)",
            forLog(download.identity(), 100).c_str(), e.what(), static_cast<int>(MIRELCLIENT_DOWNLOAD_FAILED),
            resultName(MIRELCLIENT_DOWNLOAD_FAILED));
    } catch (...) {
        log(kError, "mirelclient: download %s stopped by an internal error: %d (%s)",
            forLog(download.identity(), 100).c_str(), static_cast<int>(MIRELCLIENT_DOWNLOAD_FAILED),
            resultName(MIRELCLIENT_DOWNLOAD_FAILED));
    }
    return MIRELCLIENT_DOWNLOAD_FAILED;
}

}  // namespace

void* createDownload(DownloadRequest request)
{
    Download* download = new (std::nothrow) Download(std::move(request));
    if (!download) {
        log(kError, "mirelclient: no memory for a download");
        return nullptr;
    }
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    r.live.insert(download);
    return download;
}

std::int32_t runDownloads(const std::string& runWorkspace, const std::vector<void*>& handles)
{
    if (handles.empty()) {
        log(kError, "mirelclient: the run holds no download: %d (%s)",
            static_cast<int>(MIRELCLIENT_QUEUE_DOWNLOAD_FAILED), resultName(MIRELCLIENT_QUEUE_DOWNLOAD_FAILED));
        return MIRELCLIENT_QUEUE_DOWNLOAD_FAILED;
    }
    Registry& r = registry();
    std::int32_t first = MIRELCLIENT_SUCCESS;
    for (std::size_t i = 0; i < handles.size(); ++i) {
        std::int32_t code = claim(r, handles[i], i);
        if (code == MIRELCLIENT_SUCCESS) {
            auto* download = static_cast<Download*>(handles[i]);
            if (!runWorkspace.empty() && runWorkspace != download->workspace())
                log(kDebug, "mirelclient: the run names the workspace %s; the download keeps its own, %s",
                    forLog(runWorkspace).c_str(), forLog(download->workspace()).c_str());
            code = runGuarded(*download);
            release(r, download);
        }
        if (first == MIRELCLIENT_SUCCESS)
            first = code;
    }
    return first;
}

void destroyDownload(void* handle)
{
    if (!handle)
        return;
    auto* download = static_cast<Download*>(handle);
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    if (!r.live.count(download)) {
        log(kWarning, "mirelclient: MirelDestroyDownload(%p): not a live download of this client; left alone", handle);
        return;
    }
    if (r.running.count(download)) {
        r.destroyLater.insert(download);
        return;
    }
    r.live.erase(download);
    delete download;
}

}  // namespace mirel
