// The checks a download passes before any connection, their order, and the
// code each problem gives.
#include <gtest/gtest.h>

#include <string>

#include "Download.h"

namespace {

mirel::TakenList list(std::vector<std::string> items)
{
    mirel::TakenList l;
    l.items = std::move(items);
    return l;
}

mirel::DownloadRequest good()
{
    mirel::DownloadRequest r;
    r.identity = "Job1";
    r.expectedSize = 100;
    r.urls = list({"https://localhost:8443/packages/agent.msi", "https://mirror.example/agent.msi"});
    r.workspace = "C:\\ProgramData\\Zenthra\\Workspace";
    r.checksum = "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD";
    return r;
}

mirel::Preflight check(const mirel::DownloadRequest& r, mirel::CheckedRequest& checked)
{
    return mirel::checkRequest(r, checked);
}

mirel::Preflight check(const mirel::DownloadRequest& r)
{
    mirel::CheckedRequest checked;
    return mirel::checkRequest(r, checked);
}

TEST(DownloadPreflight, PassesAGoodRequest)
{
    mirel::CheckedRequest checked;
    mirel::Preflight p = check(good(), checked);
    ASSERT_EQ(p.code, MIRELCLIENT_SUCCESS) << p.why;
    EXPECT_EQ(checked.urls.size(), 2u);
    EXPECT_EQ(checked.name, L"agent.msi");
    EXPECT_EQ(checked.workspace, L"C:\\ProgramData\\Zenthra\\Workspace");
    EXPECT_EQ(checked.checksum, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(checked.mode, mirel::TrustMode::SystemCa);
    EXPECT_FALSE(checked.hasPac);
}

TEST(DownloadPreflight, NamesTheFileAfterTheFirstUrlOnly)
{
    mirel::DownloadRequest r = good();
    r.urls = list({"https://a.example/first%20name.msi", "https://b.example/second.msi"});
    mirel::CheckedRequest checked;
    ASSERT_EQ(check(r, checked).code, MIRELCLIENT_SUCCESS);
    EXPECT_EQ(checked.name, L"first name.msi");
}

TEST(DownloadPreflight, RefusesZipWith6)
{
    mirel::DownloadRequest r = good();
    r.payloadType = mirel::kPayloadZip;
    mirel::Preflight p = check(r);
    EXPECT_EQ(p.code, MIRELCLIENT_QUEUE_DOWNLOAD_FAILED);
    EXPECT_EQ(p.why, "zip payloads (type 2) are not supported by this client");
}

TEST(DownloadPreflight, RefusesAnUnknownPayloadType)
{
    mirel::DownloadRequest r = good();
    r.payloadType = 7;
    mirel::Preflight p = check(r);
    EXPECT_EQ(p.code, MIRELCLIENT_QUEUE_DOWNLOAD_FAILED);
    EXPECT_EQ(p.why, "payload type 7 is unknown (0 file, 1 tar)");
}

TEST(DownloadPreflight, RefusesAMalformedArgumentFirst)
{
    mirel::DownloadRequest r = good();
    r.urls = list({"http://bad"});
    r.refusedTexts = {"workspace: its capacity is below 15"};
    mirel::Preflight p = check(r);
    EXPECT_EQ(p.code, MIRELCLIENT_QUEUE_DOWNLOAD_FAILED);
    EXPECT_EQ(p.why, "an argument is malformed: workspace: its capacity is below 15");
}

TEST(DownloadPreflight, RefusesAMalformedList)
{
    mirel::DownloadRequest r = good();
    r.proxies.valid = false;
    r.proxies.why = "its pointers are out of order";
    mirel::Preflight p = check(r);
    EXPECT_EQ(p.code, MIRELCLIENT_QUEUE_DOWNLOAD_FAILED);
    EXPECT_EQ(p.why, "the proxy list is malformed: its pointers are out of order");
}

TEST(DownloadPreflight, RefusesAnEmptyOrRelativeWorkspace)
{
    mirel::DownloadRequest r = good();
    r.workspace = "";
    EXPECT_EQ(check(r).why, "the workspace is empty");
    r.workspace = "Workspace\\Sub";
    mirel::Preflight p = check(r);
    EXPECT_EQ(p.code, MIRELCLIENT_QUEUE_DOWNLOAD_FAILED);
    EXPECT_EQ(p.why, "the workspace \"Workspace\\Sub\" is not an absolute path");
    r.workspace = "C:\\Work?space";
    EXPECT_EQ(check(r).why, "the workspace \"C:\\Work?space\" holds a character no path can have");
}

TEST(DownloadPreflight, TakesAUncWorkspace)
{
    mirel::DownloadRequest r = good();
    r.workspace = "\\\\fileserver\\share\\ws";
    EXPECT_EQ(check(r).code, MIRELCLIENT_SUCCESS);
}

TEST(DownloadPreflight, RefusesNoUrlWith12)
{
    mirel::DownloadRequest r = good();
    r.urls = list({});
    mirel::Preflight p = check(r);
    EXPECT_EQ(p.code, MIRELCLIENT_INVALID_URI_ERROR);
    EXPECT_EQ(p.why, "no URL was given");
}

TEST(DownloadPreflight, RefusesAnyBadUrlWith12)
{
    mirel::DownloadRequest r = good();
    r.urls = list({"https://localhost/a.msi", "http://mirror.example/a.msi"});
    mirel::Preflight p = check(r);
    EXPECT_EQ(p.code, MIRELCLIENT_INVALID_URI_ERROR);
    EXPECT_EQ(p.why, "URL 2 (\"http://mirror.example/a.msi\"): the URL is plain http; only https is fetched");
}

TEST(DownloadPreflight, RefusesAFirstUrlWithoutAFileName)
{
    mirel::DownloadRequest r = good();
    r.urls = list({"https://localhost/get?file=a.msi"});
    mirel::Preflight p = check(r);
    EXPECT_EQ(p.code, MIRELCLIENT_INVALID_URI_ERROR);
    EXPECT_EQ(p.why.rfind("the first URL gives no usable file name: the name \"get?file=a.msi\" contains U+003F", 0),
              0u)
        << p.why;
}

TEST(DownloadPreflight, GivesATarArchiveASafeName)
{
    mirel::DownloadRequest r = good();
    r.payloadType = mirel::kPayloadTar;
    r.urls = list({"https://localhost/get?file=a.tar"});
    mirel::CheckedRequest checked;
    ASSERT_EQ(check(r, checked).code, MIRELCLIENT_SUCCESS);
    EXPECT_EQ(checked.name, L"get_file=a.tar");
}

TEST(DownloadPreflight, RefusesABadProxyWith12)
{
    mirel::DownloadRequest r = good();
    r.proxies = list({"proxy.example:3128", "proxy2.example"});
    mirel::Preflight p = check(r);
    EXPECT_EQ(p.code, MIRELCLIENT_INVALID_URI_ERROR);
    EXPECT_EQ(p.why, "proxy 2 (\"proxy2.example\"): it names no port (host:port)");
}

TEST(DownloadPreflight, RefusesABadPacUrlWith12)
{
    mirel::DownloadRequest r = good();
    r.pacUrl = "file:///C:/proxy.pac";
    mirel::Preflight p = check(r);
    EXPECT_EQ(p.code, MIRELCLIENT_INVALID_URI_ERROR);
    EXPECT_EQ(p.why, "the PAC URL (\"file:///C:/proxy.pac\"): the PAC URL's scheme \"file\" is neither http nor https");
}

TEST(DownloadPreflight, RefusesAMalformedThumbprintWith5)
{
    mirel::DownloadRequest r = good();
    r.thumbprints = list({std::string(40, 'a'), "xyz"});
    mirel::Preflight p = check(r);
    EXPECT_EQ(p.code, MIRELCLIENT_INVALID_THUMBPRINT);
    EXPECT_EQ(p.why, "thumbprint 2 (\"xyz\"): it holds a character that is no hex digit (byte 0x78 at position 1)");
}

TEST(DownloadPreflight, RefusesAMalformedChecksumWith11)
{
    mirel::DownloadRequest r = good();
    r.checksum = "1234";
    mirel::Preflight p = check(r);
    EXPECT_EQ(p.code, MIRELCLIENT_WRONG_CHECKSUM_ERROR);
    EXPECT_EQ(p.why,
              "the expected checksum \"1234\" is malformed: it has 4 characters; a SHA-256 checksum is 64 hex "
              "digits");
}

TEST(DownloadPreflight, TakesNoChecksum)
{
    mirel::DownloadRequest r = good();
    r.checksum.clear();
    mirel::CheckedRequest checked;
    ASSERT_EQ(check(r, checked).code, MIRELCLIENT_SUCCESS);
    EXPECT_TRUE(checked.checksum.empty());
}

TEST(DownloadPreflight, ChecksUrlsBeforeThumbprintsBeforeChecksum)
{
    mirel::DownloadRequest r = good();
    r.checksum = "bad";
    r.thumbprints = list({"bad"});
    EXPECT_EQ(check(r).code, MIRELCLIENT_INVALID_THUMBPRINT);
    r.urls = list({"ftp://x/a"});
    EXPECT_EQ(check(r).code, MIRELCLIENT_INVALID_URI_ERROR);
}

TEST(TrustModeChoice, FollowsTheCallersChoiceThenTheThumbprints)
{
    mirel::TrustChoice none;
    mirel::TrustChoice pem;
    pem.kind = mirel::TrustChoice::PemFile;
    mirel::TrustChoice system;
    system.kind = mirel::TrustChoice::SystemCa;
    EXPECT_EQ(mirel::trustModeFor(none, false), mirel::TrustMode::SystemCa);
    EXPECT_EQ(mirel::trustModeFor(none, true), mirel::TrustMode::Thumbprint);
    EXPECT_EQ(mirel::trustModeFor(pem, true), mirel::TrustMode::PemFile);
    EXPECT_EQ(mirel::trustModeFor(system, true), mirel::TrustMode::SystemCa);
}

}  // namespace
