#pragma once
#include "core/win.h"

namespace platform {

// Windows Installer's product database.
class Installer {
public:
    virtual ~Installer() = default;
    virtual UINT MsiEnumRelatedProductsW(LPCWSTR upgradeCode, DWORD reserved, DWORD index, LPWSTR productCode) = 0;
    virtual UINT MsiGetProductInfoW(LPCWSTR product, LPCWSTR property, LPWSTR buffer, LPDWORD size) = 0;
};

}  // namespace platform
