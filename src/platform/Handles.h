#pragma once
// Owners of the handles that the platform services hand out, each closed
// through the service it came from (see core/UniqueHandle.h).
#include "core/UniqueHandle.h"
#include "platform/Services.h"

namespace platform {

// The invalid value of a kind, part of its type.
struct InvalidHandleValue {
    using Handle = HANDLE;
    static Handle invalid() noexcept { return INVALID_HANDLE_VALUE; }
};
template <class H> struct NullInvalid {
    using Handle = H;
    static Handle invalid() noexcept { return nullptr; }
};

struct FileTraits : InvalidHandleValue {
    static void close(Handle h) { files().CloseHandle(h); }
};
struct FindTraits : InvalidHandleValue {
    static void close(Handle h) { files().FindClose(h); }
};
struct KeyTraits : NullInvalid<HKEY> {
    static void close(Handle h) { keys().RegCloseKey(h); }
};
// Process and thread handles of a launched program.
struct ProcessObjectTraits : NullInvalid<HANDLE> {
    static void close(Handle h) { processes().CloseHandle(h); }
};
struct TokenTraits : NullInvalid<HANDLE> {
    static void close(Handle h) { power().CloseHandle(h); }
};
struct HashAlgorithmTraits : NullInvalid<BCRYPT_ALG_HANDLE> {
    static void close(Handle h) { hashing().BCryptCloseAlgorithmProvider(h, 0); }
};
struct HashTraits : NullInvalid<BCRYPT_HASH_HANDLE> {
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
