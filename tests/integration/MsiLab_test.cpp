// The lab's packages themselves: what the update tests take for granted of
// them in this prefix's Windows Installer. A failure here points at the lab,
// not at the tool.
#include "MsiLab.h"

#include <gtest/gtest.h>

#include "Harness.h"

namespace it {
namespace {

class MsiLab : public WithoutLabProducts<::testing::Test> {};

std::string text(const std::optional<std::wstring>& value) { return value ? Narrow(*value) : "(none)"; }

TEST_F(MsiLab, EachPackageInstallsSilentlyUnderItsUpgradeCodeWithItsVersion)
{
    for (const LabPackage& package :
         {kAgent8_10_0, kAgent8_12_0, kAgent8_14_0, kLegacyAgent8_9_0, kGenericTool1_0_0, kGenericTool1_1_0}) {
        SCOPED_TRACE(Narrow(package.fixture));
        ASSERT_EQ(0u, InstallPackage(package));
        EXPECT_EQ(std::vector<std::wstring>{package.productCode}, RelatedProducts(package.upgradeCode));
        EXPECT_EQ(Narrow(package.version), text(InstalledVersion(package.upgradeCode)));
        ASSERT_EQ(0u, UninstallProduct(package.productCode));
        EXPECT_TRUE(RelatedProducts(package.upgradeCode).empty());
        EXPECT_FALSE(ProductVersion(package.productCode).has_value());
    }
}

TEST_F(MsiLab, NewerVersionReplacesTheOlderOne)
{
    ASSERT_EQ(0u, InstallPackage(kAgent8_10_0));
    ASSERT_EQ(0u, InstallPackage(kAgent8_12_0));
    EXPECT_EQ(std::vector<std::wstring>{kAgent8_12_0.productCode}, RelatedProducts(kAgentUpgradeCode));
    EXPECT_FALSE(ProductVersion(kAgent8_10_0.productCode).has_value());
    EXPECT_EQ("8.12.0", text(InstalledVersion(kAgentUpgradeCode)));

    ASSERT_EQ(0u, InstallPackage(kGenericTool1_0_0));
    ASSERT_EQ(0u, InstallPackage(kGenericTool1_1_0));
    EXPECT_EQ(std::vector<std::wstring>{kGenericTool1_1_0.productCode}, RelatedProducts(kGenericToolUpgradeCode));
    EXPECT_EQ("1.1.0", text(InstalledVersion(kGenericToolUpgradeCode)));
}

TEST_F(MsiLab, OlderVersionIsRefusedWithInstallFailure)
{
    ASSERT_EQ(0u, InstallPackage(kAgent8_14_0));
    EXPECT_EQ(static_cast<DWORD>(ERROR_INSTALL_FAILURE), InstallPackage(kAgent8_12_0));
    EXPECT_EQ("8.14.0", text(InstalledVersion(kAgentUpgradeCode)));
}

TEST_F(MsiLab, UpgradeCodesKeepTheirProductsApart)
{
    ASSERT_EQ(0u, InstallPackage(kLegacyAgent8_9_0));
    ASSERT_EQ(0u, InstallPackage(kAgent8_12_0));
    ASSERT_EQ(0u, InstallPackage(kGenericTool1_0_0));
    EXPECT_EQ("8.9.0", text(InstalledVersion(kLegacyAgentUpgradeCode)));
    EXPECT_EQ("8.12.0", text(InstalledVersion(kAgentUpgradeCode)));
    EXPECT_EQ("1.0.0", text(InstalledVersion(kGenericToolUpgradeCode)));
    // Removing a product that isn't there is refused, not ignored.
    EXPECT_EQ(static_cast<DWORD>(ERROR_UNKNOWN_PRODUCT), UninstallProduct(kAgent8_10_0.productCode));
}

}  // namespace
}  // namespace it
