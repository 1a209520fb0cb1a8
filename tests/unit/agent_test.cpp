#include "agent/Agent.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "agent_test_support.h"
#include "diagnostics/ToolLog.h"

using namespace agent_test;

namespace {

// The base class with the two operations a kind must supply; GetVersion
// runs the search the way the product's agent does.
class TestAgent : public Agent {
public:
    using Agent::Agent;
    TestAgent() : Agent(corestring(), corestring()) {}
    bool GetVersion() override { return true; }
    std::uint32_t Launch(bool testMode, std::uint32_t, const corestring& options, std::uint32_t* exitCode) override
    {
        return LaunchHelper(testMode, options, exitCode);
    }
};

const wchar_t kPrefix[] = L"Kesmarc-Zenthra-Agent";

bool search(TestAgent& agent, bool archAware = true, const wchar_t* excluded = L"direct-connection")
{
    return agent.FindUpdateVersion(corestring(kPrefix), archAware, corestring(excluded));
}

// CompVersion on two version texts, from a fresh agent.
struct Compared {
    bool result;
    bool upgradeNeeded;
};
Compared compare(const wchar_t* installed, const wchar_t* update)
{
    TestAgent agent;
    agent.installedVersion = installed;
    agent.updateVersion = update;
    bool result = agent.CompVersion();
    return {result, agent.upgradeNeeded};
}

}  // namespace

// ---- construction ----

TEST(AgentConstructor, EmptyOverridesLeaveEveryFieldEmpty)
{
    AgentPlatform env;
    TestAgent agent;
    EXPECT_TRUE(agent.installedVersion.empty());
    EXPECT_TRUE(agent.updateVersion.empty());
    EXPECT_TRUE(agent.updateFilename.empty());
    EXPECT_FALSE(agent.upgradeNeeded);
    EXPECT_FALSE(agent.isMsi);
    EXPECT_TRUE(env.linesOf(L"Agent::Agent").empty());
}

TEST(AgentConstructor, OverrideVersionIsLoggedAndCopied)
{
    AgentPlatform env;
    TestAgent agent(corestring(L"8.12.0-77"), corestring());
    EXPECT_STREQ(L"8.12.0-77", agent.updateVersion.c_str());
    EXPECT_TRUE(agent.updateFilename.empty());
    EXPECT_EQ(std::vector<std::wstring>{L"Agent::Agent: override version: 8.12.0-77"}, env.linesOf(L"Agent::Agent"));
}

TEST(AgentConstructor, BareOverrideFilenameIsJoinedToTheWorkspace)
{
    AgentPlatform env;
    TestAgent agent(corestring(), corestring(L"setup.exe"));
    EXPECT_EQ(kWorkspace + L"\\setup.exe", agent.updateFilename.c_str());
    EXPECT_TRUE(agent.updateVersion.empty());
    EXPECT_EQ(std::vector<std::wstring>{L"Agent::Agent: override filename: setup.exe"}, env.linesOf(L"Agent::Agent"));
}

TEST(AgentConstructor, OverrideFilenameWithABackslashStandsAsItIs)
{
    AgentPlatform env;
    TestAgent agent(corestring(L"1.2.3"), corestring(L"D:\\drop\\setup.exe"));
    EXPECT_STREQ(L"D:\\drop\\setup.exe", agent.updateFilename.c_str());
    EXPECT_EQ((std::vector<std::wstring>{L"Agent::Agent: override version: 1.2.3",
                                         L"Agent::Agent: override filename: D:\\drop\\setup.exe"}),
              env.linesOf(L"Agent::Agent"));
}

// ---- FindInstalledVersion ----

TEST(AgentFindInstalledVersion, TakesTheVersionStringOfTheFirstRelatedProduct)
{
    AgentPlatform env;
    env.p.installer.addProduct(L"{11111111-2222-3333-4444-555555555555}", L"{AAAAAAAA-0000-0000-0000-000000000001}",
                               L"8.10.0.7");
    env.p.installer.addProduct(L"{11111111-2222-3333-4444-555555555555}", L"{AAAAAAAA-0000-0000-0000-000000000002}",
                               L"9.0.0.1");
    TestAgent agent;
    EXPECT_TRUE(agent.FindInstalledVersion(corestring(L"{11111111-2222-3333-4444-555555555555}")));
    EXPECT_STREQ(L"8.10.0.7", agent.installedVersion.c_str());

    ASSERT_EQ(1u, env.p.installer.enumCalls.size());
    EXPECT_EQ(0u, env.p.installer.enumCalls[0].index);
    EXPECT_TRUE(env.p.installer.enumCalls[0].bufferZeroed);
    ASSERT_EQ(1u, env.p.installer.infoCalls.size());
    EXPECT_EQ(L"{AAAAAAAA-0000-0000-0000-000000000001}", env.p.installer.infoCalls[0].productCode);
    EXPECT_EQ(L"VersionString", env.p.installer.infoCalls[0].property);
    EXPECT_EQ(256u, env.p.installer.infoCalls[0].size);
    EXPECT_TRUE(env.p.installer.infoCalls[0].bufferZeroed);
    EXPECT_TRUE(env.linesOf(L"Agent::FindInstalledVersion").empty());
}

