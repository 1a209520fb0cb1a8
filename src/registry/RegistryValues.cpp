// Reading and writing single values by full path; every value is text here.
#include <cstdlib>
#include <cstring>
#include <memory>

#include "core/log/LogLine.h"
#include "platform/Handles.h"
#include "registry/Registry.h"

using platform::KeyHandle;

namespace {

constexpr DWORD kTerminatorPad = 8;    // zero bytes behind the data: every text read is terminated
constexpr DWORD kStackLimit = 1024;    // data, pad and bookkeeping that still go on the stack
constexpr DWORD kBookkeeping = 16;

// The read buffer: small values on the stack, the rest on the heap.
class ValueBuffer {
public:
    explicit ValueBuffer(DWORD bytes)
    {
        if (bytes + kBookkeeping <= kStackLimit)
            m_data = m_local;
        else
            m_data = static_cast<BYTE*>(std::malloc(bytes));
    }
    ~ValueBuffer()
    {
        if (m_data != m_local)
            std::free(m_data);
    }
    ValueBuffer(const ValueBuffer&) = delete;
    ValueBuffer& operator=(const ValueBuffer&) = delete;

    BYTE* data() const { return m_data; }

private:
    alignas(8) BYTE m_local[kStackLimit];
    BYTE* m_data = nullptr;
};

std::uint32_t failRead(corestring& out, DWORD code)
{
    out = corestring();
    ::SetLastError(code);
    return kRegReadFailed;
}


REGSAM withView(REGSAM rights, bool use32BitRegistry) { return use32BitRegistry ? rights | KEY_WOW64_32KEY : rights; }

}  // namespace

void RegistryExpandText(corestring& text)
{
    platform::KeyStore& keys = platform::keys();
    const DWORD needed = keys.ExpandEnvironmentStringsW(text.c_str(), nullptr, 0);
    if (needed == 0)
        return;  // no expansion to be had: the stored text stands
    if (needed == 1) {
        text = corestring();
        return;
    }
    std::unique_ptr<wchar_t, decltype(&std::free)> expanded(
        static_cast<wchar_t*>(std::malloc(needed * sizeof(wchar_t))), &std::free);
    if (!expanded)
        CORE::throwOutOfMem();
    const DWORD written = keys.ExpandEnvironmentStringsW(text.c_str(), expanded.get(), needed);
    if (written != 0 && written <= needed)
        text.assign(expanded.get(), written - 1);
}

std::uint32_t RegistryReadValue(corestring& out, HKEY key, const wchar_t* name, std::uint32_t requiredType)
{
    platform::KeyStore& keys = platform::keys();
    DWORD type = 0;
    DWORD size = 0;
    LSTATUS status = keys.RegQueryValueExW(key, name, &type, nullptr, &size);
    if (status != ERROR_SUCCESS)
        return failRead(out, static_cast<DWORD>(status));

    ValueBuffer buffer(size + kTerminatorPad);
    if (!buffer.data())
        return failRead(out, ERROR_NOT_ENOUGH_MEMORY);
    if (requiredType != kRegAnyType && type != requiredType)
        return failRead(out, ERROR_INVALID_DATA);

    status = keys.RegQueryValueExW(key, name, &type, buffer.data(), &size);
    if (status != ERROR_SUCCESS)
        return failRead(out, static_cast<DWORD>(status));
    std::memset(buffer.data() + size, 0, kTerminatorPad);

    switch (type) {
    case REG_DWORD: {
        std::uint32_t number;
        std::memcpy(&number, buffer.data(), sizeof number);
        out = corestring::fromNumber(number, 10);
        break;
    }
    case REG_QWORD: {
        std::uint64_t number;
        std::memcpy(&number, buffer.data(), sizeof number);
        out = corestring::fromNumber(number, 10);
        break;
    }
    default: {
        // Strings drop their stored terminator (a last character too, if it
        // was stored without one); other data keep every byte pair.
        std::int64_t characters = (type == REG_SZ || type == REG_EXPAND_SZ)
                                      ? (static_cast<std::int64_t>(size) - 1) / 2
                                      : static_cast<std::int64_t>(size) / 2;
        out.assign(reinterpret_cast<const wchar_t*>(buffer.data()), static_cast<std::uint64_t>(characters));
        if (type == REG_EXPAND_SZ)
            RegistryExpandText(out);
        break;
    }
    }
    return type;
}

