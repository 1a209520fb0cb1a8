#pragma once
#include <string>
#include <vector>

#include "platform/Hashing.h"

namespace fakes {

// The real CNG SHA-256 behind a recorder: each call is passed on to the
// Win32 implementation unless the test has made that operation fail, in
// which case it returns the given status without touching anything.
class FakeHashing : public platform::Hashing {
public:
    enum class Op { Open, GetProperty, CreateHash, HashData, FinishHash, DestroyHash, CloseProvider };

    NTSTATUS BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR id, LPCWSTR implementation,
                                         ULONG flags) override;
    NTSTATUS BCryptGetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR output, ULONG size, ULONG* result,
                               ULONG flags) override;
    NTSTATUS BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR object, ULONG objectSize,
                              PUCHAR secret, ULONG secretSize, ULONG flags) override;
    NTSTATUS BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG size, ULONG flags) override;
    NTSTATUS BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG size, ULONG flags) override;
    NTSTATUS BCryptDestroyHash(BCRYPT_HASH_HANDLE hash) override;
    NTSTATUS BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm, ULONG flags) override;

    // Makes the operation's `nth` call (1 = first) and all later ones fail.
    void fail(Op op, NTSTATUS status, int nth = 1);

    // What was asked.
    std::vector<Op> calls;
    std::vector<std::wstring> algorithmIds;
    std::vector<bool> implementationGiven;  // per open: a non-null implementation name
    std::vector<ULONG> openFlags;
    std::vector<std::wstring> properties;
    struct Create {
        bool objectGiven;
        ULONG objectSize;
        bool secretGiven;
        ULONG secretSize;
        ULONG flags;
    };
    std::vector<Create> creates;
    std::vector<ULONG> hashSizes;  // bytes of each BCryptHashData
    std::vector<ULONG> finishSizes;
    std::vector<ULONG> closeFlags;
    // Handles given out and not yet given back.
    int openProviders = 0;
    int openHashes = 0;
    // When non-zero, BCryptGetProperty reports this digest length instead
    // (the real provider then refuses to finish into a buffer of that size).
    ULONG digestLengthOverride = 0;

    int count(Op op) const;

private:
    struct Failure {
        Op op;
        NTSTATUS status;
        int nth;
    };
    bool failing(Op op, NTSTATUS& status);
    std::vector<Failure> m_failures;
};

}  // namespace fakes