TEST(AgentFindInstalledVersion, NoRelatedProductIsLoggedWithTheUpgradeCode)
{
    AgentPlatform env;
    TestAgent agent;
    EXPECT_FALSE(agent.FindInstalledVersion(corestring(L"{11111111-2222-3333-4444-555555555555}")));
    EXPECT_TRUE(agent.installedVersion.empty());
    EXPECT_TRUE(env.p.installer.infoCalls.empty());
    EXPECT_EQ(std::vector<std::wstring>{L"Agent::FindInstalledVersion: MsiEnumRelatedProducts failed: 259 code: "
                                        L"{11111111-2222-3333-4444-555555555555}"},
              env.linesOf(L"Agent::FindInstalledVersion"));
}

TEST(AgentFindInstalledVersion, AnyNonZeroEnumerationResultIsAFailure)
{
    AgentPlatform env;
    env.p.installer.addProduct(L"{11111111-2222-3333-4444-555555555555}", L"{AAAAAAAA-0000-0000-0000-000000000001}",
                               L"8.10.0");
    env.p.installer.enumFailure = ERROR_BAD_CONFIGURATION;
    TestAgent agent;
    EXPECT_FALSE(agent.FindInstalledVersion(corestring(L"{11111111-2222-3333-4444-555555555555}")));
    EXPECT_TRUE(agent.installedVersion.empty());
    EXPECT_TRUE(env.logHas(L"Agent::FindInstalledVersion: MsiEnumRelatedProducts failed: 1610 code: "
                           L"{11111111-2222-3333-4444-555555555555}"));
}

TEST(AgentFindInstalledVersion, ProductInfoFailureIsLoggedWithTheProductCode)
{
    AgentPlatform env;
    env.p.installer.addProduct(L"{11111111-2222-3333-4444-555555555555}", L"{AAAAAAAA-0000-0000-0000-000000000001}",
                               L"8.10.0");
    env.p.installer.infoFailure = ERROR_UNKNOWN_PRODUCT;
    TestAgent agent;
    EXPECT_FALSE(agent.FindInstalledVersion(corestring(L"{11111111-2222-3333-4444-555555555555}")));
    EXPECT_TRUE(agent.installedVersion.empty());
    EXPECT_EQ(std::vector<std::wstring>{L"Agent::FindInstalledVersion: MsiGetProductInfo failed: 1605 code: "
                                        L"{AAAAAAAA-0000-0000-0000-000000000001}"},
              env.linesOf(L"Agent::FindInstalledVersion"));
}

TEST(AgentFindInstalledVersion, VersionStringLongerThanTheBufferIsAFailure)
{
    AgentPlatform env;
    env.p.installer.addProduct(L"{11111111-2222-3333-4444-555555555555}", L"{AAAAAAAA-0000-0000-0000-000000000001}",
                               std::wstring(300, L'9'));
    TestAgent agent;
    EXPECT_FALSE(agent.FindInstalledVersion(corestring(L"{11111111-2222-3333-4444-555555555555}")));
    EXPECT_TRUE(agent.installedVersion.empty());
    EXPECT_TRUE(env.logHas(L"Agent::FindInstalledVersion: MsiGetProductInfo failed: 234 code: "
                           L"{AAAAAAAA-0000-0000-0000-000000000001}"));
}

TEST(AgentFindInstalledVersionWin32, UnknownUpgradeCodeFailsInTheRealInstallerDatabase)
{
    AgentPlatform env;
    platform::Services real = platform::services();
    real.installer = platform::win32Services().installer;
    fakes::ScopedServices scope(real);

    // A code no package of the lab uses.
    const wchar_t kCode[] = L"{0F3D5A6B-7C8E-4912-B3A4-C5D6E7F80912}";
    wchar_t product[39] = {};
    UINT direct = platform::installer().MsiEnumRelatedProductsW(kCode, 0, 0, product);
    EXPECT_NE(0u, direct);

    TestAgent agent;
    EXPECT_FALSE(agent.FindInstalledVersion(corestring(kCode)));
    EXPECT_TRUE(agent.installedVersion.empty());
    std::wstring expected = L"Agent::FindInstalledVersion: MsiEnumRelatedProducts failed: " +
                            std::to_wstring(direct) + L" code: " + kCode;
    EXPECT_EQ(std::vector<std::wstring>{expected}, env.linesOf(L"Agent::FindInstalledVersion"));
}

// ---- FindUpdateVersion ----

