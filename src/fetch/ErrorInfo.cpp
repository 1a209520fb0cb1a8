#include "fetch/ErrorInfo.h"

#include "core/string/systemtext.h"
#include "update/UpdateRecord.h"

namespace {

struct ErrorRow {
    std::uint32_t code;
    const wchar_t* name;
    const wchar_t* description;  // null: the system's text stands
};

// Negative codes are the tool's own, taken as unsigned like every code here.
constexpr std::uint32_t own(std::int32_t code) { return static_cast<std::uint32_t>(code); }

const ErrorRow kErrors[] = {
    {2, L"UNC_FILE_NOT_FOUND", L"The specified file was not found on the network path."},
    {3, L"UNC_PATH_NOT_FOUND", L"The specified network path was not found."},
    {5, L"UNC_ACCESS_DENIED", L"Access to the network path was denied."},
    {32, L"UNC_SHARING_VIOLATION", L"Sharing violation, the file is being used by another process."},
    {53, L"UNC_BAD_NETPATH", L"The network path could not be found."},
    {65, L"UNC_NETWORK_ACCESS_DENIED", L"Access to the network was denied."},
    {67, L"UNC_BAD_NET_NAME", L"The network name could not be found."},
    {1222, L"UNC_NO_NETWORK", L"The network is not currently available."},
    {2250, L"UNC_DEVICE_NOT_CONNECTED", L"The UNC network device is not connected."},
    {2404, L"UNC_DEVICE_IN_USE", L"The UNC network resource is currently in use."},
    {1601, L"ERROR_INSTALL_SERVICE_FAILURE", nullptr},
    {1602, L"ERROR_INSTALL_USEREXIT", nullptr},
    {1603, L"ERROR_INSTALL_FAILURE", nullptr},
    {1604, L"ERROR_INSTALL_SUSPEND", nullptr},
    {1605, L"ERROR_UNKNOWN_PRODUCT", nullptr},
    {1606, L"ERROR_UNKNOWN_FEATURE", nullptr},
    {1611, L"ERROR_INDEX_ABSENT", nullptr},
    {1612, L"ERROR_INSTALL_SOURCE_ABSENT", nullptr},
    {1614, L"ERROR_PRODUCT_UNINSTALLED", nullptr},
    {1618, L"ERROR_INSTALL_ALREADY_RUNNING", nullptr},
    {1619, L"ERROR_INSTALL_PACKAGE_OPEN_FAILED", nullptr},
    {1620, L"ERROR_INSTALL_PACKAGE_INVALID", nullptr},
    {own(-1), L"UNC_INVALID_SHARE_TYPE_ERROR", L"Invalid share type specified"},
    {own(-2), L"UNC_CHECKSUM_MISMATCH_ERROR", L"Checksum mismatch error"},
    {own(-3), L"UNC_INTERNAL_CHECKSUM_ERROR", L"Internal checksum computation error"},
    {own(-4), L"UNC_FAILED_GETTING_FILE_SIZE_ERROR", L"Internal file size computation error"},
    {own(-5), L"UNC_COPIED_FILE_SIZE_MISMATCH_ERROR", L"Filesize mismatch error"},
};

}  // namespace

ErrorInfo Util_GetErrorInfo(std::uint32_t code)
{
    ErrorInfo info;
    if (!CORE::systemErrorText(code, 0, info.description))
        info.description = L"Unknown error";
    for (const ErrorRow& row : kErrors) {
        if (row.code != code)
            continue;
        info.name = row.name;
        if (row.description)
            info.description = row.description;
        return info;
    }
    info.name = corestring::fromNumber(code, 10);
    return info;
}

ErrorInfo Util_SetFailureFromCode(std::uint32_t code)
{
    ErrorInfo info = Util_GetErrorInfo(code);
    g_updateRecord.sErrorCode = info.name;
    g_updateRecord.sErrorDesc = info.description;
    return info;
}
