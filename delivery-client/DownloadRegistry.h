#pragma once
// The downloads the caller holds handles to: made, run and destroyed here,
// so that a handle this client never made is refused instead of followed.
#include <cstdint>
#include <string>
#include <vector>

#include "Download.h"

namespace mirel {

// A new download; null only when memory runs out.
void* createDownload(DownloadRequest request);

// Runs each download of the list in its order, each to its end, and returns
// MIRELCLIENT_SUCCESS or the first failure's code. An empty list gives
// MIRELCLIENT_QUEUE_DOWNLOAD_FAILED; a null handle or one this client didn't
// make (or already destroyed) MIRELCLIENT_CREATE_CLIENT_FAILED for that
// entry; a download already running in another call
// MIRELCLIENT_DOWNLOAD_PENDING.
std::int32_t runDownloads(const std::string& runWorkspace, const std::vector<void*>& handles);

// Frees the download; null is fine, an unknown handle is logged and left
// alone, a running one is freed when its run returns.
void destroyDownload(void* handle);

}  // namespace mirel