TEST(AgentFindUpdateVersion, TakesTheVersionFromTheInstallerNameOnA64BitHost)
{
    AgentPlatform env;
    HostArch host(true);
    env.addInstaller(L"Kesmarc-Zenthra-Agent-x86_64-8.12.0-9876543.exe");
    TestAgent agent;
    EXPECT_TRUE(search(agent));
    EXPECT_STREQ(L"8.12.0-9876543", agent.updateVersion.c_str());
    EXPECT_EQ(kWorkspace + L"\\Kesmarc-Zenthra-Agent-x86_64-8.12.0-9876543.exe", agent.updateFilename.c_str());
    EXPECT_FALSE(agent.isMsi);
    EXPECT_EQ(std::vector<std::wstring>{kWorkspace + L"\\Kesmarc-Zenthra-Agent-x86_64*"}, env.files.patterns);
    EXPECT_EQ(0, env.files.openFinds);
    EXPECT_EQ(std::vector<std::wstring>{L"Agent::FindUpdateVersion: updateFilename: " + kWorkspace +
                                        L"\\Kesmarc-Zenthra-Agent-x86_64-8.12.0-9876543.exe"},
              env.linesOf(L"Agent::FindUpdateVersion"));
}

TEST(AgentFindUpdateVersion, On64BitHostAPlainInstallerDoesNotMatchThePattern)
{
    AgentPlatform env;
    HostArch host(true);
    env.addInstaller(L"Kesmarc-Zenthra-Agent-8.1.0-1.exe");
    TestAgent agent;
    EXPECT_FALSE(search(agent));
    EXPECT_TRUE(agent.updateFilename.empty());
    EXPECT_TRUE(agent.updateVersion.empty());
    std::wstring pattern = kWorkspace + L"\\Kesmarc-Zenthra-Agent-x86_64*";
    EXPECT_EQ(std::vector<std::wstring>{pattern}, env.files.patterns);
    EXPECT_EQ(std::vector<std::wstring>{L"Agent::FindUpdateVersion: FindFirstFile error: " + pattern + L" " +
                                        errorTextOf(ERROR_FILE_NOT_FOUND)},
              env.linesOf(L"Agent::FindUpdateVersion"));
}

TEST(AgentFindUpdateVersion, On32BitHostA64BitInstallerMatchesThePatternAndIsSkipped)
{
    AgentPlatform env;
    HostArch host(false);
    env.addInstaller(L"Kesmarc-Zenthra-Agent-x86_64-8.1.0-1.exe");
    TestAgent agent;
    EXPECT_FALSE(search(agent));
    EXPECT_TRUE(agent.updateFilename.empty());
    EXPECT_EQ(std::vector<std::wstring>{kWorkspace + L"\\Kesmarc-Zenthra-Agent*"}, env.files.patterns);
    EXPECT_EQ(0, env.files.openFinds);
    // Running out of matches is silent.
    EXPECT_TRUE(env.linesOf(L"Agent::FindUpdateVersion").empty());
}

TEST(AgentFindUpdateVersion, On32BitHostThePlainInstallerIsTaken)
{
    AgentPlatform env;
    HostArch host(false);
    // The fake lists alphabetically ("-" before "_"): the 64-bit file comes
    // first and is passed over.
    env.addInstaller(L"Kesmarc-Zenthra-Agent_8.1.0-1.msi");
    env.addInstaller(L"Kesmarc-Zenthra-Agent-X86_64-8.1.0-1.msi");
    TestAgent agent;
    EXPECT_TRUE(search(agent));
    EXPECT_EQ(kWorkspace + L"\\Kesmarc-Zenthra-Agent_8.1.0-1.msi", agent.updateFilename.c_str());
    EXPECT_STREQ(L"8.1.0-1", agent.updateVersion.c_str());
    EXPECT_TRUE(agent.isMsi);
}

TEST(AgentFindUpdateVersion, SearchThatIsNotArchAwareNeverTakesA64BitInstaller)
{
    AgentPlatform env;
    HostArch host(true);
    env.addInstaller(L"Product-x86_64-2.0.0.exe");
    env.addInstaller(L"Product-z-1.0.0.exe");
    TestAgent agent;
    EXPECT_TRUE(agent.FindUpdateVersion(corestring(L"Product"), false, corestring()));
    EXPECT_EQ(std::vector<std::wstring>{kWorkspace + L"\\Product*"}, env.files.patterns);
    EXPECT_EQ(kWorkspace + L"\\Product-z-1.0.0.exe", agent.updateFilename.c_str());
    EXPECT_STREQ(L"z-1.0.0", agent.updateVersion.c_str());
}

