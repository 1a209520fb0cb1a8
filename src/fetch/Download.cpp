#include "fetch/Download.h"

#include <cwchar>
#include <string>
#include <vector>

#include "core/log/LogLine.h"
#include "fetch/CertPaths.h"
#include "fetch/FetchGate.h"
#include "fetch/MirelClientErrors.h"
#include "fetch/ShareCopy.h"
#include "fetch/Workspace.h"
#include "platform/Services.h"
#include "update/UpdateRecord.h"
#include "update/UpdateRecordReader.h"

using CORE::keywordEquals;
using CORE::WideToUtf8;

namespace {

const wchar_t* const kTag = L"Util_DoDownload";

// The items that aren't empty, in UTF-8, in their order.
std::vector<std::string> nonEmptyUtf8(const CORE::StringList& items)
{
    std::vector<std::string> list;
    for (const corestring& item : items)
        if (!item.empty())
            list.push_back(WideToUtf8(item));
    return list;
}

// Each refusal of the certificate step: nothing is fetched and no error
// name is set.
bool invalid()
{
    g_updateRecord.sResult = L"INVALID";
    return false;
}

// Tells the client how to check the server; false after a refusal. The
// thumbprints travel with the download itself.
bool chooseCertificateCheck(std::vector<std::string>& thumbprints)
{
    UpdateRecord& r = g_updateRecord;
    platform::Delivery& delivery = platform::delivery();
    if (r.sCertType.empty()) {
        LogLine(L"%s: certificate type not specified", kTag);
        return invalid();
    }
    if (keywordEquals(r.sCertType.c_str(), L"CERT_PEM", true)) {
        std::string pem = WideToUtf8(UtilGetPEMFilePath());
        if (pem.empty()) {
            LogLine(L"%s: CertType is specified as CERT_PEM, but certificate PEM filePath is empty", kTag);
            return invalid();
        }
        LogLine(L"%s: certificate PEM filePath: %S", kTag, pem.c_str());
        delivery.MirelSetPemFile(pem);
        return true;
    }
    if (keywordEquals(r.sCertType.c_str(), L"THUMBPRINT", true)) {
        if (r.sThumbprints.empty()) {
            LogLine(L"%s: CertType is specified as THUMBPRINT, but thumbprints are not provided for server cert "
                    L"validation. ",
                    kTag);
            return invalid();
        }
        LogLine(L"%s: Using thumbprints for verifying server certificate. Thumbprint count: %d", kTag,
                static_cast<int>(r.sThumbprints.size()));
        thumbprints = nonEmptyUtf8(r.sThumbprints);
        return true;
    }
    if (keywordEquals(r.sCertType.c_str(), L"CERT_SYSTEM_CA", true)) {
        LogLine(L"%s: Using system CA for certificate type", kTag);
        const bool yes = true;
        delivery.MirelUseSystemCA(&yes);
        return true;
    }
    LogLine(L"%s: Invalid certificate type specified", kTag);
    return invalid();
}

// sFileName from the workspace and the first URL; the payload's type.
MirelClientPayloadType choosePayload()
{
    UpdateRecord& r = g_updateRecord;
    r.sFileName = r.sWorkspace;
    // A query string stays in the name.
    corestring urlName = Util_GetFileNamePart(corestring::toBackslashes(r.sURLs.front().c_str()));
    if (std::wcsstr(urlName.c_str(), L".tar")) {
        // The archive's own name plays no part: its content lands below the workspace.
        if (!r.sRelativeFolderPath.empty())
            r.sFileName.appendPath(r.sRelativeFolderPath.c_str());
        if (!r.sPackageFileName.empty())
            r.sFileName.appendPath(r.sPackageFileName.c_str());
        return MirelClientPayloadType::TAR;
    }
    if (urlName.findChar(L'%') != corestring::npos)
        urlName = Util_UrlDecode(urlName);
    r.sFileName.appendPath(urlName.c_str());
    return MirelClientPayloadType::EXE;
}

}  // namespace

