// The tool's table of error names: the names and own descriptions of every
// row, the system's text where a row has none, and the fallbacks for codes
// outside the table.
#include "fetch/ErrorInfo.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "fetch_test_support.h"

using namespace fetch_test;

namespace {

class ErrorInfoTest : public FetchTest {};

struct OwnRow {
    std::int64_t code;
    const wchar_t* name;
    const wchar_t* description;
};

class ErrorInfoOwnText : public ErrorInfoTest, public ::testing::WithParamInterface<OwnRow> {};

TEST_P(ErrorInfoOwnText, NameAndTheTablesOwnDescription)
{
    const OwnRow& row = GetParam();
    ErrorInfo info = Util_GetErrorInfo(static_cast<std::uint32_t>(row.code));
    EXPECT_STREQ(row.name, info.name.c_str());
    EXPECT_STREQ(row.description, info.description.c_str());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ErrorInfoOwnText,
    ::testing::Values(
        OwnRow{2, L"UNC_FILE_NOT_FOUND", L"The specified file was not found on the network path."},
        OwnRow{3, L"UNC_PATH_NOT_FOUND", L"The specified network path was not found."},
        OwnRow{5, L"UNC_ACCESS_DENIED", L"Access to the network path was denied."},
        OwnRow{32, L"UNC_SHARING_VIOLATION", L"Sharing violation, the file is being used by another process."},
        OwnRow{53, L"UNC_BAD_NETPATH", L"The network path could not be found."},
        OwnRow{65, L"UNC_NETWORK_ACCESS_DENIED", L"Access to the network was denied."},
        OwnRow{67, L"UNC_BAD_NET_NAME", L"The network name could not be found."},
        OwnRow{1222, L"UNC_NO_NETWORK", L"The network is not currently available."},
        OwnRow{2250, L"UNC_DEVICE_NOT_CONNECTED", L"The UNC network device is not connected."},
        OwnRow{2404, L"UNC_DEVICE_IN_USE", L"The UNC network resource is currently in use."},
        OwnRow{-1, L"UNC_INVALID_SHARE_TYPE_ERROR", L"Invalid share type specified"},
        OwnRow{-2, L"UNC_CHECKSUM_MISMATCH_ERROR", L"Checksum mismatch error"},
        OwnRow{-3, L"UNC_INTERNAL_CHECKSUM_ERROR", L"Internal checksum computation error"},
        OwnRow{-4, L"UNC_FAILED_GETTING_FILE_SIZE_ERROR", L"Internal file size computation error"},
        OwnRow{-5, L"UNC_COPIED_FILE_SIZE_MISMATCH_ERROR", L"Filesize mismatch error"}),
    [](const auto& info) {
        return info.param.code < 0 ? "Minus" + std::to_string(-info.param.code) : std::to_string(info.param.code);
    });

struct SystemRow {
    std::uint32_t code;
    const wchar_t* name;
};

class ErrorInfoSystemText : public ErrorInfoTest, public ::testing::WithParamInterface<SystemRow> {};

TEST_P(ErrorInfoSystemText, NameAndTheSystemsTextWithItsLineEnd)
{
    const SystemRow& row = GetParam();
    std::optional<std::wstring> text = systemText(row.code);
    ErrorInfo info = Util_GetErrorInfo(row.code);
    EXPECT_STREQ(row.name, info.name.c_str());
    if (text) {
        EXPECT_EQ(*text, std::wstring(info.description.c_str()));
    } else {
        EXPECT_STREQ(L"Unknown error", info.description.c_str());
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, ErrorInfoSystemText,
                         ::testing::Values(SystemRow{1601, L"ERROR_INSTALL_SERVICE_FAILURE"},
                                           SystemRow{1602, L"ERROR_INSTALL_USEREXIT"},
                                           SystemRow{1603, L"ERROR_INSTALL_FAILURE"},
                                           SystemRow{1604, L"ERROR_INSTALL_SUSPEND"},
                                           SystemRow{1605, L"ERROR_UNKNOWN_PRODUCT"},
                                           SystemRow{1606, L"ERROR_UNKNOWN_FEATURE"},
                                           SystemRow{1611, L"ERROR_INDEX_ABSENT"},
                                           SystemRow{1612, L"ERROR_INSTALL_SOURCE_ABSENT"},
                                           SystemRow{1614, L"ERROR_PRODUCT_UNINSTALLED"},
                                           SystemRow{1618, L"ERROR_INSTALL_ALREADY_RUNNING"},
                                           SystemRow{1619, L"ERROR_INSTALL_PACKAGE_OPEN_FAILED"},
                                           SystemRow{1620, L"ERROR_INSTALL_PACKAGE_INVALID"}),
                         [](const auto& info) { return std::to_string(info.param.code); });

TEST_F(ErrorInfoTest, InstallFailureKeepsTheSystemsLineEnd)
{
    std::optional<std::wstring> text = systemText(1603);
    ASSERT_TRUE(text.has_value()) << "the system has no text for 1603";
    ErrorInfo info = Util_GetErrorInfo(1603);
    std::wstring description = info.description.c_str();
    ASSERT_GE(description.size(), 3u);
    EXPECT_EQ(L"\r\n", description.substr(description.size() - 2));
    EXPECT_NE(L"Unknown error", description);
}

TEST_F(ErrorInfoTest, CodeOutsideTheTableIsNamedByItsNumberWithTheSystemsText)
{
    std::optional<std::wstring> text = systemText(ERROR_LOGON_FAILURE);
    ASSERT_TRUE(text.has_value());
    ErrorInfo info = Util_GetErrorInfo(ERROR_LOGON_FAILURE);
    EXPECT_STREQ(L"1326", info.name.c_str());
    EXPECT_EQ(*text, std::wstring(info.description.c_str()));
}

TEST_F(ErrorInfoTest, CodeZeroIsOutsideTheTable)
{
    std::optional<std::wstring> text = systemText(0);
    ASSERT_TRUE(text.has_value());
    ErrorInfo info = Util_GetErrorInfo(0);
    EXPECT_STREQ(L"0", info.name.c_str());
    EXPECT_EQ(*text, std::wstring(info.description.c_str()));
}

TEST_F(ErrorInfoTest, CodeWithoutSystemTextIsAnUnknownError)
{
    // Bit 29 marks codes that belong to applications: the system has no text.
    const std::uint32_t code = 0x20000001u;
    ASSERT_FALSE(systemText(code).has_value());
    ErrorInfo info = Util_GetErrorInfo(code);
    EXPECT_STREQ(L"536870913", info.name.c_str());
    EXPECT_STREQ(L"Unknown error", info.description.c_str());
}

TEST_F(ErrorInfoTest, NegativeCodeOutsideTheTableIsNamedAsAnUnsignedNumber)
{
    ErrorInfo minusSix = Util_GetErrorInfo(static_cast<std::uint32_t>(-6));
    EXPECT_STREQ(L"4294967290", minusSix.name.c_str());
    ErrorInfo minusOneHundred = Util_GetErrorInfo(static_cast<std::uint32_t>(-100));
    EXPECT_STREQ(L"4294967196", minusOneHundred.name.c_str());
    ErrorInfo minusSixteen = Util_GetErrorInfo(0xFFFFFFF0u);
    EXPECT_STREQ(L"4294967280", minusSixteen.name.c_str());
    // Their text is the system's, if it has one.
    std::optional<std::wstring> text = systemText(static_cast<DWORD>(-6));
    EXPECT_EQ(text.value_or(L"Unknown error"), std::wstring(minusSix.description.c_str()));
}

TEST_F(ErrorInfoTest, NeighboursOfTableRowsAreNotInTheTable)
{
    for (std::uint32_t code : {1u, 4u, 54u, 66u, 1223u, 1600u, 1607u, 1610u, 1613u, 1615u, 1617u, 1621u, 2251u}) {
        SCOPED_TRACE(code);
        EXPECT_EQ(std::to_wstring(code), std::wstring(Util_GetErrorInfo(code).name.c_str()));
    }
}

TEST_F(ErrorInfoTest, SetFailureFromCodeFillsTheRecordAndReturnsTheSame)
{
    ErrorInfo info = Util_SetFailureFromCode(67);
    EXPECT_STREQ(L"UNC_BAD_NET_NAME", info.name.c_str());
    EXPECT_STREQ(L"The network name could not be found.", info.description.c_str());
    EXPECT_STREQ(L"UNC_BAD_NET_NAME", g_updateRecord.sErrorCode.c_str());
    EXPECT_STREQ(L"The network name could not be found.", g_updateRecord.sErrorDesc.c_str());
}

TEST_F(ErrorInfoTest, SetFailureFromCodeReplacesAnEarlierFailure)
{
    Util_SetFailureFromCode(static_cast<std::uint32_t>(-2));
    Util_SetFailureFromCode(ERROR_LOGON_FAILURE);
    EXPECT_STREQ(L"1326", g_updateRecord.sErrorCode.c_str());
    EXPECT_EQ(systemText(ERROR_LOGON_FAILURE).value_or(L"Unknown error"),
              std::wstring(g_updateRecord.sErrorDesc.c_str()));
}

TEST_F(ErrorInfoTest, GetErrorInfoLeavesTheRecordAlone)
{
    g_updateRecord.sErrorCode = L"EARLIER";
    g_updateRecord.sErrorDesc = L"earlier";
    Util_GetErrorInfo(53);
    EXPECT_STREQ(L"EARLIER", g_updateRecord.sErrorCode.c_str());
    EXPECT_STREQ(L"earlier", g_updateRecord.sErrorDesc.c_str());
}

}  // namespace