TEST(AgentFindUpdateVersion, ExcludedTextIsSkippedWhateverItsCase)
{
    AgentPlatform env;
    HostArch host(true);
    // Listed first (alphabetically) but excluded.
    env.addInstaller(L"Kesmarc-Zenthra-Agent-x86_64-8.0.0-1-Direct-Connection.exe");
    env.addInstaller(L"Kesmarc-Zenthra-Agent-x86_64-8.1.0-1.exe");
    TestAgent agent;
    EXPECT_TRUE(search(agent));
    EXPECT_STREQ(L"8.1.0-1", agent.updateVersion.c_str());
}

TEST(AgentFindUpdateVersion, OnlyExcludedInstallersFindsNothing)
{
    AgentPlatform env;
    HostArch host(true);
    env.addInstaller(L"Kesmarc-Zenthra-Agent-x86_64-direct-connection-8.0.0-1.exe");
    TestAgent agent;
    EXPECT_FALSE(search(agent));
    EXPECT_TRUE(agent.updateFilename.empty());
    EXPECT_EQ(0, env.files.openFinds);
}

TEST(AgentFindUpdateVersion, EmptyExclusionExcludesNothing)
{
    AgentPlatform env;
    HostArch host(true);
    env.addInstaller(L"Kesmarc-Zenthra-Agent-x86_64-direct-connection-8.0.0-1.exe");
    TestAgent agent;
    EXPECT_TRUE(search(agent, true, L""));
    EXPECT_STREQ(L"direct-connection-8.0.0-1", agent.updateVersion.c_str());
}

TEST(AgentFindUpdateVersion, FirstInstallerListedWinsNotTheNewest)
{
    AgentPlatform env;
    HostArch host(true);
    // Alphabetical in the fake: 8.0.5 comes before 8.0.9.
    env.addInstaller(L"Kesmarc-Zenthra-Agent-x86_64-8.0.9-1.exe");
    env.addInstaller(L"Kesmarc-Zenthra-Agent-x86_64-8.0.5-1.exe");
    TestAgent agent;
    EXPECT_TRUE(search(agent));
    EXPECT_STREQ(L"8.0.5-1", agent.updateVersion.c_str());
    EXPECT_EQ(kWorkspace + L"\\Kesmarc-Zenthra-Agent-x86_64-8.0.5-1.exe", agent.updateFilename.c_str());
}

TEST(AgentFindUpdateVersion, On64BitHostEveryArchTagLeavesTheVersionAndSeparatorsAreStripped)
{
    AgentPlatform env;
    HostArch host(true);
    env.addInstaller(L"Kesmarc-Zenthra-Agent-x86_64__8.3.0-X86_64-7_-.exe");
    TestAgent agent;
    EXPECT_TRUE(search(agent));
    EXPECT_STREQ(L"8.3.0--7", agent.updateVersion.c_str());
}

TEST(AgentFindUpdateVersion, NameWithoutADotKeepsItsWholeTail)
{
    AgentPlatform env;
    HostArch host(true);
    env.addInstaller(L"Kesmarc-Zenthra-Agent-x86_64-8_4_0");
    TestAgent agent;
    EXPECT_TRUE(search(agent));
    EXPECT_STREQ(L"8_4_0", agent.updateVersion.c_str());
    EXPECT_FALSE(agent.isMsi);
}

TEST(AgentFindUpdateVersion, OnlyTheLastExtensionIsDropped)
{
    AgentPlatform env;
    HostArch host(false);
    env.addInstaller(L"Kesmarc-Zenthra-Agent_8.5.1.22.msi");
    TestAgent agent;
    EXPECT_TRUE(search(agent));
    EXPECT_STREQ(L"8.5.1.22", agent.updateVersion.c_str());
    EXPECT_TRUE(agent.isMsi);
}

TEST(AgentFindUpdateVersion, NameShorterThanThePrefixAfterItsExtensionGivesAnEmptyVersion)
{
    AgentPlatform env;
    HostArch host(false);
    env.addInstaller(L"Ab.cd");
    TestAgent agent;
    EXPECT_TRUE(agent.FindUpdateVersion(corestring(L"Ab.cd"), false, corestring()));
    EXPECT_TRUE(agent.updateVersion.empty());
    EXPECT_EQ(kWorkspace + L"\\Ab.cd", agent.updateFilename.c_str());
}

TEST(AgentFindUpdateVersion, FilenameAlreadySetSkipsTheSearch)
{
    AgentPlatform env;
    HostArch host(true);
    env.addInstaller(L"Kesmarc-Zenthra-Agent-x86_64-9.9.9-9.exe");
    TestAgent agent(corestring(L"8.0.0"), corestring(L"C:\\pkgs\\Setup.MSI"));
    EXPECT_TRUE(search(agent));
    EXPECT_TRUE(env.files.patterns.empty());
    EXPECT_STREQ(L"C:\\pkgs\\Setup.MSI", agent.updateFilename.c_str());
    EXPECT_STREQ(L"8.0.0", agent.updateVersion.c_str());
    EXPECT_TRUE(agent.isMsi);
    EXPECT_EQ(std::vector<std::wstring>{L"Agent::FindUpdateVersion: updateFilename: C:\\pkgs\\Setup.MSI"},
              env.linesOf(L"Agent::FindUpdateVersion"));
}

