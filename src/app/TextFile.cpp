#include "app/TextFile.h"

#include <memory>
#include <vector>

#include "platform/Handles.h"
#include "platform/Services.h"

using CORE::corestring;

namespace {

using Buffer = CORE::corestring_buffer<unsigned char>;

// UTF-16 little endian from `start` up to the first zero character. The two
// zero bytes behind the data end the text at the latest; an odd last byte
// pairs with the first of them.
corestring wideText(const unsigned char* bytes, std::uint64_t size, std::uint64_t start)
{
    corestring text;
    std::uint64_t units = (size + 2 - start) / 2;
    std::vector<wchar_t> chars;
    chars.reserve(static_cast<std::size_t>(units));
    for (std::uint64_t i = 0; i < units; ++i) {
        const unsigned char* p = bytes + start + 2 * i;
        wchar_t c = static_cast<wchar_t>(p[0] | (p[1] << 8));
        if (c == L'\0')
            break;
        chars.push_back(c);
    }
    if (!chars.empty())
        text.assign(chars.data(), chars.size());
    return text;
}

}  // namespace

bool ReadTextFile(const wchar_t* path, std::uint32_t codePage, bool& wasMultiByte, bool rawBytes, corestring& text)
{
    wasMultiByte = false;
    text = corestring();
    platform::FileHandle file(
        platform::files().CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL));
    if (!file.valid())
        return false;

    DWORD high = 0;
    ::SetLastError(0);
    DWORD size = platform::files().GetFileSize(file.get(), &high);
    if (size == INVALID_FILE_SIZE && ::GetLastError() != NO_ERROR)
        return false;
    // A file of 4 GB or more can't be held in memory whole.
    if (high != 0 || size > 0xFFFFFFFFu - 2)
        return false;
    if (size == 0)
        return true;

    Buffer buffer(static_cast<unsigned char*>(CORE::g_corestringMemory.allocate(std::size_t(size) + 2)));
    if (!buffer)
        CORE::throwOutOfMem();
    unsigned char* bytes = buffer.get();
    DWORD total = 0;
    while (total < size) {
        DWORD read = 0;
        if (!platform::files().ReadFile(file.get(), bytes + total, size - total, &read))
            return false;
        if (read == 0)
            break;  // the file got shorter since it was sized
        total += read;
    }
    bytes[total] = 0;
    bytes[total + 1] = 0;

    if (rawBytes) {
        text.setBinary(bytes, total);
        return true;
    }
    if (total >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE) {
        text = wideText(bytes, total, 2);
    } else if (total >= 2 && bytes[1] == 0) {
        text = wideText(bytes, total, 0);
    } else {
        text = CORE::to_wstr(reinterpret_cast<const char*>(bytes), CORE::coremstring::npos, codePage);
        wasMultiByte = true;
    }
    return true;
}

NoCaseMap ParseKeyValueText(const corestring& text, wchar_t lineSeparator, wchar_t nameSeparator)
{
    NoCaseMap map;
    const wchar_t* p = text.c_str();
    const wchar_t* end = p + text.length();
    while (p < end) {
        const wchar_t* lineEnd = p;
        while (lineEnd < end && *lineEnd != lineSeparator)
            ++lineEnd;
        if (lineEnd != p) {
            std::vector<corestring> pieces;
            const wchar_t* q = p;
            for (;;) {
                const wchar_t* pieceEnd = q;
                while (pieceEnd < lineEnd && *pieceEnd != nameSeparator)
                    ++pieceEnd;
                pieces.emplace_back(q, static_cast<std::uint64_t>(pieceEnd - q));
                if (pieceEnd == lineEnd)
                    break;
                q = pieceEnd + 1;
            }
            if (!pieces.empty()) {
                // "a=b=c" is the key "a" with no value.
                map[pieces[0].c_str()] = pieces.size() == 2 ? pieces[1] : corestring();
            }
        }
        p = lineEnd < end ? lineEnd + 1 : end;
    }
    return map;
}
