#include "LocalName.h"

#include <cwchar>

#include "TextUtil.h"

namespace mirel {

namespace {

bool refusedChar(wchar_t c)
{
    if (c < 0x20 || c == 0x7f)
        return true;
    switch (c) {
    case L'<':
    case L'>':
    case L':':
    case L'"':
    case L'/':
    case L'\\':
    case L'|':
    case L'?':
    case L'*':
        return true;
    default:
        return false;
    }
}

bool sameNoCase(const std::wstring& a, const wchar_t* b)
{
    const std::size_t n = std::wcslen(b);
    if (a.size() != n)
        return false;
    for (std::size_t i = 0; i < n; ++i) {
        wchar_t c = a[i];
        if (c >= L'a' && c <= L'z')
            c = static_cast<wchar_t>(c - L'a' + L'A');
        if (c != b[i])
            return false;
    }
    return true;
}

// CON, PRN, AUX, NUL, COM1-9, LPT1-9, with or without an extension: Windows
// opens the device instead of a file.
bool isDeviceName(const std::wstring& name)
{
    std::wstring stem = name.substr(0, name.find(L'.'));
    while (!stem.empty() && stem.back() == L' ')
        stem.pop_back();
    static const wchar_t* const devices[] = {L"CON", L"PRN", L"AUX", L"NUL"};
    for (const wchar_t* device : devices)
        if (sameNoCase(stem, device))
            return true;
    if (stem.size() == 4 && stem[3] >= L'1' && stem[3] <= L'9')
        return sameNoCase(stem.substr(0, 3), L"COM") || sameNoCase(stem.substr(0, 3), L"LPT");
    return false;
}

std::string describe(wchar_t c)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string text = "U+";
    for (int shift = 12; shift >= 0; shift -= 4)
        text.push_back(digits[(c >> shift) & 15]);
    if (c >= 0x21 && c < 0x7f)
        text += std::string(" '") + static_cast<char>(c) + "'";
    return text;
}

}  // namespace

std::wstring decodeLikeTheTool(const std::wstring& text)
{
    std::wstring decoded;
    const std::size_t length = text.size();
    for (std::size_t i = 0; i < length; ++i) {
        if (text[i] == L'%' && i + 2 < length) {
            // wcstol's reading of the two: "4G" is 4, "GG" is 0, "-1" is -1.
            const wchar_t digits[3] = {text[i + 1], text[i + 2], L'\0'};
            decoded.push_back(static_cast<wchar_t>(std::wcstol(digits, nullptr, 16)));
            i += 2;
        } else if (text[i] == L'+') {
            decoded.push_back(L' ');
        } else {
            decoded.push_back(text[i]);
        }
    }
    return decoded;
}

std::wstring localNameFromUrl(const std::wstring& url)
{
    std::wstring path = url;
    for (wchar_t& c : path)
        if (c == L'/')
            c = L'\\';
    const std::size_t slash = path.rfind(L'\\');
    std::wstring name = slash == std::wstring::npos ? path : path.substr(slash + 1);
    if (name.find(L'%') != std::wstring::npos)
        name = decodeLikeTheTool(name);
    return name;
}

bool checkLocalName(const std::wstring& name, std::string& why)
{
    if (name.empty()) {
        why = "the name is empty (the URL ends in '/')";
        return false;
    }
    if (name == L"." || name == L"..") {
        why = "the name \"" + wideToUtf8(name) + "\" names a folder, not a file";
        return false;
    }
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (refusedChar(name[i])) {
            why = "the name \"" + forLog(name, 120) + "\" contains " + describe(name[i]) + " at position " +
                  std::to_string(i + 1) + ", which Windows refuses in a file name";
            return false;
        }
    }
    if (name.back() == L'.' || name.back() == L' ') {
        why = "the name \"" + forLog(name, 120) + "\" ends in a dot or blank, which Windows drops";
        return false;
    }
    if (isDeviceName(name)) {
        why = "the name \"" + forLog(name, 120) + "\" is a device name";
        return false;
    }
    if (name.size() > kMaxLocalName) {
        why = "the name is " + std::to_string(name.size()) + " characters long; at most " +
              std::to_string(kMaxLocalName) + " are taken";
        return false;
    }
    return true;
}

std::wstring sanitizedName(const std::wstring& name)
{
    std::wstring clean;
    for (wchar_t c : name)
        clean.push_back(refusedChar(c) ? L'_' : c);
    if (clean.size() > kMaxLocalName)
        clean.resize(kMaxLocalName);
    while (!clean.empty() && (clean.back() == L'.' || clean.back() == L' '))
        clean.pop_back();
    std::string why;
    if (clean.empty() || !checkLocalName(clean, why))
        return L"payload.tar";
    return clean;
}

}  // namespace mirel
