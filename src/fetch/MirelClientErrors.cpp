#include "fetch/MirelClientErrors.h"

#include <map>

namespace {

struct Row {
    const wchar_t* name;
    const wchar_t* description;
};

using MirelClientErrorMap = std::map<std::int32_t, Row>;

// Built during static initialisation, looked up by exact code.
const MirelClientErrorMap MirelClientErrorTable = {
    {0, {L"MIRELCLIENT_SUCCESS", L"Operation completed successfully"}},
    {1, {L"MIRELCLIENT_PEM_FILE_FAILED", L"Failed to load or read PEM certificate file"}},
    {2, {L"MIRELCLIENT_CREATE_CLIENT_FAILED", L"Failed to create client instance"}},
    {3, {L"MIRELCLIENT_INIT_FAILED", L"Failed to initialize client"}},
    {4, {L"MIRELCLIENT_DOWNLOAD_PENDING", L"Download is still in progress"}},
    {5, {L"MIRELCLIENT_INVALID_THUMBPRINT", L"Invalid certificate thumbprint provided"}},
    {6, {L"MIRELCLIENT_QUEUE_DOWNLOAD_FAILED", L"Failed to queue download operation"}},
    {7, {L"MIRELCLIENT_DOWNLOAD_FAILED", L"Download operation failed"}},
    {8, {L"MIRELCLIENT_VERIFY_FAILED", L"Failed to verify downloaded file"}},
    {9, {L"MIRELCLIENT_HTTP_CERTIFICATE_ERROR", L"HTTPS certificate validation error"}},
    {10, {L"MIRELCLIENT_WRONG_SIZE_ERROR", L"Downloaded file size mismatch"}},
    {11, {L"MIRELCLIENT_WRONG_CHECKSUM_ERROR", L"Downloaded file checksum mismatch"}},
    {12, {L"MIRELCLIENT_INVALID_URI_ERROR", L"Invalid URI specified for download"}},
};

}  // namespace

ErrorInfo MirelClientError(std::int32_t code)
{
    auto row = MirelClientErrorTable.find(code);
    if (row == MirelClientErrorTable.end())
        return ErrorInfo{corestring(L"Unknown MIREL client error"), corestring(L"MIRELCLIENT_MAXCOUNT")};
    return ErrorInfo{corestring(row->second.description), corestring(row->second.name)};
}
