#include "fakes/FakeHashing.h"

#include <algorithm>
#include <cstring>
#include <cwchar>

#include "platform/Services.h"

namespace fakes {

namespace {
platform::Hashing& real() { return *platform::win32Services().hashing; }
}  // namespace

void FakeHashing::fail(Op op, NTSTATUS status, int nth) { m_failures.push_back({op, status, nth}); }

int FakeHashing::count(Op op) const { return static_cast<int>(std::count(calls.begin(), calls.end(), op)); }

bool FakeHashing::failing(Op op, NTSTATUS& status)
{
    calls.push_back(op);
    int n = count(op);
    for (const Failure& f : m_failures) {
        if (f.op == op && n >= f.nth) {
            status = f.status;
            return true;
        }
    }
    return false;
}

NTSTATUS FakeHashing::BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR id, LPCWSTR implementation,
                                                  ULONG flags)
{
    algorithmIds.push_back(id ? id : L"(null)");
    implementationGiven.push_back(implementation != nullptr);
    openFlags.push_back(flags);
    NTSTATUS status = 0;
    if (failing(Op::Open, status))
        return status;
    status = real().BCryptOpenAlgorithmProvider(algorithm, id, implementation, flags);
    if (status == 0)
        ++openProviders;
    return status;
}

NTSTATUS FakeHashing::BCryptGetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR output, ULONG size,
                                        ULONG* result, ULONG flags)
{
    properties.push_back(property ? property : L"(null)");
    NTSTATUS status = 0;
    if (failing(Op::GetProperty, status))
        return status;
    status = real().BCryptGetProperty(object, property, output, size, result, flags);
    if (status == 0 && digestLengthOverride && size == sizeof(ULONG) && property &&
        std::wcscmp(property, BCRYPT_HASH_LENGTH) == 0)
        std::memcpy(output, &digestLengthOverride, sizeof(ULONG));
    return status;
}

NTSTATUS FakeHashing::BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR object,
                                       ULONG objectSize, PUCHAR secret, ULONG secretSize, ULONG flags)
{
    creates.push_back({object != nullptr, objectSize, secret != nullptr, secretSize, flags});
    NTSTATUS status = 0;
    if (failing(Op::CreateHash, status))
        return status;
    status = real().BCryptCreateHash(algorithm, hash, object, objectSize, secret, secretSize, flags);
    if (status == 0)
        ++openHashes;
    return status;
}

NTSTATUS FakeHashing::BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG size, ULONG flags)
{
    hashSizes.push_back(size);
    NTSTATUS status = 0;
    if (failing(Op::HashData, status))
        return status;
    return real().BCryptHashData(hash, input, size, flags);
}

NTSTATUS FakeHashing::BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG size, ULONG flags)
{
    finishSizes.push_back(size);
    NTSTATUS status = 0;
    if (failing(Op::FinishHash, status))
        return status;
    return real().BCryptFinishHash(hash, output, size, flags);
}

NTSTATUS FakeHashing::BCryptDestroyHash(BCRYPT_HASH_HANDLE hash)
{
    NTSTATUS status = 0;
    if (failing(Op::DestroyHash, status))
        return status;
    status = real().BCryptDestroyHash(hash);
    if (status == 0)
        --openHashes;
    return status;
}

NTSTATUS FakeHashing::BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm, ULONG flags)
{
    closeFlags.push_back(flags);
    NTSTATUS status = 0;
    if (failing(Op::CloseProvider, status))
        return status;
    status = real().BCryptCloseAlgorithmProvider(algorithm, flags);
    if (status == 0)
        --openProviders;
    return status;
}

}  // namespace fakes
