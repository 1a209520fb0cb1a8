#pragma once
#include "platform/Services.h"

namespace platform {

// Owns a handle of the file service. Closing keeps the last error intact, so
// the error that ended the work is the one the caller sees.
class FileHandle {
public:
    explicit FileHandle(HANDLE h) : m_h(h) {}
    ~FileHandle()
    {
        if (valid()) {
            DWORD saved = ::GetLastError();
            files().CloseHandle(m_h);
            ::SetLastError(saved);
        }
    }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    bool valid() const { return m_h != INVALID_HANDLE_VALUE; }
    HANDLE get() const { return m_h; }

private:
    HANDLE m_h;
};

}  // namespace platform
