#pragma once
// The Windows Installer's product database in memory: products listed under
// their upgrade codes, each with its properties.
#include <map>
#include <string>
#include <vector>

#include "platform/Installer.h"

namespace fakes {

class FakeInstaller : public platform::Installer {
public:
    // Adds a product under an upgrade code (in the order of the calls) with
    // its "VersionString".
    void addProduct(const std::wstring& upgradeCode, const std::wstring& productCode, const std::wstring& version);
    void setProperty(const std::wstring& productCode, const std::wstring& property, const std::wstring& value);

    // When non-zero, the operation returns this code for every call.
    UINT enumFailure = 0;
    UINT infoFailure = 0;

    struct EnumCall {
        std::wstring upgradeCode;
        DWORD index;
        bool bufferZeroed;  // all 39 characters zero on entry
    };
    struct InfoCall {
        std::wstring productCode;
        std::wstring property;
        DWORD size;         // *size on entry
        bool bufferZeroed;  // the `size` characters zero on entry
    };
    std::vector<EnumCall> enumCalls;
    std::vector<InfoCall> infoCalls;

    UINT MsiEnumRelatedProductsW(LPCWSTR upgradeCode, DWORD reserved, DWORD index, LPWSTR productCode) override;
    UINT MsiGetProductInfoW(LPCWSTR product, LPCWSTR property, LPWSTR buffer, LPDWORD size) override;

private:
    static std::wstring keyOf(const std::wstring& code);  // GUIDs compare without regard to case
    std::map<std::wstring, std::vector<std::wstring>> m_related;
    std::map<std::wstring, std::map<std::wstring, std::wstring>> m_products;
};

}  // namespace fakes