TEST(AgentFindUpdateVersion, IsMsiLooksAtTheLastFourCharactersOnly)
{
    AgentPlatform env;
    struct Case {
        const wchar_t* file;
        bool msi;
    };
    for (Case c : {Case{L"C:\\p\\a.msi", true}, Case{L"C:\\p\\a.MsI", true}, Case{L"C:\\p\\a.msix", false},
                   Case{L"C:\\p\\a.exe", false}, Case{L"C:\\p\\msi", false}}) {
        TestAgent agent(corestring(), corestring(c.file));
        EXPECT_TRUE(search(agent));
        EXPECT_EQ(c.msi, agent.isMsi) << c.file;
    }
    TestAgent shortName;
    shortName.updateFilename = L"msi";
    EXPECT_TRUE(search(shortName));
    EXPECT_FALSE(shortName.isMsi);
}

// ---- ParseVersion ----

TEST(AgentParseVersion, ReadsFourParts)
{
    TestAgent agent;
    VersionParts parts{};
    EXPECT_TRUE(agent.ParseVersion(corestring(L"8.10.0-123"), parts));
    EXPECT_EQ(8, parts.major);
    EXPECT_EQ(10, parts.minor);
    EXPECT_EQ(0, parts.patch);
    EXPECT_EQ(123u, parts.build);
}

TEST(AgentParseVersion, FewerThanThreeTokensFailsAndLeavesThePartsAlone)
{
    TestAgent agent;
    for (const wchar_t* text : {L"8.10", L"", L"8", L"..--__", L"abc"}) {
        VersionParts parts{};
        parts.major = 41;
        parts.minor = 42;
        parts.patch = 43;
        parts.build = 44;
        EXPECT_FALSE(agent.ParseVersion(corestring(text), parts)) << text;
        EXPECT_EQ(41, parts.major);
        EXPECT_EQ(42, parts.minor);
        EXPECT_EQ(43, parts.patch);
        EXPECT_EQ(44u, parts.build);
    }
}

TEST(AgentParseVersion, LeadingZerosAreDecimalAndHexStaysHex)
{
    TestAgent agent;
    VersionParts parts{};
    EXPECT_TRUE(agent.ParseVersion(corestring(L"010.0x10.08"), parts));
    EXPECT_EQ(10, parts.major);
    EXPECT_EQ(16, parts.minor);
    EXPECT_EQ(8, parts.patch);
    EXPECT_EQ(0u, parts.build);  // no fourth token: left as the caller zeroed it
}

TEST(AgentParseVersion, RunsOfDelimitersCountAsOneAndFurtherTokensAreIgnored)
{
    TestAgent agent;
    VersionParts parts{};
    EXPECT_TRUE(agent.ParseVersion(corestring(L"1..2-_3__4.5.6"), parts));
    EXPECT_EQ(1, parts.major);
    EXPECT_EQ(2, parts.minor);
    EXPECT_EQ(3, parts.patch);
    EXPECT_EQ(4u, parts.build);
}

TEST(AgentParseVersion, QuotedTokensAreRead)
{
    TestAgent agent;
    VersionParts parts{};
    EXPECT_TRUE(agent.ParseVersion(corestring(L"'7'.\"8\".9"), parts));
    EXPECT_EQ(7, parts.major);
    EXPECT_EQ(8, parts.minor);
    EXPECT_EQ(9, parts.patch);
}

TEST(AgentParseVersion, BuildIsReadUnsigned)
{
    TestAgent agent;
    VersionParts parts{};
    EXPECT_TRUE(agent.ParseVersion(corestring(L"1.2.3.4294967295"), parts));
    EXPECT_EQ(4294967295u, parts.build);
}

// ---- CompVersion ----

TEST(AgentCompVersion, NoInstalledVersionAsksForTheUpgrade)
{
    AgentPlatform env;
    TestAgent agent;
    agent.updateVersion = L"1.0.0";
    EXPECT_TRUE(agent.CompVersion());
    EXPECT_TRUE(agent.upgradeNeeded);
    EXPECT_EQ(std::vector<std::wstring>{L"Agent::CompVersion: installed version not found"},
              env.linesOf(L"Agent::CompVersion"));
}

TEST(AgentCompVersion, BuildOnOneSideOnlyDoesNotCallForAnUpgrade)
{
    AgentPlatform env;
    Compared c = compare(L"8.10.0", L"8.10.0-123");
    EXPECT_FALSE(c.upgradeNeeded);
    EXPECT_FALSE(c.result);
    EXPECT_FALSE(compare(L"8.10.0-123", L"8.10.0").upgradeNeeded);
    EXPECT_TRUE(env.linesOf(L"Agent::CompVersion").empty());
}

