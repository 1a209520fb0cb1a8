#include "HttpsLab.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace it {

namespace {

std::wstring iniPath() { return JoinPath(HarnessDirectory(), L"..\\lab\\https\\lab.ini"); }

std::wstring iniText(const wchar_t* section, const wchar_t* key)
{
    wchar_t buffer[2048] = {};
    ::GetPrivateProfileStringW(section, key, L"", buffer, 2048, iniPath().c_str());
    std::wstring text = buffer;
    if (text.empty())
        throw std::runtime_error("the HTTPS lab's " + Narrow(iniPath()) + " has no " + Narrow(section) + "/" +
                                 Narrow(key) + ": is the lab up (ctest fixture https_lab, tests/lab/https)?");
    return text;
}

int iniPort(const wchar_t* key)
{
    int port = std::stoi(iniText(L"ports", key));
    if (port <= 0 || port > 65535)
        throw std::runtime_error("lab.ini: bad port for " + Narrow(key));
    return port;
}

HttpsLab loadLab()
{
    if (!PathExists(iniPath()))
        throw std::runtime_error("no " + Narrow(iniPath()) +
                                 ": the HTTPS lab is started by the CTest fixture https_lab "
                                 "(tests/lab/https/https_lab.sh start)");
    HttpsLab lab;
    lab.www = iniText(L"lab", L"www");
    lab.unthrottled = iniText(L"lab", L"unthrottled");
    lab.caPem = iniText(L"lab", L"ca");
    lab.otherCaPem = iniText(L"lab", L"other_ca");
    lab.thumbprint = Narrow(iniText(L"lab", L"thumbprint"));
    lab.otherCaThumbprint = Narrow(iniText(L"lab", L"other_ca_thumbprint"));
    lab.good = iniPort(L"good");
    lab.otherCa = iniPort(L"other_ca");
    lab.expired = iniPort(L"expired");
    lab.wrongHost = iniPort(L"wrong_host");
    lab.plain = iniPort(L"plain");
    lab.proxy = iniPort(L"proxy");
    lab.fault = iniPort(L"fault");
    lab.dead = iniPort(L"dead");
    lab.goodLog = iniText(L"logs", L"good");
    lab.otherCaLog = iniText(L"logs", L"other_ca");
    lab.expiredLog = iniText(L"logs", L"expired");
    lab.wrongHostLog = iniText(L"logs", L"wrong_host");
    lab.plainLog = iniText(L"logs", L"plain");
    lab.proxyLog = iniText(L"logs", L"proxy");
    lab.faultLog = iniText(L"logs", L"fault");
    if (!PathExists(lab.www))
        throw std::runtime_error("the HTTPS lab's payload folder " + Narrow(lab.www) + " is missing");
    return lab;
}

std::vector<std::wstring> allLogs(const HttpsLab& lab)
{
    return {lab.goodLog, lab.otherCaLog, lab.expiredLog, lab.wrongHostLog, lab.plainLog, lab.faultLog};
}

void deleteTree32(const wchar_t* tree)
{
    HKEY software = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software", 0, KEY_ALL_ACCESS | KEY_WOW64_32KEY, &software) !=
        ERROR_SUCCESS)
        throw std::runtime_error("can't open HKLM\\Software in the 32-bit view");
    LSTATUS rc = ::RegDeleteTreeW(software, tree);
    ::RegCloseKey(software);
    if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND)
        throw std::runtime_error("RegDeleteTreeW HKLM\\Software\\" + Narrow(tree) + " (32-bit view) failed: " +
                                 std::to_string(rc));
}

void writeString32(const std::wstring& key, const std::wstring& name, const std::wstring& text)
{
    HKEY handle = nullptr;
    if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, 0, KEY_SET_VALUE | KEY_WOW64_32KEY, nullptr,
                          &handle, nullptr) != ERROR_SUCCESS)
        throw std::runtime_error("can't create HKLM\\" + Narrow(key) + " in the 32-bit view");
    LSTATUS rc = ::RegSetValueExW(handle, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                                  static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    ::RegCloseKey(handle);
    if (rc != ERROR_SUCCESS)
        throw std::runtime_error("can't write HKLM\\" + Narrow(key) + "\\" + Narrow(name) + " in the 32-bit view");
}

