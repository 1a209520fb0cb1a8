#include "fakes/FakeInstaller.h"

#include <algorithm>
#include <cwctype>

namespace fakes {

namespace {
constexpr DWORD kProductCodeChars = 39;  // braced GUID and terminator

bool zeroed(const wchar_t* buffer, DWORD count)
{
    return buffer && std::all_of(buffer, buffer + count, [](wchar_t c) { return c == L'\0'; });
}
}  // namespace

std::wstring FakeInstaller::keyOf(const std::wstring& code)
{
    std::wstring key = code;
    for (wchar_t& c : key)
        c = static_cast<wchar_t>(std::towupper(c));
    return key;
}

void FakeInstaller::addProduct(const std::wstring& upgradeCode, const std::wstring& productCode,
                               const std::wstring& version)
{
    m_related[keyOf(upgradeCode)].push_back(productCode);
    m_products[keyOf(productCode)][L"VersionString"] = version;
}

void FakeInstaller::setProperty(const std::wstring& productCode, const std::wstring& property,
                                const std::wstring& value)
{
    m_products[keyOf(productCode)][property] = value;
}

UINT FakeInstaller::MsiEnumRelatedProductsW(LPCWSTR upgradeCode, DWORD reserved, DWORD index, LPWSTR productCode)
{
    std::wstring code = upgradeCode ? upgradeCode : L"";
    enumCalls.push_back({code, index, zeroed(productCode, kProductCodeChars)});
    if (enumFailure)
        return enumFailure;
    if (!upgradeCode || !productCode || reserved != 0 || code.size() != kProductCodeChars - 1)
        return ERROR_INVALID_PARAMETER;
    auto it = m_related.find(keyOf(code));
    if (it == m_related.end() || index >= it->second.size())
        return ERROR_NO_MORE_ITEMS;
    const std::wstring& product = it->second[index];
    std::copy_n(product.c_str(), std::min<size_t>(product.size() + 1, kProductCodeChars), productCode);
    productCode[kProductCodeChars - 1] = L'\0';
    return ERROR_SUCCESS;
}

UINT FakeInstaller::MsiGetProductInfoW(LPCWSTR product, LPCWSTR property, LPWSTR buffer, LPDWORD size)
{
    DWORD entrySize = size ? *size : 0;
    infoCalls.push_back({product ? product : L"", property ? property : L"", entrySize, zeroed(buffer, entrySize)});
    if (infoFailure)
        return infoFailure;
    if (!product || !property || (buffer && !size))
        return ERROR_INVALID_PARAMETER;
    auto it = m_products.find(keyOf(product));
    if (it == m_products.end())
        return ERROR_UNKNOWN_PRODUCT;
    auto value = it->second.find(property);
    if (value == it->second.end())
        return ERROR_UNKNOWN_PROPERTY;
    const std::wstring& text = value->second;
    // Like the real call: the length without the terminator goes back in
    // *size, and a buffer too small gets what fits and ERROR_MORE_DATA.
    UINT rc = ERROR_SUCCESS;
    if (buffer && entrySize) {
        size_t fit = std::min<size_t>(text.size(), entrySize - 1);
        std::copy_n(text.c_str(), fit, buffer);
        buffer[fit] = L'\0';
        if (text.size() >= entrySize)
            rc = ERROR_MORE_DATA;
    } else if (buffer) {
        rc = ERROR_MORE_DATA;
    }
    if (size)
        *size = static_cast<DWORD>(text.size());
    return rc;
}

}  // namespace fakes
