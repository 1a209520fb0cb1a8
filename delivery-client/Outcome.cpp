#include "Outcome.h"

namespace mirel {

const char* resultName(std::int32_t code)
{
    switch (code) {
    case MIRELCLIENT_SUCCESS:
        return "MIRELCLIENT_SUCCESS";
    case MIRELCLIENT_PEM_FILE_FAILED:
        return "MIRELCLIENT_PEM_FILE_FAILED";
    case MIRELCLIENT_CREATE_CLIENT_FAILED:
        return "MIRELCLIENT_CREATE_CLIENT_FAILED";
    case MIRELCLIENT_INIT_FAILED:
        return "MIRELCLIENT_INIT_FAILED";
    case MIRELCLIENT_DOWNLOAD_PENDING:
        return "MIRELCLIENT_DOWNLOAD_PENDING";
    case MIRELCLIENT_INVALID_THUMBPRINT:
        return "MIRELCLIENT_INVALID_THUMBPRINT";
    case MIRELCLIENT_QUEUE_DOWNLOAD_FAILED:
        return "MIRELCLIENT_QUEUE_DOWNLOAD_FAILED";
    case MIRELCLIENT_DOWNLOAD_FAILED:
        return "MIRELCLIENT_DOWNLOAD_FAILED";
    case MIRELCLIENT_VERIFY_FAILED:
        return "MIRELCLIENT_VERIFY_FAILED";
    case MIRELCLIENT_HTTP_CERTIFICATE_ERROR:
        return "MIRELCLIENT_HTTP_CERTIFICATE_ERROR";
    case MIRELCLIENT_WRONG_SIZE_ERROR:
        return "MIRELCLIENT_WRONG_SIZE_ERROR";
    case MIRELCLIENT_WRONG_CHECKSUM_ERROR:
        return "MIRELCLIENT_WRONG_CHECKSUM_ERROR";
    case MIRELCLIENT_INVALID_URI_ERROR:
        return "MIRELCLIENT_INVALID_URI_ERROR";
    default:
        return "unknown";
    }
}

int failureRank(std::int32_t code)
{
    switch (code) {
    case MIRELCLIENT_WRONG_CHECKSUM_ERROR:
        return 5;
    case MIRELCLIENT_WRONG_SIZE_ERROR:
        return 4;
    case MIRELCLIENT_HTTP_CERTIFICATE_ERROR:
        return 3;
    case MIRELCLIENT_VERIFY_FAILED:
        return 2;
    case MIRELCLIENT_DOWNLOAD_FAILED:
        return 1;
    default:
        return 0;
    }
}

void FailureTally::record(std::int32_t code, const std::string& why)
{
    if (code == MIRELCLIENT_SUCCESS)
        return;
    // The first of equally telling failures stays: it is the one the
    // administrator's first URL gave.
    if (m_code == MIRELCLIENT_SUCCESS || failureRank(code) > failureRank(m_code)) {
        m_code = code;
        m_why = why;
    }
}

bool skipsOtherRoutesOfUrl(std::int32_t code)
{
    return code == MIRELCLIENT_WRONG_SIZE_ERROR || code == MIRELCLIENT_WRONG_CHECKSUM_ERROR;
}

namespace {

struct ErrorRow {
    std::uint32_t error;
    const char* text;
    bool certificate;
};

const ErrorRow kErrors[] = {
    {12002, "timed out", false},
    {10060, "timed out", false},
    {10054, "connection reset", false},
    {12004, "internal error", false},
    {12005, "invalid URL", false},
    {12006, "unrecognized scheme", false},
    {12007, "host name not resolved", false},
    {12017, "operation cancelled", false},
    {12029, "cannot connect", false},
    {12030, "connection aborted", false},
    {12031, "connection reset", false},
    {12152, "invalid server response", false},
    {12180, "proxy auto-detection failed", false},
    {12166, "bad proxy auto-configuration script", false},
    {12167, "proxy auto-configuration script not downloaded", false},
    {12178, "auto-proxy service error", false},
    {12185, "response header too large", false},
    {12037, "certificate date invalid", true},
    {12038, "certificate host name invalid", true},
    {12044, "client certificate needed", true},
    {12045, "certificate authority not trusted", true},
    {12057, "certificate revocation check failed", true},
    {12157, "secure channel error", true},
    {12169, "invalid certificate", true},
    {12170, "certificate revoked", true},
    {12175, "secure failure", true},
    {12179, "certificate wrong usage", true},
};

}  // namespace

std::int32_t codeForWinHttpError(std::uint32_t error)
{
    for (const ErrorRow& row : kErrors)
        if (row.error == error)
            return row.certificate ? MIRELCLIENT_HTTP_CERTIFICATE_ERROR : MIRELCLIENT_DOWNLOAD_FAILED;
    return MIRELCLIENT_DOWNLOAD_FAILED;
}

std::string winHttpErrorText(std::uint32_t error)
{
    for (const ErrorRow& row : kErrors)
        if (row.error == error)
            return std::to_string(error) + " (" + row.text + ")";
    return std::to_string(error);
}

}  // namespace mirel