void listFiles(const std::wstring& folder, const std::vector<std::wstring>& skip, std::vector<std::wstring>& out)
{
    WIN32_FIND_DATAW data;
    HANDLE find = ::FindFirstFileW(JoinPath(folder, L"*").c_str(), &data);
    if (find == INVALID_HANDLE_VALUE)
        return;
    do {
        std::wstring name = data.cFileName;
        if (name == L"." || name == L"..")
            continue;
        std::wstring full = JoinPath(folder, name);
        bool skipped = false;
        for (const std::wstring& s : skip)
            skipped = skipped || ::CompareStringOrdinal(full.c_str(), -1, s.c_str(), -1, TRUE) == CSTR_EQUAL;
        if (skipped)
            continue;
        if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
            listFiles(full, skip, out);
        else
            out.push_back(full);
    } while (::FindNextFileW(find, &data));
    ::FindClose(find);
}

}  // namespace

std::string DownloadFailedLine(const ClientFailure& failure)
{
    return "Util_DoDownload: download failed: " + std::to_string(failure.code) + " [" + failure.name + "] - " +
           failure.description;
}

::testing::AssertionResult HasLineContaining(const std::vector<std::string>& messages, const std::string& start,
                                             const std::string& part)
{
    for (const std::string& m : messages)
        if (m.rfind(start, 0) == 0 && m.find(part, start.size()) != std::string::npos)
            return ::testing::AssertionSuccess();
    std::string all;
    for (const std::string& m : messages)
        all += "  " + m + "\n";
    return ::testing::AssertionFailure() << "no line starting with \"" << start << "\" holding \"" << part
                                         << "\"; messages:\n" << all;
}

std::string PayloadBytes(size_t size, unsigned seed)
{
    std::string bytes(size, '\0');
    uint64_t x = 0x9E3779B97F4A7C15ULL * (seed + 1);
    for (size_t i = 0; i < size; ++i) {
        x ^= x << 13;
        x ^= x >> 7;
        x ^= x << 17;
        bytes[i] = static_cast<char>(x >> 24);
    }
    return bytes;
}

const HttpsLab& Lab()
{
    static std::unique_ptr<HttpsLab> lab;
    if (!lab)
        lab = std::make_unique<HttpsLab>(loadLab());
    return *lab;
}

uint64_t FileSize(const std::wstring& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data))
        return 0;
    return (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

std::string ReadLogTail(const std::wstring& path, uint64_t from)
{
    std::optional<std::string> bytes = ReadFileBytes(path);
    if (!bytes || bytes->size() <= from)
        return std::string();
    std::string text = bytes->substr(static_cast<size_t>(from));
    // A line still being written counts from the next read on.
    size_t end = text.find_last_of('\n');
    return end == std::string::npos ? std::string() : text.substr(0, end + 1);
}

std::vector<Request> ParseRequests(const std::string& text)
{
    std::vector<Request> requests;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find('\n', pos);
        std::string line = text.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
        pos = end == std::string::npos ? text.size() : end + 1;
        // <port> "<method> <path> <protocol>" "<range>" <status> <bytes>
        Request r;
        size_t q1 = line.find('"');
        size_t q2 = q1 == std::string::npos ? q1 : line.find('"', q1 + 1);
        size_t q3 = q2 == std::string::npos ? q2 : line.find('"', q2 + 1);
        size_t q4 = q3 == std::string::npos ? q3 : line.find('"', q3 + 1);
        if (q4 == std::string::npos)
            continue;
        r.port = std::atoi(line.c_str());
        std::string request = line.substr(q1 + 1, q2 - q1 - 1);
        size_t sp1 = request.find(' ');
        size_t sp2 = sp1 == std::string::npos ? sp1 : request.find(' ', sp1 + 1);
        r.method = request.substr(0, sp1);
        if (sp1 != std::string::npos)
            r.path = request.substr(sp1 + 1, sp2 == std::string::npos ? std::string::npos : sp2 - sp1 - 1);
        r.range = line.substr(q3 + 1, q4 - q3 - 1);
        unsigned long long bytes = 0;
        if (std::sscanf(line.c_str() + q4 + 1, " %d %llu", &r.status, &bytes) != 2)
            continue;
        r.bytes = bytes;
        requests.push_back(r);
    }
    return requests;
}