TEST(AgentCompVersion, HigherBuildUpgradesLowerDoesNot)
{
    AgentPlatform env;
    Compared up = compare(L"8.10.0-100", L"8.10.0-101");
    EXPECT_TRUE(up.upgradeNeeded);
    EXPECT_TRUE(up.result);
    EXPECT_FALSE(compare(L"8.10.0-101", L"8.10.0-100").upgradeNeeded);
    EXPECT_FALSE(compare(L"8.10.0-101", L"8.10.0-101").upgradeNeeded);
}

TEST(AgentCompVersion, FirstDifferingPartDecides)
{
    AgentPlatform env;
    EXPECT_FALSE(compare(L"8.11.0", L"8.10.9").upgradeNeeded);
    EXPECT_TRUE(compare(L"8.11.0", L"9.0.0").upgradeNeeded);
    EXPECT_TRUE(compare(L"8.11.0", L"8.11.1").upgradeNeeded);
    // A lower patch ends the comparison before a higher build is seen.
    EXPECT_FALSE(compare(L"8.11.2-1", L"8.11.1-9").upgradeNeeded);
    // A higher minor wins over a lower patch and build.
    EXPECT_TRUE(compare(L"8.10.9-9", L"8.11.0-1").upgradeNeeded);
}

TEST(AgentCompVersion, UnreadableInstalledVersionAsksForTheUpgradeAndNothingClearsIt)
{
    AgentPlatform env;
    TestAgent agent;
    agent.installedVersion = L"8.10";
    agent.updateVersion = L"abc";
    EXPECT_TRUE(agent.CompVersion());
    EXPECT_TRUE(agent.upgradeNeeded);
    EXPECT_EQ((std::vector<std::wstring>{L"Agent::CompVersion: cannot determine installed version: 8.10",
                                         L"Agent::CompVersion: cannot determine update version: abc"}),
              env.linesOf(L"Agent::CompVersion"));
}

TEST(AgentCompVersion, ADowngradeNeverClearsAnEarlierRequest)
{
    AgentPlatform env;
    TestAgent agent;
    agent.upgradeNeeded = true;
    agent.installedVersion = L"9.0.0-5";
    agent.updateVersion = L"8.0.0-1";
    EXPECT_TRUE(agent.CompVersion());
    EXPECT_TRUE(agent.upgradeNeeded);
}

TEST(AgentCompVersion, UnreadableUpdateVersionComparesAsZeros)
{
    AgentPlatform env;
    TestAgent agent;
    agent.installedVersion = L"8.10.0-3";
    agent.updateVersion = L"abc";
    EXPECT_FALSE(agent.CompVersion());
    EXPECT_FALSE(agent.upgradeNeeded);
    EXPECT_EQ(std::vector<std::wstring>{L"Agent::CompVersion: cannot determine update version: abc"},
              env.linesOf(L"Agent::CompVersion"));
}

TEST(AgentCompVersion, EmptyUpdateVersionIsLoggedAndComparesAsZeros)
{
    AgentPlatform env;
    TestAgent agent;
    agent.installedVersion = L"8.10.0-3";
    EXPECT_FALSE(agent.CompVersion());
    EXPECT_FALSE(agent.upgradeNeeded);
    EXPECT_TRUE(env.logHas(L"Agent::CompVersion: cannot determine update version: "));
}

TEST(AgentCompVersion, ZeroMajorMinorPatchSkipsToTheBuild)
{
    AgentPlatform env;
    EXPECT_TRUE(compare(L"8.10.0-3", L"0.0.0-5").upgradeNeeded);
    EXPECT_FALSE(compare(L"8.10.0-5", L"0.0.0-5").upgradeNeeded);
    EXPECT_FALSE(compare(L"8.10.0", L"0.0.0-5").upgradeNeeded);
}

TEST(AgentCompVersion, ASingleNonZeroPartMeansTheThreeAreCompared)
{
    AgentPlatform env;
    // The minor of 1 makes it a real version: major 0 is below 8, so no build check.
    EXPECT_FALSE(compare(L"8.0.0-3", L"0.1.0-5").upgradeNeeded);
    EXPECT_FALSE(compare(L"8.0.0-3", L"0.0.1-5").upgradeNeeded);
}

TEST(AgentCompVersion, BuildIsComparedUnsigned)
{
    AgentPlatform env;
    EXPECT_TRUE(compare(L"8.0.0-1", L"8.0.0-4294967295").upgradeNeeded);
    EXPECT_FALSE(compare(L"8.0.0-4294967295", L"8.0.0-1").upgradeNeeded);
}

// ---- UpdateAvailable ----

