#pragma once
// Fetch from an SMB share; also the gate between fetching and installing.
bool Util_UNCDownload();