std::string TarArchive(const std::vector<std::pair<std::string, std::string>>& entries)
{
    std::string archive;
    for (const auto& [name, content] : entries) {
        const bool folder = !name.empty() && name.back() == '/';
        if (name.size() > 99)
            throw std::runtime_error("tar entry name too long for this writer: " + name);
        char header[512] = {};
        std::memcpy(header, name.data(), name.size());
        std::snprintf(header + 100, 8, "%07o", folder ? 0755 : 0644);
        std::snprintf(header + 108, 8, "%07o", 0);
        std::snprintf(header + 116, 8, "%07o", 0);
        std::snprintf(header + 124, 12, "%011llo", static_cast<unsigned long long>(folder ? 0 : content.size()));
        std::snprintf(header + 136, 12, "%011llo", 1700000000ULL);
        header[156] = folder ? '5' : '0';
        std::memcpy(header + 257, "ustar", 6);
        std::memcpy(header + 263, "00", 2);
        // The checksum is taken with its own field as eight blanks.
        std::memset(header + 148, ' ', 8);
        unsigned sum = 0;
        for (unsigned char c : header)
            sum += c;
        std::snprintf(header + 148, 8, "%06o", sum);
        header[155] = ' ';
        archive.append(header, 512);
        if (!folder) {
            archive += content;
            archive.append((512 - content.size() % 512) % 512, '\0');
        }
    }
    archive.append(1024, '\0');
    return archive;
}

std::string UrlEscape(const std::string& text)
{
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : text) {
        if (std::isalnum(c) || std::strchr("-._~/+", c))
            out.push_back(static_cast<char>(c));
        else {
            out.push_back('%');
            out.push_back(hex[c >> 4]);
            out.push_back(hex[c & 15]);
        }
    }
    return out;
}

void DeleteDaasKeys()
{
    deleteTree32(L"Tarvelle");
    deleteTree32(L"Kesmarc, Inc.");
}

void HttpsTest::SetUp()
{
    JobTest::SetUp();
    const HttpsLab& lab = Lab();
    DeleteDaasKeys();
    ::DeleteFileW(lab.unthrottled.c_str());
    testName_ = Narrow(sandbox_.substr(sandbox_.find_last_of(L'\\') + 1));
    testFolder_ = JoinPath(lab.www, Wide(testName_));
    RemoveTree(testFolder_);
    MakeDirectories(testFolder_);
    for (const std::wstring& log : allLogs(lab))
        logStarts_.emplace_back(log, FileSize(log));
    logStarts_.emplace_back(lab.proxyLog, FileSize(lab.proxyLog));
}

void HttpsTest::TearDown()
{
    ::DeleteFileW(Lab().unthrottled.c_str());
    DeleteDaasKeys();
    if (!HasFailure())
        RemoveTree(testFolder_);
    JobTest::TearDown();
}

void HttpsTest::PutPayload(const std::wstring& name, const std::string& bytes)
{
    std::wstring path = JoinPath(testFolder_, name);
    MakeDirectories(path.substr(0, path.find_last_of(L'\\')));
    WriteFileBytes(path, bytes);
}

std::string HttpsTest::UrlPath(const std::wstring& name, const std::wstring& prefix, bool escape) const
{
    std::string tail = Narrow(name);
    for (char& c : tail)
        if (c == '\\')
            c = '/';
    return Narrow(prefix) + "/" + testName_ + "/" + (escape ? UrlEscape(tail) : tail);
}

std::wstring HttpsTest::Url(int port, const std::wstring& name, const std::wstring& prefix, bool escape) const
{
    return L"https://localhost:" + std::to_wstring(port) + Wide(UrlPath(name, prefix, escape));
}

