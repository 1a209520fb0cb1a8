// Enumeration of one key: its subkey names, or all of its values as text.
// Both serve the job reader and the preflight rule reader.
#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/Handles.h"
#include "registry/Registry.h"
#include "registry/RegistryEnumeration.h"

using CORE::corestring;
using platform::KeyHandle;

namespace {

constexpr DWORD kBufferBytes = 16384;
constexpr DWORD kNameLimit = 8191;  // characters
constexpr DWORD kDataLimit = 8191;  // bytes: a value of 8192 bytes ends the enumeration

corestring trimmedName(const wchar_t* name, DWORD length)
{
    corestring text(name, length);
    return text.trim();
}

// "\dummy" stands for the value name the path parser insists on.
bool openKey(KeyHandle& key, const wchar_t* keyPath, bool use32BitView)
{
    corestring path(keyPath);
    path.append(L"\\dummy");
    corestring subkey;
    corestring valueName;
    HKEY hive = ParseRegistryPath(path.c_str(), subkey, valueName);
    if (!hive)
        return false;
    REGSAM rights = KEY_READ;
    if (use32BitView)
        rights |= KEY_WOW64_32KEY;
    return platform::keys().RegOpenKeyExW(hive, subkey.c_str(), 0, rights, key.out()) == ERROR_SUCCESS;
}

corestring valueText(DWORD type, const BYTE* data, DWORD size)
{
    switch (type) {
    case REG_DWORD: {
        std::uint32_t number = 0;
        std::memcpy(&number, data, std::min<DWORD>(size, sizeof number));
        return corestring::fromNumber(number, 10);
    }
    case REG_QWORD: {
        std::int64_t number = 0;
        std::memcpy(&number, data, std::min<DWORD>(size, sizeof number));
        corestring text;
        corestring::format(text, L"%I64d", number);
        return text;
    }
    case REG_SZ:
    case REG_EXPAND_SZ: {
        // The stored terminator is dropped, or the last character of a text
        // stored without one.
        corestring text(reinterpret_cast<const wchar_t*>(data), (size - 1) / 2);
        if (type == REG_EXPAND_SZ)
            RegistryExpandText(text);
        return text;
    }
    default:
        // Taken as it is, terminators of a multi-string included.
        return corestring(reinterpret_cast<const wchar_t*>(data), size / 2);
    }
}

}  // namespace

void RegistryListSubkeys(CORE::StringList& list, const wchar_t* keyPath, bool use32BitView)
{
    KeyHandle key;
    if (!openKey(key, keyPath, use32BitView))
        return;
    static_assert(kBufferBytes / sizeof(wchar_t) > kNameLimit);
    std::vector<wchar_t> name(kBufferBytes / sizeof(wchar_t), L'\0');
    for (DWORD index = 0;; ++index) {
        DWORD length = kNameLimit;
        if (platform::keys().RegEnumKeyExW(key.get(), index, name.data(), &length) != ERROR_SUCCESS)
            break;
        if (length == 0 || length > kNameLimit)
            break;
        corestring trimmed = trimmedName(name.data(), length);
        if (!trimmed.empty())
            list.push_back(std::move(trimmed));
    }
}

void RegistryReadAllValues(NoCaseMap& map, const wchar_t* keyPath, bool use32BitView)
{
    KeyHandle key;
    if (!openKey(key, keyPath, use32BitView))
        return;
    std::vector<wchar_t> name(kBufferBytes / sizeof(wchar_t), L'\0');
    // Whole characters, so that text data can be read in place.
    std::vector<wchar_t> dataBuffer(kBufferBytes / sizeof(wchar_t), L'\0');
    BYTE* data = reinterpret_cast<BYTE*>(dataBuffer.data());
    for (DWORD index = 0;; ++index) {
        DWORD nameLength = kNameLimit;
        DWORD type = REG_NONE;
        DWORD size = kDataLimit;
        if (platform::keys().RegEnumValueW(key.get(), index, name.data(), &nameLength, &type, data, &size) !=
            ERROR_SUCCESS)
            break;
        // The key's default value has no name and is left out here.
        if (nameLength == 0 || nameLength > kNameLimit)
            continue;
        corestring trimmed = trimmedName(name.data(), nameLength);
        if (trimmed.empty() || size == 0 || size > kDataLimit) {
            map[trimmed.c_str()] = corestring();
            continue;
        }
        map[trimmed.c_str()] = valueText(type, data, size);
    }
}
