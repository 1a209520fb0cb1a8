#pragma once
// The lab's Windows Installer packages (tests/fixtures, built into
// bin/fixtures beside the harness) and what a test needs around them:
// install and remove them with the prefix's msiexec, and ask Windows
// Installer which version of a product is installed, independently of the
// tool.
//
// Every package is a per-machine x64 product with one small file below
// Program Files and a major upgrade: a newer version of the same upgrade
// code replaces an older one, an older one is refused with 1603.
#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace it {

struct LabPackage {
    const wchar_t* fixture;  // file name in bin/fixtures
    const wchar_t* name;     // ProductName
    const wchar_t* version;  // ProductVersion, what "VersionString" gives back
    const wchar_t* upgradeCode;
    const wchar_t* productCode;
};

// The agent's upgrade codes, current and former brand.
inline constexpr const wchar_t* kAgentUpgradeCode = L"{6E1F3A90-52D7-4B1C-9C3E-7A40D2B1F6E8}";
inline constexpr const wchar_t* kLegacyAgentUpgradeCode = L"{C04B7D21-8E36-47FA-A15D-3F9E26C8B074}";
// A product the tool knows nothing about, for "AGENT" = "OTHER".
inline constexpr const wchar_t* kGenericToolUpgradeCode = L"{3221A8D7-1A4E-4F52-9E75-1E7D6497FF13}";

inline constexpr LabPackage kAgent8_10_0 = {L"agent-8-10-0.msi", L"Zenthra Lab Agent", L"8.10.0", kAgentUpgradeCode,
                                            L"{8EEF60B9-604E-4DB3-9310-1E54692F8320}"};
inline constexpr LabPackage kAgent8_12_0 = {L"agent-8-12-0.msi", L"Zenthra Lab Agent", L"8.12.0", kAgentUpgradeCode,
                                            L"{A76F1558-E8A7-4841-9AFD-685A49113052}"};
inline constexpr LabPackage kAgent8_14_0 = {L"agent-8-14-0.msi", L"Zenthra Lab Agent", L"8.14.0", kAgentUpgradeCode,
                                            L"{77EAC955-7391-4FDC-82E5-7024822FA4BF}"};
inline constexpr LabPackage kLegacyAgent8_9_0 = {L"legacy-agent-8-9-0.msi", L"Kesmarc Lab Agent", L"8.9.0",
                                                 kLegacyAgentUpgradeCode, L"{636013BB-C032-481B-8AAD-387BE69C3B49}"};
inline constexpr LabPackage kGenericTool1_0_0 = {L"generic-tool-1-0-0.msi", L"Lab Generic Tool", L"1.0.0",
                                                 kGenericToolUpgradeCode, L"{81730D9E-9FE9-48A9-92A5-050EED2F3F44}"};
inline constexpr LabPackage kGenericTool1_1_0 = {L"generic-tool-1-1-0.msi", L"Lab Generic Tool", L"1.1.0",
                                                 kGenericToolUpgradeCode, L"{9F954DE4-710F-4D13-AF4E-160CDF674B8E}"};

// bin\fixtures\<fixture>; throws when the package hasn't been built.
std::wstring PackagePath(const LabPackage& package);
// A copy of the package as folder\name (making the folder), as a fetch would
// leave it; the copy's path.
std::wstring CopyPackage(const LabPackage& package, const std::wstring& folder, const std::wstring& name);

// Runs a command line (as CreateProcessW takes it) and waits for it; its
// 32-bit exit code. Throws when the process can't be started or doesn't end
// within the time.
DWORD RunAndWait(const std::wstring& commandLine, DWORD timeoutMs = 120000);

// msiexec /i "<path>" /qn: 0 when installed.
DWORD InstallPackage(const std::wstring& msiPath);
DWORD InstallPackage(const LabPackage& package);
// msiexec /x <product code> /qn: 0 when removed, 1605 when it wasn't installed.
DWORD UninstallProduct(const std::wstring& productCode);

// Product codes of the installed products of an upgrade code, in the order
// MsiEnumRelatedProductsW gives them.
std::vector<std::wstring> RelatedProducts(const std::wstring& upgradeCode);
// "VersionString" of an installed product; nothing when it isn't installed.
std::optional<std::wstring> ProductVersion(const std::wstring& productCode);
// The version of the first installed product of an upgrade code, as the
// tool asks for it; nothing when none is installed.
std::optional<std::wstring> InstalledVersion(const std::wstring& upgradeCode);

// Removes every installed product of the lab's three upgrade codes; throws
// when one stays, so that no test starts on a machine it didn't expect.
void RemoveLabProducts();

// A fixture whose tests start and end with none of the lab's products
// installed.
template <class Fixture>
class WithoutLabProducts : public Fixture {
protected:
    void SetUp() override
    {
        Fixture::SetUp();
        RemoveLabProducts();
    }

    void TearDown() override
    {
        RemoveLabProducts();
        Fixture::TearDown();
    }
};

}  // namespace it
