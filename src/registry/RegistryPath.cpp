// Full registry paths: the hive word in front, the value name behind the
// last backslash, and the two roots everything else is built on.
#include <cwchar>
#include <iterator>

#include "platform/Handles.h"
#include "registry/Registry.h"

using platform::KeyHandle;

namespace {

struct HiveWord {
    const wchar_t* word;
    HKEY hive;
};

// Order matters only for the four-letter words: they are tried in this order.
const HiveWord kHiveWords[] = {
    {L"HKLM", HKEY_LOCAL_MACHINE}, {L"HKCU", HKEY_CURRENT_USER}, {L"HKCR", HKEY_CLASSES_ROOT},
    {L"HKCC", HKEY_CURRENT_CONFIG}, {L"HKU", HKEY_USERS},
};

// Every occurrence of needle replaced, case-sensitively.
corestring replaceAll(const corestring& text, const wchar_t* needle, const wchar_t* replacement)
{
    const std::size_t needleLength = std::wcslen(needle);
    corestring result;
    const wchar_t* cursor = text.c_str();
    for (;;) {
        const wchar_t* hit = std::wcsstr(cursor, needle);
        if (!hit) {
            result.append(cursor);
            return result;
        }
        result.append(cursor, static_cast<std::uint64_t>(hit - cursor));
        result.append(replacement);
        cursor = hit + needleLength;
    }
}

}  // namespace

HKEY ParseRegistryPath(const wchar_t* path, corestring& subkey, corestring& valueName)
{
    if (!path || !*path)
        return nullptr;
    corestring work = corestring::toBackslashes(path);
    const wchar_t* text = work.c_str();
    const std::uint64_t length = work.length();

    // The hive word is at most four letters, so its backslash is among the
    // first five characters; the long names never get this far.
    std::uint64_t first = corestring::npos;
    for (std::uint64_t i = 0; i < length && i < 5; ++i) {
        if (text[i] == L'\\') {
            first = i;
            break;
        }
    }
    if (first == corestring::npos)
        return nullptr;

    corestring word = work.left(first);
    HKEY hive = nullptr;
    for (const HiveWord& candidate : kHiveWords) {
        if (std::wcslen(candidate.word) == first && CORE::keywordEquals(word.c_str(), candidate.word, true)) {
            hive = candidate.hive;
            break;
        }
    }
    if (!hive)
        return nullptr;

    std::uint64_t last = first;
    for (std::uint64_t i = length; i > first; --i) {
        if (text[i - 1] == L'\\') {
            last = i - 1;
            break;
        }
    }
    if (last == first + 1)
        return nullptr;

    valueName.assign(text + last + 1, length - last - 1);
    // With a single backslash there is no key part between the two: the
    // count runs up to the terminator, so the key is named like the value.
    if (last == first)
        subkey.assign(text + first + 1, corestring::npos);
    else
        subkey.assign(text + first + 1, last - first - 1);
    return hive;
}

bool RegistryKeyExists(corestring path)
{
    // Unlike ParseRegistryPath this knows the long names and matches case.
    static const HiveWord kPrefixes[] = {
        {L"HKEY_LOCAL_MACHINE\\", HKEY_LOCAL_MACHINE}, {L"HKLM\\", HKEY_LOCAL_MACHINE},
        {L"HKEY_CURRENT_USER\\", HKEY_CURRENT_USER},   {L"HKCU\\", HKEY_CURRENT_USER},
        {L"HKEY_CLASSES_ROOT\\", HKEY_CLASSES_ROOT},   {L"HKCR\\", HKEY_CLASSES_ROOT},
        {L"HKEY_CURRENT_CONFIG\\", HKEY_CURRENT_CONFIG}, {L"HKCC\\", HKEY_CURRENT_CONFIG},
        {L"HKEY_USERS\\", HKEY_USERS},                 {L"HKU\\", HKEY_USERS},
    };
    for (const HiveWord& prefix : kPrefixes) {
        if (!std::wcsstr(path.c_str(), prefix.word))
            continue;
        corestring subkey = replaceAll(path, prefix.word, L"");
        KeyHandle key;
        return platform::keys().RegOpenKeyExW(prefix.hive, subkey.c_str(), 0, KEY_READ, key.out()) == ERROR_SUCCESS;
    }
    return false;
}

corestring ShortenHiveNames(corestring path)
{
    // Only the first long name found is replaced. The short forms other than
    // HKLM are not hive words of the parser, so such paths stay unreadable.
    static constexpr const wchar_t* kLongNames[][2] = {
        {L"HKEY_LOCAL_MACHINE", L"HKLM"}, {L"HKEY_CURRENT_USER", L"HCU"}, {L"HKEY_CLASSES_ROOT", L"HCR"},
        {L"HKEY_CURRENT_CONFIG", L"HCC"}, {L"HKEY_USERS", L"HU"},
    };
    for (const auto& name : kLongNames) {
        if (std::wcsstr(path.c_str(), name[0]))
            return replaceAll(path, name[0], name[1]);
    }
    return path;
}

corestring GetNewRootKeyPath() { return corestring(L"HKLM\\Software\\Tarvelle\\Zenthra"); }

corestring GetLegacyRootKeyPath() { return corestring(L"HKLM\\Software\\Kesmarc, Inc.\\Kesmarc TQM"); }

bool ParseBool(const corestring& text)
{
    if (!text.handle())
        return false;
    if (CORE::keywordEquals(text.c_str(), L"true", true) || CORE::keywordEquals(text.c_str(), L"yes", true) ||
        CORE::keywordEquals(text.c_str(), L"on", true))
        return true;
    return text.toInt(false) != 0;
}
