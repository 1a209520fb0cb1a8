#include "fetch/CertPaths.h"

#include "core/log/LogLine.h"
#include "platform/Services.h"
#include "registry/Registry.h"

namespace {

// The CA file below the install folder a root names; empty without one.
corestring caFileUnder(const corestring& root)
{
    corestring path = root;
    path.append(L"\\AgentInstallPath");
    corestring file;
    RegistryRead(file, path.c_str(), kRegAnyType, false);
    if (!file.empty())
        file.appendPath(L"cert\\cacert.pem");
    return file;
}

bool exists(const corestring& path) { return !path.empty() && platform::files().PathFileExistsW(path.c_str()); }

}  // namespace

corestring UtilGetPEMFilePath()
{
    corestring file = caFileUnder(GetNewRootKeyPath());
    if (exists(file))
        return file;
    file = caFileUnder(GetLegacyRootKeyPath());
    if (exists(file))
        return file;
    LogLine(L"%s: cert file '%s' does not exist, returning legacy agent cert path ", L"UtilGetPEMFilePath",
            file.c_str());
    return Util_GetDaasCertPath();
}

corestring Util_GetDaasCertPath()
{
    // The DaaS agent is a 32-bit program: its keys live in the 32-bit view.
    corestring folder = RegistryReadOrDefault(L"HKLM\\Software\\Tarvelle\\DaaS Agent\\CertFolder", L"", true);
    if (!exists(folder))
        folder = RegistryReadOrDefault(L"HKLM\\Software\\Kesmarc, Inc.\\Kesmarc DaaS Agent\\CertFolder", L"", true);
    if (!folder.empty()) {
        // The file's name comes from the new key, wherever the folder came from.
        corestring name = RegistryReadOrDefault(L"HKLM\\Software\\Tarvelle\\DaaS Agent\\CertFileName", L"", true);
        folder.appendPath(name.c_str());
    }
    return folder;
}