TEST(AgentUpdateAvailable, UpgradeWithAnInstallerIsAvailable)
{
    AgentPlatform env;
    TestAgent agent;
    agent.upgradeNeeded = true;
    agent.updateFilename = L"C:\\p\\a.exe";
    EXPECT_TRUE(agent.UpdateAvailable(false));
    EXPECT_TRUE(env.linesOf(L"Agent::UpdateAvailable").empty());
}

TEST(AgentUpdateAvailable, ForceWithAnInstallerIsAvailableWithoutAnUpgrade)
{
    AgentPlatform env;
    TestAgent agent;
    agent.updateFilename = L"C:\\p\\a.exe";
    EXPECT_TRUE(agent.UpdateAvailable(true));
}

TEST(AgentUpdateAvailable, NoInstallerIsNeverAvailable)
{
    AgentPlatform env;
    TestAgent forced;
    EXPECT_FALSE(forced.UpdateAvailable(true));
    TestAgent needed;
    needed.upgradeNeeded = true;
    EXPECT_FALSE(needed.UpdateAvailable(false));
    EXPECT_EQ((std::vector<std::wstring>{L"Agent::UpdateAvailable: update installer empty",
                                         L"Agent::UpdateAvailable: update installer empty"}),
              env.linesOf(L"Agent::UpdateAvailable"));
}

TEST(AgentUpdateAvailable, NeitherForcedNorNeededIsNotAvailable)
{
    AgentPlatform env;
    TestAgent agent;
    agent.updateFilename = L"C:\\p\\a.exe";
    EXPECT_FALSE(agent.UpdateAvailable(false));
    EXPECT_EQ(std::vector<std::wstring>{L"Agent::UpdateAvailable: no need to upgrade"},
              env.linesOf(L"Agent::UpdateAvailable"));
}

// ---- LaunchHelper ----

TEST(AgentLaunchHelper, EmptyCommandLineLaunchesNothing)
{
    AgentPlatform env;
    TestAgent agent;
    agent.updateFilename = L"C:\\p\\a.exe";
    std::uint32_t exitCode = 77;
    EXPECT_EQ(1u, agent.LaunchHelper(false, corestring(), &exitCode));
    EXPECT_EQ(77u, exitCode);
    EXPECT_TRUE(env.processes.launches.empty());
    EXPECT_EQ(std::vector<std::wstring>{L"Agent::LaunchHelper: ERROR: update command line empty"},
              env.linesOf(L"Agent::LaunchHelper"));
}

TEST(AgentLaunchHelper, EmptyInstallerLaunchesNothing)
{
    AgentPlatform env;
    TestAgent agent;
    std::uint32_t exitCode = 77;
    EXPECT_EQ(1u, agent.LaunchHelper(false, corestring(L"x.exe /s"), &exitCode));
    EXPECT_EQ(77u, exitCode);
    EXPECT_TRUE(env.processes.launches.empty());
    EXPECT_EQ(std::vector<std::wstring>{L"Agent::LaunchHelper: ERROR: update installer empty"},
              env.linesOf(L"Agent::LaunchHelper"));
}

TEST(AgentLaunchHelper, TestModeLogsTheLineAndStartsNoProcess)
{
    AgentPlatform env;
    TestAgent agent;
    agent.updateFilename = L"C:\\p\\a.exe";
    std::uint32_t exitCode = 77;
    EXPECT_EQ(0u, agent.LaunchHelper(true, corestring(L"C:\\p\\a.exe /s"), &exitCode));
    EXPECT_EQ(0u, exitCode);
    EXPECT_TRUE(env.processes.launches.empty());
    EXPECT_TRUE(env.processes.launched.empty());
    EXPECT_TRUE(env.processes.waits.empty());
    EXPECT_EQ(std::vector<std::wstring>{L"Agent::LaunchHelper: launching: C:\\p\\a.exe /s"},
              env.linesOf(L"Agent::LaunchHelper"));
}

TEST(AgentLaunchHelper, StartsTheProcessWaitsWithoutLimitAndClosesThreadThenProcess)
{
    AgentPlatform env;
    env.processes.exitCode = 1603;
    TestAgent agent;
    agent.updateFilename = L"C:\\p\\a.exe";
    std::uint32_t exitCode = 77;
    EXPECT_EQ(0u, agent.LaunchHelper(false, corestring(L"C:\\p\\a.exe /s"), &exitCode));
    EXPECT_EQ(1603u, exitCode);

    ASSERT_EQ(1u, env.processes.launches.size());
    const RecordingProcesses::Launch& l = env.processes.launches[0];
    EXPECT_TRUE(l.applicationNull);
    EXPECT_EQ(FALSE, l.inheritHandles);
    EXPECT_EQ(32u, l.flags);
    EXPECT_TRUE(l.directoryNull);
    // Zeroed but for its size.
    ASSERT_EQ(sizeof(STARTUPINFOW), l.startup.size());
    DWORD cb = 0;
    std::memcpy(&cb, l.startup.data(), sizeof cb);
    EXPECT_EQ(sizeof(STARTUPINFOW), cb);
    EXPECT_TRUE(std::all_of(l.startup.begin() + sizeof cb, l.startup.end(), [](unsigned char b) { return b == 0; }));
    EXPECT_EQ(std::vector<std::wstring>{L"C:\\p\\a.exe /s"}, env.processes.launched);

    ASSERT_EQ(1u, env.processes.waits.size());
    EXPECT_EQ(env.processes.process, env.processes.waits[0].first);
    EXPECT_EQ(INFINITE, env.processes.waits[0].second);
    EXPECT_EQ((std::vector<HANDLE>{env.processes.thread, env.processes.process}), env.processes.closed);

    EXPECT_EQ((std::vector<std::wstring>{L"Agent::LaunchHelper: launching: C:\\p\\a.exe /s",
                                         L"Agent::LaunchHelper: C:\\p\\a.exe /s returned: " + errorTextOf(1603)}),
              env.linesOf(L"Agent::LaunchHelper"));
}

