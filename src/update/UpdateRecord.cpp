#include "update/UpdateRecord.h"

// Constant-initialised, so it stands before any static initialiser runs.
constinit UpdateRecord g_updateRecord;

corestring JobKeyPath(const corestring& root)
{
    corestring path = root;
    path.append(L"\\Agent\\Update\\");
    path.append(g_updateRecord.sUpdateKey);
    return path;
}