void HttpsTest::WriteHttpsJob(const std::vector<std::wstring>& urls, const std::wstring& certType,
                              const std::wstring& size, const std::wstring& checksum,
                              std::vector<std::pair<std::wstring, std::wstring>> extra)
{
    const std::wstring key = JobKey(kNewRoot, L"job");
    std::vector<std::pair<std::wstring, std::wstring>> values = {
        {L"AGENT", L"OTHER"},   {L"VERSION", L"1.1.0"}, {L"ARCH", L"64-BitAgent"},
        {L"FILESIZE", size},    {L"CHECKSUM", checksum}, {L"STATE", L"DOWNLOAD"},
        {L"RESULT", L""},       {L"RETRY", L"0"}};
    if (!certType.empty())
        values.emplace_back(L"CERTTYPE", certType);
    values.insert(values.end(), extra.begin(), extra.end());
    WriteJob(key, values);
    WriteMultiString(key, L"URL", urls);
}

std::wstring HttpsTest::ThumbprintBag(const std::vector<std::string>& thumbprints)
{
    std::wstring bag = L"<PROPERTYBAG>";
    for (const std::string& t : thumbprints)
        bag += L"<ITEM name=\"THUMBPRINT\">" + Wide(t) + L"</ITEM>";
    return bag + L"</PROPERTYBAG>";
}

JobRun HttpsTest::RunFetch(DWORD timeoutMs)
{
    JobRun job = RunJob(timeoutMs);
    ExpectCompleted(job);
    // A fetch run always ends with -1; the registry tells the outcome.
    EXPECT_EQ(-1, job.run.exitCode) << RunResultName(job.run.exitCode);
    return job;
}

void HttpsTest::ExpectFetched(const JobRun& job, const std::wstring& name, const std::string& bytes,
                              const std::string& retry)
{
    const std::wstring payload = Local(name);
    EXPECT_TRUE(HasWrittenValues(JobKey(kNewRoot, L"job"), {"WAIT", "OK", Narrow(payload), "", "", retry}));
    std::optional<std::string> fetched = ReadFileBytes(payload);
    EXPECT_TRUE(fetched.has_value()) << "nothing at " << Narrow(payload);
    if (fetched) {
        EXPECT_EQ(bytes.size(), fetched->size());
        EXPECT_TRUE(*fetched == bytes) << "the fetched file differs from the server's";
    }
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "Util_DoDownload: Update key: job state: DOWNLOAD",
        "Util_DoDownload: download done",
        "Util_UpdateDone: Updating state for result 'ERR_FAILURE', legacy workflow:'0' ",
        "UtilManageUpdateState: Update key: job current state: DOWNLOAD result:OK",
        "UtilManageUpdateState: Update key: job new state: WAIT result: OK",
    }));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_DoDownload: download failed"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilTryAgain:"));
    ExpectOneEntry(job, {"job", "OTHER", Narrow(payload), "1.1.0", "WAIT", std::stoll(retry), "OK"});
}

void HttpsTest::ExpectFailed(const JobRun& job, const ClientFailure& failure, const std::wstring& name,
                             const std::string& retry)
{
    const std::wstring payload = Local(name);
    EXPECT_TRUE(HasWrittenValues(JobKey(kNewRoot, L"job"), {"READY", "PROGRESS", Narrow(payload), failure.name,
                                                            failure.description, retry}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "Util_DoDownload: Update key: job state: DOWNLOAD",
        DownloadFailedLine(failure),
        "UtilTryAgain: updating retry: " + retry + ", max attempt allowed: 2",
        "Util_UpdateDone: wait for 0 mins",
        "Util_UpdateDone: done waiting",
        "UtilManageUpdateState: Update key: job current state: READY result:PROGRESS",
        "UtilManageUpdateState: Update key: job new state: READY result: PROGRESS",
    }));
    EXPECT_TRUE(LacksLine(Messages(job), "Util_DoDownload: download done"));
    ExpectOneEntry(job, {"job", "OTHER", Narrow(payload), "1.1.0", "READY", std::stoll(retry), "PROGRESS",
                         failure.name, failure.description});
}

