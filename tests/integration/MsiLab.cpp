#include "MsiLab.h"

#include <msi.h>

#include <stdexcept>

#include "Harness.h"

namespace it {

std::wstring PackagePath(const LabPackage& package)
{
    std::wstring path = JoinPath(JoinPath(HarnessDirectory(), L"fixtures"), package.fixture);
    if (!PathExists(path))
        throw std::runtime_error("lab package " + Narrow(path) + " is missing: the fixtures target builds it");
    return path;
}

std::wstring CopyPackage(const LabPackage& package, const std::wstring& folder, const std::wstring& name)
{
    MakeDirectories(folder);
    std::wstring path = JoinPath(folder, name);
    if (!::CopyFileW(PackagePath(package).c_str(), path.c_str(), FALSE))
        throw std::runtime_error("can't copy " + Narrow(package.fixture) + " to " + Narrow(path) + " (error " +
                                 std::to_string(::GetLastError()) + ")");
    return path;
}

DWORD RunAndWait(const std::wstring& commandLine, DWORD timeoutMs)
{
    std::wstring line = commandLine;  // CreateProcessW may write into it
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info{};
    if (!::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info))
        throw std::runtime_error("can't start " + Narrow(commandLine) + " (error " + std::to_string(::GetLastError()) +
                                 ")");
    ::CloseHandle(info.hThread);
    DWORD waited = ::WaitForSingleObject(info.hProcess, timeoutMs);
    DWORD code = 0;
    BOOL gotCode = ::GetExitCodeProcess(info.hProcess, &code);
    if (waited != WAIT_OBJECT_0)
        ::TerminateProcess(info.hProcess, 1);
    ::CloseHandle(info.hProcess);
    if (waited != WAIT_OBJECT_0)
        throw std::runtime_error(Narrow(commandLine) + " did not end within " + std::to_string(timeoutMs) + " ms");
    if (!gotCode)
        throw std::runtime_error("no exit code from " + Narrow(commandLine));
    return code;
}

DWORD InstallPackage(const std::wstring& msiPath) { return RunAndWait(L"msiexec /i \"" + msiPath + L"\" /qn"); }

DWORD InstallPackage(const LabPackage& package) { return InstallPackage(PackagePath(package)); }

DWORD UninstallProduct(const std::wstring& productCode) { return RunAndWait(L"msiexec /x " + productCode + L" /qn"); }

std::vector<std::wstring> RelatedProducts(const std::wstring& upgradeCode)
{
    std::vector<std::wstring> codes;
    for (DWORD index = 0;; ++index) {
        wchar_t code[39] = {};
        if (::MsiEnumRelatedProductsW(upgradeCode.c_str(), 0, index, code) != ERROR_SUCCESS)
            break;
        codes.emplace_back(code);
    }
    return codes;
}

std::optional<std::wstring> ProductVersion(const std::wstring& productCode)
{
    wchar_t buffer[256] = {};
    DWORD size = 256;
    if (::MsiGetProductInfoW(productCode.c_str(), INSTALLPROPERTY_VERSIONSTRING, buffer, &size) != ERROR_SUCCESS)
        return std::nullopt;
    return std::wstring(buffer, size);
}

std::optional<std::wstring> InstalledVersion(const std::wstring& upgradeCode)
{
    std::vector<std::wstring> codes = RelatedProducts(upgradeCode);
    if (codes.empty())
        return std::nullopt;
    return ProductVersion(codes.front());
}

void RemoveLabProducts()
{
    for (const wchar_t* upgradeCode : {kAgentUpgradeCode, kLegacyAgentUpgradeCode, kGenericToolUpgradeCode}) {
        for (const std::wstring& productCode : RelatedProducts(upgradeCode)) {
            DWORD code = UninstallProduct(productCode);
            if (code != ERROR_SUCCESS)
                throw std::runtime_error("msiexec /x " + Narrow(productCode) + " ended with " + std::to_string(code));
        }
        if (!RelatedProducts(upgradeCode).empty())
            throw std::runtime_error("a product of " + Narrow(upgradeCode) + " is still installed");
    }
}

}  // namespace it
