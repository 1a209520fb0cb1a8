#pragma once
// The lab's SMB share for the share copy tests: \\fileserver\share, which the
// prefix maps to a folder of the build tree (scripts/lab.sh), and the lab's
// network provider (tests/lab/mpr), which answers the tool's connection
// calls like Windows instead of Wine's constant 1222.
#include <string>
#include <vector>

#include "JobFixture.h"

namespace it {

inline constexpr const wchar_t* kLabShare = L"\\\\fileserver\\share";

// SHA-256 of one million "a", from the standard's test vectors: the usual
// payload of the share tests.
inline constexpr const wchar_t* kDigestOfMillionA =
    L"cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0";

// Puts the provider built next to the harness into the prefix's system32,
// where the lab's override for zenthra-updatetool.exe alone finds it.
// Idempotent; throws when the share or the provider is missing.
void UseLabNetworkProvider();

// A job test with a fresh folder on the lab's share, and runs that record
// every call the tool makes to the network provider.
class ShareTest : public JobTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // Writes a file into the test's share folder; its UNC path.
    std::wstring PutOnShare(const std::wstring& name, const std::string& bytes);
    // A run like RunJob, with the provider's call trace switched on.
    JobRun RunShareJob(DWORD timeoutMs = 60000);
    // The provider's trace lines of all runs so far; empty when it wasn't called.
    std::vector<std::string> ProviderCalls() const;

    std::wstring shareFolder_;  // \\fileserver\share\<test>
    std::wstring traceFile_;
};

// The provider's trace lines for one connection and one disconnection.
std::string ConnectCall(const std::wstring& remote, unsigned answer);
std::string DisconnectCall(const std::wstring& name, unsigned answer);

}  // namespace it