std::uint32_t RegistryRead(corestring& out, const wchar_t* path, std::uint32_t requiredType, bool use32BitRegistry)
{
    corestring subkey;
    corestring valueName;
    HKEY hive = ParseRegistryPath(path, subkey, valueName);
    if (!hive)
        return failRead(out, ERROR_PATH_NOT_FOUND);

    KeyHandle key;
    LSTATUS status =
        platform::keys().RegOpenKeyExW(hive, subkey.c_str(), 0, withView(KEY_QUERY_VALUE, use32BitRegistry), key.out());
    if (status != ERROR_SUCCESS)
        return failRead(out, static_cast<DWORD>(status));
    return RegistryReadValue(out, key.get(), valueName.c_str(), requiredType);
}

corestring RegistryReadOrDefault(const wchar_t* path, const wchar_t* defaultText, bool use32BitRegistry)
{
    corestring value;
    if (RegistryRead(value, path, kRegAnyType, use32BitRegistry) == kRegReadFailed)
        return corestring(defaultText);
    return value;
}

bool RegistryWrite(const corestring& value, const wchar_t* path, std::uint32_t type, bool use32BitRegistry, bool flush)
{
    corestring subkey;
    corestring valueName;
    HKEY hive = ParseRegistryPath(path, subkey, valueName);

    // Numbers: surrounding blanks and leading zeros go first, so "007" is
    // seven and never an octal reading.
    std::uint32_t dword = 0;
    std::uint64_t qword = 0;
    const BYTE* data;
    DWORD size;
    if (type == REG_DWORD) {
        dword = static_cast<std::uint32_t>(value.toUInt(true));
        data = reinterpret_cast<const BYTE*>(&dword);
        size = sizeof dword;
    } else if (type == REG_QWORD) {
        qword = static_cast<std::uint64_t>(value.toInt64(true));
        data = reinterpret_cast<const BYTE*>(&qword);
        size = sizeof qword;
    } else {
        data = reinterpret_cast<const BYTE*>(value.c_str());
        size = static_cast<DWORD>(value.length() * 2 + 2);
    }

    if (!hive) {
        ::SetLastError(ERROR_PATH_NOT_FOUND);
        return false;
    }

    platform::KeyStore& keys = platform::keys();
    KeyHandle key;
    LSTATUS status =
        keys.RegCreateKeyExW(hive, subkey.c_str(), 0, withView(KEY_WRITE, use32BitRegistry), key.out(), nullptr);
    if (status == ERROR_SUCCESS && type != kRegAnyType)
        status = keys.RegSetValueExW(key.get(), valueName.c_str(), type, data, size);
    if (status == ERROR_SUCCESS && flush)
        status = keys.RegFlushKey(key.get());
    if (status != ERROR_SUCCESS) {
        ::SetLastError(static_cast<DWORD>(status));
        return false;
    }
    return true;
}

bool Util_DeleteRegistryIfExists(corestring path)
{
    corestring subkey;
    corestring valueName;
    HKEY hive = ParseRegistryPath(path.c_str(), subkey, valueName);

    // The key stays open: the process is short-lived and takes it along.
    HKEY key = nullptr;
    if (platform::keys().RegOpenKeyExW(hive, subkey.c_str(), 0, KEY_SET_VALUE, &key) != ERROR_SUCCESS) {
        LogLine(L"%s: Registry key %s doesn't exist, skip deletion", L"Util_DeleteRegistryIfExists", subkey.c_str());
        return true;
    }
    if (platform::keys().RegDeleteValueW(key, valueName.c_str()) != ERROR_SUCCESS) {
        LogLine(L"%s: Registry value %s couldn't be deleted", L"Util_DeleteRegistryIfExists", valueName.c_str());
        return false;
    }
    LogLine(L"%s: Deleted registry key - %s", L"Util_DeleteRegistryIfExists", path.c_str());
    return true;
}
