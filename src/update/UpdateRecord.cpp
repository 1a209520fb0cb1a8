#include "update/UpdateRecord.h"

// Constant-initialised, so it stands before any static initialiser runs.
constinit UpdateRecord g_updateRecord;
