// Runs of downloads as MirelRunDownloads makes them: the list's problems,
// handles this client never made, and downloads refused before any
// connection, each with its code and its log line.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DownloadRegistry.h"
#include "TrustChoice.h"
#include "log_capture.h"
#include "temp_folder.h"

namespace {

using testing_support::LogCapture;
using testing_support::TempFolder;

mirel::DownloadRequest request(std::vector<std::string> urls)
{
    mirel::DownloadRequest r;
    r.identity = "RegistryJob";
    r.urls.items = std::move(urls);
    r.workspace = "C:\\ProgramData\\Zenthra\\Workspace";
    return r;
}

TEST(DownloadRuns, RefuseAnEmptyListWith6)
{
    LogCapture log;
    EXPECT_EQ(mirel::runDownloads("C:\\ws", {}), MIRELCLIENT_QUEUE_DOWNLOAD_FAILED);
    EXPECT_TRUE(log.has(3, "the run holds no download: 6 (MIRELCLIENT_QUEUE_DOWNLOAD_FAILED)")) << log.all();
}

TEST(DownloadRuns, RefuseANullHandleWith2)
{
    LogCapture log;
    EXPECT_EQ(mirel::runDownloads("C:\\ws", {nullptr}), MIRELCLIENT_CREATE_CLIENT_FAILED);
    EXPECT_TRUE(
        log.has(3, "download 1 of the run is null (it was never created): 2 (MIRELCLIENT_CREATE_CLIENT_FAILED)"))
        << log.all();
}

TEST(DownloadRuns, RefuseAHandleTheClientNeverMadeWith2)
{
    LogCapture log;
    int notADownload = 0;
    EXPECT_EQ(mirel::runDownloads("C:\\ws", {&notADownload}), MIRELCLIENT_CREATE_CLIENT_FAILED);
    EXPECT_TRUE(log.has(3, "is not a live download of this client: 2")) << log.all();
    EXPECT_EQ(notADownload, 0);
}

TEST(DownloadRuns, RefuseADestroyedHandleWith2)
{
    void* download = mirel::createDownload(request({"http://localhost/a.msi"}));
    ASSERT_NE(download, nullptr);
    mirel::destroyDownload(download);
    LogCapture log;
    EXPECT_EQ(mirel::runDownloads("C:\\ws", {download}), MIRELCLIENT_CREATE_CLIENT_FAILED);
}

TEST(DownloadRuns, ReportTheDownloadsOwnRefusal)
{
    LogCapture log;
    void* download = mirel::createDownload(request({"http://localhost/a.msi"}));
    EXPECT_EQ(mirel::runDownloads("C:\\ProgramData\\Zenthra\\Workspace", {download}), MIRELCLIENT_INVALID_URI_ERROR);
    EXPECT_TRUE(log.has(3,
                        "mirelclient: download RegistryJob failed with 12 (MIRELCLIENT_INVALID_URI_ERROR): URL 1 "
                        "(\"http://localhost/a.msi\"): the URL is plain http; only https is fetched"))
        << log.all();
    mirel::destroyDownload(download);
}

TEST(DownloadRuns, RunEveryDownloadAndReturnTheFirstFailure)
{
    LogCapture log;
    void* badUrl = mirel::createDownload(request({"ftp://localhost/a.msi"}));
    mirel::DownloadRequest zip = request({"https://localhost/a.zip"});
    zip.identity = "ZipJob";
    zip.payloadType = mirel::kPayloadZip;
    void* badType = mirel::createDownload(std::move(zip));
    EXPECT_EQ(mirel::runDownloads("", {badUrl, nullptr, badType}), MIRELCLIENT_INVALID_URI_ERROR);
    EXPECT_TRUE(log.has(3, "download ZipJob failed with 6 (MIRELCLIENT_QUEUE_DOWNLOAD_FAILED)")) << log.all();
    EXPECT_EQ(mirel::runDownloads("", {nullptr, badUrl}), MIRELCLIENT_CREATE_CLIENT_FAILED);
    mirel::destroyDownload(badUrl);
    mirel::destroyDownload(badType);
}

TEST(DownloadRuns, FailWith1WhenTheCaFileCantBeRead)
{
    TempFolder folder;
    const std::wstring missing = folder.file(L"missing.pem");
    std::string path(missing.begin(), missing.end());
    mirel::choosePemFile(path, true, "");
    mirel::DownloadRequest r = request({"https://localhost:9/a.msi"});
    r.trust = mirel::currentTrustChoice();
    mirel::chooseSystemCa(false);
    LogCapture log;
    void* download = mirel::createDownload(std::move(r));
    EXPECT_EQ(mirel::runDownloads("", {download}), MIRELCLIENT_PEM_FILE_FAILED);
    EXPECT_TRUE(log.has(3, "failed with 1 (MIRELCLIENT_PEM_FILE_FAILED): the CA file ")) << log.all();
    EXPECT_TRUE(log.has(3, "can't be used: it can't be opened (error 2)")) << log.all();
    mirel::destroyDownload(download);
}

TEST(DownloadRuns, FailWith1ForAnEmptyCaFile)
{
    TempFolder folder;
    const std::wstring file = folder.file(L"empty.pem");
    ASSERT_TRUE(TempFolder::write(file, ""));
    mirel::DownloadRequest r = request({"https://localhost:9/a.msi"});
    r.trust.kind = mirel::TrustChoice::PemFile;
    r.trust.pemPath = std::string(file.begin(), file.end());
    LogCapture log;
    void* download = mirel::createDownload(std::move(r));
    EXPECT_EQ(mirel::runDownloads("", {download}), MIRELCLIENT_PEM_FILE_FAILED);
    EXPECT_TRUE(log.has(3, "can't be used: it is empty")) << log.all();
    mirel::destroyDownload(download);
}

TEST(DownloadRuns, FailWith1ForAPathTheBoundaryRefused)
{
    mirel::DownloadRequest r = request({"https://localhost:9/a.msi"});
    r.trust.kind = mirel::TrustChoice::PemFile;
    r.trust.pemPathValid = false;
    r.trust.pemPathWhy = "its capacity is below 15";
    LogCapture log;
    void* download = mirel::createDownload(std::move(r));
    EXPECT_EQ(mirel::runDownloads("", {download}), MIRELCLIENT_PEM_FILE_FAILED);
    EXPECT_TRUE(log.has(3, "the CA file's path is malformed: its capacity is below 15")) << log.all();
    mirel::destroyDownload(download);
}

TEST(DownloadRuns, FailWith5ForAMalformedThumbprint)
{
    mirel::DownloadRequest r = request({"https://localhost:9/a.msi"});
    r.thumbprints.items = {"12345"};
    LogCapture log;
    void* download = mirel::createDownload(std::move(r));
    EXPECT_EQ(mirel::runDownloads("", {download}), MIRELCLIENT_INVALID_THUMBPRINT);
    EXPECT_TRUE(log.has(3, "failed with 5 (MIRELCLIENT_INVALID_THUMBPRINT): thumbprint 1 (\"12345\")")) << log.all();
    mirel::destroyDownload(download);
}

TEST(DownloadDestroy, TakesNullAndLeavesForeignHandlesAlone)
{
    LogCapture log;
    mirel::destroyDownload(nullptr);
    EXPECT_TRUE(log.lines().empty());
    int notADownload = 5;
    mirel::destroyDownload(&notADownload);
    EXPECT_TRUE(log.has(2, "not a live download of this client; left alone")) << log.all();
    EXPECT_EQ(notADownload, 5);
}

}  // namespace