uint64_t HttpsTest::startOf(const std::wstring& log) const
{
    for (const auto& [path, start] : logStarts_)
        if (path == log)
            return start;
    throw std::runtime_error("not a log of the lab: " + Narrow(log));
}

std::vector<Request> HttpsTest::Requests(const std::wstring& log, bool anyPath) const
{
    std::vector<Request> mine;
    const std::string folder = "/" + testName_ + "/";
    for (const Request& r : ParseRequests(ReadLogTail(log, startOf(log))))
        if (anyPath || r.path.find(folder) != std::string::npos)
            mine.push_back(r);
    return mine;
}

std::vector<Request> HttpsTest::AllRequests() const
{
    std::vector<Request> all;
    for (const std::wstring& log : allLogs(Lab())) {
        std::vector<Request> some = Requests(log);
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

std::vector<std::string> HttpsTest::ProxyLines() const
{
    std::vector<std::string> lines;
    std::string text = ReadLogTail(Lab().proxyLog, startOf(Lab().proxyLog));
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find('\n', pos);
        lines.push_back(text.substr(pos, end - pos));
        pos = end + 1;
    }
    return lines;
}

std::vector<Request> HttpsTest::WaitForRequests(const std::wstring& log, size_t count) const
{
    // A server logs a request when it has finished with it, which for a
    // killed client may come a moment after the kill.
    ULONGLONG deadline = ::GetTickCount64() + 30000;
    std::vector<Request> requests = Requests(log);
    while (requests.size() < count && ::GetTickCount64() < deadline) {
        ::Sleep(100);
        requests = Requests(log);
    }
    return requests;
}

std::vector<std::wstring> HttpsTest::StrayFiles() const
{
    std::vector<std::wstring> files;
    std::vector<std::wstring> skip = {Workspace()};
    // The log folders of this test (one per case), all named "logs-<n>".
    WIN32_FIND_DATAW data;
    HANDLE find = ::FindFirstFileW(JoinPath(sandbox_, L"logs-*").c_str(), &data);
    if (find != INVALID_HANDLE_VALUE) {
        do
            skip.push_back(JoinPath(sandbox_, data.cFileName));
        while (::FindNextFileW(find, &data));
        ::FindClose(find);
    }
    listFiles(sandbox_, skip, files);
    // The PEM cases' own certificate folders are the test's, not the tool's.
    std::vector<std::wstring> stray;
    for (const std::wstring& f : files)
        if (f.find(L"\\agent-install-") == std::wstring::npos && f.find(L"\\daas-") == std::wstring::npos)
            stray.push_back(f);
    return stray;
}

void HttpsTest::SetClientSetting(const std::wstring& name, DWORD value)
{
    WriteDword(std::wstring(kNewRoot) + L"\\DeliveryClient", name, value);
}

std::vector<std::wstring> HttpsTest::WorkspaceFiles() const
{
    std::vector<std::wstring> files;
    listFiles(Workspace(), {}, files);
    return files;
}

std::optional<std::wstring> HttpsTest::WaitForFileInWorkspace(uint64_t bytes) const
{
    ULONGLONG deadline = ::GetTickCount64() + 60000;
    for (;;) {
        for (const std::wstring& file : WorkspaceFiles())
            if (FileSize(file) >= bytes)
                return file;
        if (::GetTickCount64() >= deadline)
            return std::nullopt;
        ::Sleep(50);
    }
}

void HttpsTest::SetAgentInstallPath(const wchar_t* root, const std::wstring& folder)
{
    WriteString(root, L"AgentInstallPath", folder);
}

void HttpsTest::SetDaasCertificate(const std::wstring& folder, const std::wstring& fileName)
{
    writeString32(L"Software\\Tarvelle\\DaaS Agent", L"CertFolder", folder);
    writeString32(L"Software\\Tarvelle\\DaaS Agent", L"CertFileName", fileName);
}

}  // namespace it
