#include "fetch/Verification.h"

#include <cwchar>

#include "diagnostics/ToolLog.h"
#include "fetch/ErrorInfo.h"
#include "platform/FileHandle.h"
#include "platform/Services.h"
#include "update/UpdateRecord.h"

namespace {

constexpr DWORD kReadPiece = 4096;

HANDLE openForReading(const wchar_t* filename)
{
    return platform::files().CreateFileW(filename, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING,
                                         FILE_ATTRIBUTE_NORMAL);
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

    platform::Hashing& hashing = platform::hashing();
    BCRYPT_ALG_HANDLE provider = nullptr;
    BCRYPT_HASH_HANDLE hash = nullptr;
    bool ok = false;
    do {
        if (hashing.BCryptOpenAlgorithmProvider(&provider, L"SHA256", nullptr, 0) != 0) {
            provider = nullptr;
            LogLine(L"%s: BCryptOpenAlgorithmProvider failed.", tag);
            break;
        }
        ULONG digestLength = 0;
        ULONG got = 0;
        if (hashing.BCryptGetProperty(provider, L"HashDigestLength", reinterpret_cast<PUCHAR>(&digestLength),
                                      sizeof digestLength, &got, 0) != 0) {
            LogLine(L"%s: BCryptGetProperty failed.", tag);
            break;
        }
        // The provider allocates the hash object itself.
        if (hashing.BCryptCreateHash(provider, &hash, nullptr, 0, nullptr, 0, 0) != 0) {
            hash = nullptr;
            LogLine(L"%s: BCryptCreateHash failed.", tag);
            break;
        }
        // One fixed buffer: no payload is ever held in memory. A failed read
        // ends the stream like its end; the digest then won't match.
        unsigned char buffer[kReadPiece];
        bool hashed = true;
        for (;;) {
            DWORD read = 0;
            if (!platform::files().ReadFile(file.get(), buffer, kReadPiece, &read) || read == 0)
                break;
            if (hashing.BCryptHashData(hash, buffer, read, 0) != 0) {
                LogLine(L"%s: BCryptHashData failed.", tag);
                hashed = false;
                break;
            }
        }
        if (!hashed)
            break;
        digest.resize(digestLength);
        if (hashing.BCryptFinishHash(hash, digest.data(), digestLength, 0) != 0) {
            LogLine(L"%s: BCryptFinishHash failed.", tag);
            break;
        }
        ok = true;
    } while (false);

    if (!ok)
        Util_SetFailureFromCode(static_cast<std::uint32_t>(-3));
    if (hash)
        hashing.BCryptDestroyHash(hash);
    if (provider)
        hashing.BCryptCloseAlgorithmProvider(provider, 0);
    return ok;
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
