#include "fetch/Verification.h"

#include <cwchar>

#include "core/log/LogLine.h"
#include "fetch/ErrorInfo.h"
#include "platform/Handles.h"
#include "update/UpdateRecord.h"

namespace {

constexpr DWORD kReadPiece = 4096;

HANDLE openForReading(const wchar_t* filename)
{
    return platform::files().CreateFileW(filename, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING,
                                         FILE_ATTRIBUTE_NORMAL);
}

// SHA-256 of an open file into `digest`; each failing step logs its line.
bool hashFile(HANDLE file, std::vector<unsigned char>& digest, const wchar_t* tag)
{
    platform::Hashing& hashing = platform::hashing();
    // Each handle is taken over only once the call that makes it succeeded.
    BCRYPT_ALG_HANDLE opened = nullptr;
    if (hashing.BCryptOpenAlgorithmProvider(&opened, L"SHA256", nullptr, 0) != 0) {
        LogLine(L"%s: BCryptOpenAlgorithmProvider failed.", tag);
        return false;
    }
    platform::HashAlgorithmHandle provider(opened);

    ULONG digestLength = 0;
    ULONG got = 0;
    if (hashing.BCryptGetProperty(provider.get(), L"HashDigestLength", reinterpret_cast<PUCHAR>(&digestLength),
                                  sizeof digestLength, &got, 0) != 0) {
        LogLine(L"%s: BCryptGetProperty failed.", tag);
        return false;
    }
    // The provider allocates the hash object itself.
    BCRYPT_HASH_HANDLE created = nullptr;
    if (hashing.BCryptCreateHash(provider.get(), &created, nullptr, 0, nullptr, 0, 0) != 0) {
        LogLine(L"%s: BCryptCreateHash failed.", tag);
        return false;
    }
    platform::HashHandle hash(created);

    // One fixed buffer: no payload is ever held in memory. A failed read
    // ends the stream like its end; the digest then won't match.
    unsigned char buffer[kReadPiece];
    for (;;) {
        DWORD read = 0;
        if (!platform::files().ReadFile(file, buffer, kReadPiece, &read) || read == 0)
            break;
        if (hashing.BCryptHashData(hash.get(), buffer, read, 0) != 0) {
            LogLine(L"%s: BCryptHashData failed.", tag);
            return false;
        }
    }
    digest.resize(digestLength);
    if (hashing.BCryptFinishHash(hash.get(), digest.data(), digestLength, 0) != 0) {
        LogLine(L"%s: BCryptFinishHash failed.", tag);
        return false;
    }
    return true;
}

}  // namespace

bool Util_CompareFileSize(const wchar_t* filename)
{
    const wchar_t* tag = L"Util_CompareFileSize";
    UpdateRecord& r = g_updateRecord;
    // Not tested: a failed open shows as a size that can't be read.
    platform::FileHandle file(openForReading(filename));

    DWORD size = platform::files().GetFileSize(file.get(), nullptr);
    if (size == INVALID_FILE_SIZE) {
        LogLine(L"%s: Failed to get copied file size.", tag);
        Util_SetFailureFromCode(static_cast<std::uint32_t>(-4));
        return false;
    }

    corestring computed;
    corestring::format(computed, L"%lu", static_cast<unsigned long>(size));
    // On text: "0100" or "0x64" never equal 100.
    if (std::wcscmp(r.sFileSize.c_str(), computed.c_str()) == 0)
        return true;

    LogLine(L"%s: Copied file size do not match with source file, expected filesize:%s , computed filesize: %s", tag,
            r.sFileSize.c_str(), computed.c_str());
    Util_SetFailureFromCode(static_cast<std::uint32_t>(-5));
    return false;
}

bool Util_ComputeCheckSum(const wchar_t* filename, std::vector<unsigned char>& digest)
{
    const wchar_t* tag = L"Util_ComputeCheckSum";
    platform::FileHandle file(openForReading(filename));
    if (!file.valid()) {
        // The system's code names this failure, not the internal one.
        ErrorInfo info = Util_SetFailureFromCode(::GetLastError());
        LogLine(L"%s: Failed checksum computation,cannot read the file :%s, error: %s", tag, filename,
                info.description.c_str());
        return false;
    }

    if (!hashFile(file.get(), digest, tag)) {
        Util_SetFailureFromCode(static_cast<std::uint32_t>(-3));
        return false;
    }
    return true;
}

bool Util_CompareCheckSum(const std::vector<unsigned char>& digest)
{
    UpdateRecord& r = g_updateRecord;
    // "%02x" per byte: lower-case hex, two characters a byte.
    static const wchar_t kHex[] = L"0123456789abcdef";
    corestring computed;
    for (unsigned char byte : digest) {
        const wchar_t pair[2] = {kHex[byte >> 4], kHex[byte & 0x0F]};
        computed.append(pair, 2);
    }
    // Upper case in the record is accepted; an empty one never matches.
    if (!r.sCheckSum.empty() && _wcsicmp(computed.c_str(), r.sCheckSum.c_str()) == 0)
        return true;

    LogLine(L"%s: Checksum validation failed for the copied file, expected checksum: %s, computed checksum: %s",
            L"Util_CompareCheckSum", r.sCheckSum.c_str(), computed.c_str());
    Util_SetFailureFromCode(static_cast<std::uint32_t>(-2));
    r.sResult = L"FAILURE";
    return false;
}
