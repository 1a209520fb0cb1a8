#pragma once
#include "core/win.h"
#include <bcrypt.h>

namespace platform {

// The CNG calls of a SHA-256 computation; NTSTATUS results as CNG gives them.
class Hashing {
public:
    virtual ~Hashing() = default;
    virtual NTSTATUS BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR id, LPCWSTR implementation, ULONG flags) = 0;
    virtual NTSTATUS BCryptGetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR output, ULONG size, ULONG* result, ULONG flags) = 0;
    virtual NTSTATUS BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR object, ULONG objectSize,
                                      PUCHAR secret, ULONG secretSize, ULONG flags) = 0;
    virtual NTSTATUS BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG size, ULONG flags) = 0;
    virtual NTSTATUS BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG size, ULONG flags) = 0;
    virtual NTSTATUS BCryptDestroyHash(BCRYPT_HASH_HANDLE hash) = 0;
    virtual NTSTATUS BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm, ULONG flags) = 0;
};

}  // namespace platform
