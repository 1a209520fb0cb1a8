// Many generated job keys read through the whole reader: whatever the key
// holds, the read ends with the defined outcome and the record stays sane.
#include <gtest/gtest.h>

#include <cstring>
#include <cwctype>
#include <random>
#include <string>
#include <vector>

#include "fakes/FakePlatform.h"
#include "update/UpdateRecord.h"
#include "update/UpdateRecordReader.h"

using CORE::corestring;
using fakes::FakeKeyStore;
using fakes::FakePlatform;

namespace {

const std::wstring kJobsKey = L"Software\\Tarvelle\\Zenthra\\Agent\\Update";

const wchar_t* const kNames[] = {
    L"STATE",    L"AGENT",    L"VERSION",  L"URL",     L"UNC_PATH", L"UNC_SHARETYPE",   L"PROXY",
    L"PACURL",   L"ARCH",     L"METADATA", L"CHECKSUM", L"FILESIZE", L"CERTTYPE",       L"OPTIONS",
    L"RESULT",   L"FILENAME", L"PACKAGEFILENAME", L"RELATIVEFOLDERPATH", L"RETRY", L"ERRORCODE", L"X",
};
const DWORD kTypes[] = {REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ, REG_DWORD, REG_QWORD, REG_BINARY, REG_NONE};
const wchar_t kBlanks[] = {L' ', L'\t', L'\r', L'\n'};

struct Generated {
    std::wstring name;  // as stored, case and blanks included
    DWORD type;
    std::vector<BYTE> bytes;
};

class Generator {
public:
    explicit Generator(std::uint32_t seed) : m_rng(seed) {}

    std::uint32_t below(std::uint32_t n) { return std::uniform_int_distribution<std::uint32_t>(0, n - 1)(m_rng); }
    bool chance(int percent) { return static_cast<int>(below(100)) < percent; }

    std::wstring name()
    {
        std::wstring base = kNames[below(std::size(kNames))];
        for (wchar_t& c : base)
            if (chance(40))
                c = static_cast<wchar_t>(std::towlower(c));
        std::wstring out;
        if (chance(25))
            out.append(1 + below(3), kBlanks[below(4)]);
        out += base;
        if (chance(25))
            out.append(1 + below(3), kBlanks[below(4)]);
        return out;
    }

    std::wstring text(std::size_t characters)
    {
        static const wchar_t* const pieces[] = {L"DOWNLOAD", L"ready", L"TOVI", L"https://h/f.msi", L"\\\\s\\x",
                                                L"0x10",     L"010",   L"%TEMP%", L",",               L"<ITEM",
                                                L"THUMBPRINT"};
        std::wstring out;
        while (out.size() < characters) {
            switch (below(4)) {
            case 0:
                out.push_back(L'\0');
                break;
            case 1:
                out += pieces[below(std::size(pieces))];
                break;
            case 2:
                out.push_back(static_cast<wchar_t>(1 + below(0xD7FF)));
                break;
            default:
                out.push_back(static_cast<wchar_t>(L'0' + below(10)));
                break;
            }
        }
        out.resize(characters);
        return out;
    }

    std::wstring metadata()
    {
        std::wstring out = L"<PROPERTYBAG>";
        for (std::uint32_t i = below(4); i > 0; --i) {
            if (chance(20))
                out += L"<ITEM name=\"THUMBPRINT\" type=\"BAG\"><ITEM name=\"a\">b</ITEM></ITEM>";
            else
                out += std::wstring(L"<ITEM name=\"") + (chance(50) ? L"thumbPrint" : L"other") + L"\">" +
                       std::to_wstring(below(100000)) + L"</ITEM>";
        }
        if (!chance(10))
            out += L"</PROPERTYBAG>";  // else: a text that doesn't parse
        return out;
    }

    std::vector<BYTE> bytesOf(const std::wstring& text, bool terminator)
    {
        std::vector<BYTE> bytes(reinterpret_cast<const BYTE*>(text.data()),
                                reinterpret_cast<const BYTE*>(text.data() + text.size()));
        if (terminator) {
            bytes.push_back(0);
            bytes.push_back(0);
        }
        return bytes;
    }

    std::size_t size()
    {
        if (chance(5))
            return 8000 + below(2001);  // around the 8191-byte limit and past it
        if (chance(10))
            return below(4096);
        return below(64);
    }

    Generated value()
    {
        Generated v{name(), kTypes[below(std::size(kTypes))], {}};
        std::size_t bytes = size();
        if (v.type == REG_DWORD || v.type == REG_QWORD) {
            bytes = chance(80) ? (v.type == REG_DWORD ? 4 : 8) : below(12);
            for (std::size_t i = 0; i < bytes; ++i)
                v.bytes.push_back(static_cast<BYTE>(below(256)));
        } else if (v.type == REG_BINARY || v.type == REG_NONE) {
            for (std::size_t i = 0; i < bytes; ++i)
                v.bytes.push_back(static_cast<BYTE>(chance(50) ? 0 : below(256)));
        } else {
            v.bytes = bytesOf(text(bytes / 2), chance(80));
            if (chance(10))
                v.bytes.push_back(static_cast<BYTE>(below(256)));  // an odd byte count
        }
        return v;
    }

