#include "fetch/ShareCopy.h"

// Not built yet: no job record is read, so there is no share path to fetch.
bool Util_UNCDownload() { return false; }
