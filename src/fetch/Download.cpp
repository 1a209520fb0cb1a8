#include "fetch/Download.h"

// Not built yet: no job record is read, so there are no URLs to fetch.
bool Util_DoDownload() { return false; }