    // Often a job that can pass, so that the paths behind the mandatory check run too.
    std::vector<Generated> job()
    {
        std::vector<Generated> values;
        std::uint32_t count = below(14);
        for (std::uint32_t i = 0; i < count; ++i)
            values.push_back(value());
        if (chance(60)) {
            values.insert(values.begin() + below(static_cast<std::uint32_t>(values.size()) + 1),
                          Generated{L"AGENT", REG_SZ, bytesOf(L"TOVI", true)});
            Generated where = chance(50) ? Generated{L"UNC_PATH", REG_SZ, bytesOf(L"\\\\s\\x.msi", true)}
                                         : Generated{L"URL", REG_MULTI_SZ, bytesOf(std::wstring(L"https://a/1\0", 12), true)};
            values.insert(values.begin() + below(static_cast<std::uint32_t>(values.size()) + 1), where);
        }
        if (chance(30))
            values.insert(values.begin() + below(static_cast<std::uint32_t>(values.size()) + 1),
                          Generated{L"METADATA", REG_SZ, bytesOf(metadata(), true)});
        return values;
    }

private:
    std::mt19937 m_rng;
};

std::wstring trimmed(const std::wstring& s)
{
    const wchar_t* blanks = L" \t\r\n";
    std::size_t first = s.find_first_not_of(blanks);
    if (first == std::wstring::npos)
        return L"";
    return s.substr(first, s.find_last_not_of(blanks) - first + 1);
}

bool sameNoCase(const std::wstring& a, const std::wstring& b)
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (std::towupper(a[i]) != std::towupper(b[i]))
            return false;
    return true;
}

TEST(UpdateRecordRandom, GeneratedJobKeysReadWithoutHarm)
{
    Generator gen(20240611u);
    constexpr int kJobCount = 2000;
    int accepted = 0;
    int withThumbprints = 0;
    int endedEarly = 0;
    for (int n = 0; n < kJobCount; ++n) {
        FakePlatform p;
        if (gen.chance(30))
            p.keys.setEnumerationOrder(FakeKeyStore::Order::Insertion, FakeKeyStore::Order::Alphabetical);
        const std::wstring key = kJobsKey + L"\\Job" + std::to_wstring(n);
        std::vector<Generated> values = gen.job();
        for (const Generated& v : values)
            p.keys.putBytes(HKEY_LOCAL_MACHINE, key, v.name, v.type, v.bytes);
        if (values.empty())
            p.keys.createKey(HKEY_LOCAL_MACHINE, key);

        NoCaseMap map;
        bool ok = false;
        EXPECT_NO_THROW(ok = Util_GetUpdateState(map)) << "job " << n;
        const UpdateRecord& rec = g_updateRecord;

        ASSERT_LE(rec.nState, 6u) << "job " << n;
        EXPECT_EQ(0u, p.keys.openHandleCount()) << "job " << n;
        EXPECT_EQ(std::wstring(L"Job") + std::to_wstring(n), rec.sUpdateKey.c_str());

        // Names the key holds, trimmed: the reader can't have found more.
        bool agentStored = false;
        bool metadataStored = false;
        for (const Generated& v : values) {
            if (v.bytes.size() > 8191)
                ++endedEarly;
            std::wstring name = trimmed(v.name);
            agentStored |= sameNoCase(name, L"AGENT");
            metadataStored |= sameNoCase(name, L"METADATA");
        }

        if (ok) {
            ++accepted;
            EXPECT_FALSE(rec.sAgent.empty()) << "job " << n;
            EXPECT_TRUE(!rec.sUNC.empty() || !rec.sURLs.empty()) << "job " << n;
            EXPECT_TRUE(agentStored) << "job " << n;
            EXPECT_EQ(5u, map.size()) << "job " << n;
            if (!rec.sUNC.empty()) {
                EXPECT_FALSE(rec.sShareType.empty()) << "job " << n;
            }
            for (const corestring& url : rec.sURLs) {
                EXPECT_FALSE(url.empty()) << "job " << n;
                EXPECT_EQ(std::wcslen(url.c_str()), url.length()) << "job " << n;
            }
            for (const corestring& proxy : rec.sProxies)
                EXPECT_FALSE(proxy.empty()) << "job " << n;
        } else {
            EXPECT_TRUE(map.empty()) << "job " << n;
        }
        if (!rec.sThumbprints.empty()) {
            ++withThumbprints;
            EXPECT_TRUE(ok) << "job " << n;
            EXPECT_TRUE(metadataStored) << "job " << n;
            std::wstring metadata = rec.sMetadata.c_str();
            for (wchar_t& c : metadata)
                c = static_cast<wchar_t>(std::towupper(c));
            EXPECT_NE(std::wstring::npos, metadata.find(L"THUMBPRINT")) << "job " << n;
        }
        if (::testing::Test::HasFatalFailure())
            return;
    }
    ::testing::Test::RecordProperty("accepted", accepted);
    ::testing::Test::RecordProperty("withThumbprints", withThumbprints);
    ::testing::Test::RecordProperty("endedEarly", endedEarly);
    // The generator must have reached the interesting paths.
    EXPECT_GT(accepted, kJobCount / 5);
    EXPECT_GT(withThumbprints, 20);
    EXPECT_GT(endedEarly, 20);
}

}  // namespace