corestring PayloadTypeText(std::int32_t type)
{
    switch (static_cast<MirelClientPayloadType>(type)) {
    case MirelClientPayloadType::EXE:
        return corestring(L"MirelClientPayloadType::EXE");
    case MirelClientPayloadType::TAR:
        return corestring(L"MirelClientPayloadType::TAR");
    case MirelClientPayloadType::ZIP:
        return corestring(L"MirelClientPayloadType::ZIP");
    default: {
        corestring text;
        return corestring::format(text, L"PayloadType ERR_%d", static_cast<int>(type));
    }
    }
}

corestring Util_UrlDecode(const corestring& text)
{
    corestring decoded;
    const wchar_t* p = text.c_str();
    const std::uint64_t length = text.length();
    for (std::uint64_t i = 0; i < length; ++i) {
        if (p[i] == L'%' && i + 2 < length) {
            // What wcstol makes of the two: "4G" is 4, "GG" is 0.
            const wchar_t digits[3] = {p[i + 1], p[i + 2], L'\0'};
            decoded.appendChar(static_cast<wchar_t>(std::wcstol(digits, nullptr, 16)), 1);
            i += 2;
        } else if (p[i] == L'+') {
            decoded.appendChar(L' ', 1);
        } else {
            decoded.appendChar(p[i], 1);
        }
    }
    return decoded;
}

bool Util_DoDownload()
{
    FetchGate gate = Util_FetchGate(kTag);
    if (gate != FetchGate::Fetch)
        return gate == FetchGate::Install;

    UpdateRecord& r = g_updateRecord;
    std::vector<std::string> thumbprints;
    if (!chooseCertificateCheck(thumbprints))
        return false;
    if (r.sURLs.empty()) {
        r.sResult = L"INVALID";
        LogLine(L"%s: download URL empty", kTag);
        return false;
    }

    const std::string identity = WideToUtf8(r.sUpdateKey);
    // Above 2147483647 the conversion stops at that maximum.
    const std::int32_t size = std::wcstol(ParseNumberText(r.sFileSize).c_str(), nullptr, 0);
    const std::string checksum = WideToUtf8(r.sCheckSum);
    r.sWorkspace = Util_GetWorkspace();
    const std::string workspace = WideToUtf8(r.sWorkspace);

    // "FILENAME" is empty only before a job's first attempt: it starts counting here.
    if (r.sFileName.empty())
        r.nRetry = 0;
    const MirelClientPayloadType type = choosePayload();
    LogLine(L"%s: localPath: %S workspace: %S localFile: %s payloadType: %s", kTag, workspace.c_str(),
            workspace.c_str(), r.sFileName.c_str(), PayloadTypeText(static_cast<std::int32_t>(type)).c_str());

    platform::Delivery& delivery = platform::delivery();
    // The result isn't looked at: the run reports what the client makes of it.
    void* download = delivery.MirelCreateDownload(identity, size, true, nonEmptyUtf8(r.sURLs), thumbprints,
                                                  nonEmptyUtf8(r.sProxies), WideToUtf8(r.sPacUrl), workspace,
                                                  checksum, 0, static_cast<std::int32_t>(type));
    // The whole transfer: no polling, no timeout and no retry of its own here.
    const std::int32_t code = delivery.MirelRunDownloads(workspace, {download});
    if (code == MIRELCLIENT_SUCCESS) {
        r.sResult = L"OK";
        LogLine(L"%s: download done", kTag);
    } else {
        r.sResult = L"FAILURE";
        ErrorInfo error = MirelClientError(code);
        r.sErrorCode = error.name;
        r.sErrorDesc = error.description;
        LogLine(L"%s: download failed: %d [%s] - %s", kTag, static_cast<int>(code), error.name.c_str(),
                error.description.c_str());
    }
    delivery.MirelDestroyDownload(download);
    return false;
}