TEST(AgentLaunchHelper, ProcessThatCannotStartGivesThree)
{
    AgentPlatform env;
    env.processes.createProcessResult = FALSE;
    TestAgent agent;
    agent.updateFilename = L"C:\\p\\a.exe";
    std::uint32_t exitCode = 77;
    EXPECT_EQ(3u, agent.LaunchHelper(false, corestring(L"C:\\p\\a.exe /s"), &exitCode));
    EXPECT_EQ(77u, exitCode);
    EXPECT_TRUE(env.processes.waits.empty());
    EXPECT_TRUE(env.processes.closed.empty());
    EXPECT_TRUE(env.logHas(L"Agent::LaunchHelper: ERROR: CreateProcess failed: " + errorTextOf(ERROR_FILE_NOT_FOUND)));
}

TEST(AgentLaunchHelper, UnreadableExitCodeGivesThreeAndStillClosesBothHandles)
{
    AgentPlatform env;
    env.processes.exitCodeResult = FALSE;
    TestAgent agent;
    agent.updateFilename = L"C:\\p\\a.exe";
    std::uint32_t exitCode = 77;
    EXPECT_EQ(3u, agent.LaunchHelper(false, corestring(L"C:\\p\\a.exe /s"), &exitCode));
    EXPECT_EQ(77u, exitCode);
    EXPECT_EQ((std::vector<HANDLE>{env.processes.thread, env.processes.process}), env.processes.closed);
    EXPECT_TRUE(env.logHas(L"Agent::LaunchHelper: ERROR: GetExitCodeProcess failed: " +
                           errorTextOf(ERROR_INVALID_HANDLE)));
    std::vector<std::wstring> lines = env.linesOf(L"Agent::LaunchHelper");
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(std::wstring::npos, lines.back().find(L"returned"));
}

// ---- IsHostX64 ----

TEST(AgentIsHostX64, OnlyAmd64CountsAs64Bit)
{
    AgentPlatform env;
    env.processes.processorArchitecture = PROCESSOR_ARCHITECTURE_AMD64;
    EXPECT_TRUE(Agent::IsHostX64());
    env.processes.processorArchitecture = PROCESSOR_ARCHITECTURE_ARM64;
    EXPECT_FALSE(Agent::IsHostX64());
    env.processes.processorArchitecture = PROCESSOR_ARCHITECTURE_INTEL;
    EXPECT_FALSE(Agent::IsHostX64());
    EXPECT_EQ((std::vector<std::wstring>{L"Agent::IsHostX64: host system: 64-bit",
                                         L"Agent::IsHostX64: host system: 32-bit",
                                         L"Agent::IsHostX64: host system: 32-bit"}),
              env.linesOf(L"Agent::IsHostX64"));
}

TEST(AgentIsHostX64, BeforeTheLogHasAFileTheLineReachesTheConsoleOnly)
{
    // As during static initialisation: the log has no file name yet.
    AgentPlatform env;
    ASSERT_TRUE(TheToolLog().path().empty());
    env.p.console.output.clear();
    Agent::IsHostX64();
    EXPECT_NE(std::wstring::npos, env.p.console.output.find(L": Agent::IsHostX64: host system: 64-bit\n"));

    // Opening the log afterwards starts its file from an empty text.
    ToolLog::Open(TheToolLog(), false);
    ASSERT_FALSE(TheToolLog().path().empty());
    std::vector<unsigned char> bytes = env.files.bytesOf(TheToolLog().path().c_str());
    ASSERT_GE(bytes.size(), 2u);
    std::wstring file(reinterpret_cast<const wchar_t*>(bytes.data() + 2), (bytes.size() - 2) / sizeof(wchar_t));
    EXPECT_NE(std::wstring::npos, file.find(L"=== Begin ==="));
    EXPECT_EQ(std::wstring::npos, file.find(L"host system"));
}
