#pragma once
// Fetch over HTTPS through the delivery client; also a gate like the share copy.
bool Util_DoDownload();
