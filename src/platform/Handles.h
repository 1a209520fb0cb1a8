#pragma once
// Owners of the handles that the platform services hand out, each closed
// through the service it came from (see core/UniqueHandle.h).
#include "core/UniqueHandle.h"
#include "platform/Services.h"

namespace platform {

struct FileTraits {
    using Handle = HANDLE;
    static Handle invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void close(Handle h) { files().CloseHandle(h); }
};

struct FindTraits {
    using Handle = HANDLE;
    static Handle invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void close(Handle h) { files().FindClose(h); }
};

struct KeyTraits {
    using Handle = HKEY;
    static Handle invalid() noexcept { return nullptr; }
    static void close(Handle h) { keys().RegCloseKey(h); }
};

// Process and thread handles of a launched program.
struct ProcessObjectTraits {
    using Handle = HANDLE;
    static Handle invalid() noexcept { return nullptr; }
    static void close(Handle h) { processes().CloseHandle(h); }
};

struct TokenTraits {
    using Handle = HANDLE;
    static Handle invalid() noexcept { return nullptr; }
    static void close(Handle h) { power().CloseHandle(h); }
};

struct HashAlgorithmTraits {
    using Handle = BCRYPT_ALG_HANDLE;
    static Handle invalid() noexcept { return nullptr; }
    static void close(Handle h) { hashing().BCryptCloseAlgorithmProvider(h, 0); }
};

struct HashTraits {
    using Handle = BCRYPT_HASH_HANDLE;
    static Handle invalid() noexcept { return nullptr; }
    static void close(Handle h) { hashing().BCryptDestroyHash(h); }
};

using FileHandle = CORE::UniqueHandle<FileTraits>;
using FindHandle = CORE::UniqueHandle<FindTraits>;
using KeyHandle = CORE::UniqueHandle<KeyTraits>;
using ProcessHandle = CORE::UniqueHandle<ProcessObjectTraits>;
using TokenHandle = CORE::UniqueHandle<TokenTraits>;
using HashAlgorithmHandle = CORE::UniqueHandle<HashAlgorithmTraits>;
using HashHandle = CORE::UniqueHandle<HashTraits>;

}  // namespace platform
