#pragma once
// A key opened through the key store, closed at the end of its scope without
// disturbing the thread's last error, which the callers report.
#include "platform/Services.h"

namespace registry_detail {

class OpenKey {
public:
    OpenKey() = default;
    ~OpenKey() { close(); }
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;

    HKEY get() const { return m_key; }
    PHKEY out()
    {
        close();
        return &m_key;
    }
    void close()
    {
        if (!m_key)
            return;
        DWORD saved = ::GetLastError();
        platform::keys().RegCloseKey(m_key);
        ::SetLastError(saved);
        m_key = nullptr;
    }

private:
    HKEY m_key = nullptr;
};

}  // namespace registry_detail
