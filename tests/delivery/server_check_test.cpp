// The client's own certificate check, offline: the server's certificates
// come from fixtures instead of a handshake. The system CA mode is left to
// the lab (it needs the machine's root store); the CA file and thumbprint
// modes, which decide by themselves, are checked here.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CaFile.h"
#include "ServerCheck.h"
#include "Thumbprints.h"
#include "certificate_fixtures.h"

namespace {

// The leaf as WinHTTP hands it over: a context whose store holds what the
// server sent.
class ServerCertificates {
public:
    ServerCertificates(const char* leafPem, std::vector<const char*> alsoSent = {})
    {
        m_store = ::CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, CERT_STORE_CREATE_NEW_FLAG, nullptr);
        m_leaf = add(leafPem);
        for (const char* pem : alsoSent)
            ::CertFreeCertificateContext(add(pem));
    }
    ~ServerCertificates()
    {
        ::CertFreeCertificateContext(m_leaf);
        ::CertCloseStore(m_store, 0);
    }
    PCCERT_CONTEXT leaf() const { return m_leaf; }

private:
    PCCERT_CONTEXT add(const char* pem)
    {
        DWORD size = 0;
        ::CryptStringToBinaryA(pem, 0, CRYPT_STRING_BASE64HEADER, nullptr, &size, nullptr, nullptr);
        std::vector<BYTE> der(size);
        ::CryptStringToBinaryA(pem, 0, CRYPT_STRING_BASE64HEADER, der.data(), &size, nullptr, nullptr);
        PCCERT_CONTEXT context = nullptr;
        ::CertAddEncodedCertificateToStore(m_store, X509_ASN_ENCODING, der.data(), size, CERT_STORE_ADD_ALWAYS,
                                           &context);
        return context;
    }
    HCERTSTORE m_store = nullptr;
    PCCERT_CONTEXT m_leaf = nullptr;
};

mirel::Thumbprint pin(const char* hex)
{
    mirel::Thumbprint t;
    std::string why;
    EXPECT_TRUE(mirel::parseThumbprint(hex, t, why)) << why;
    return t;
}

class PemMode : public ::testing::Test {
protected:
    mirel::TrustConfig config(const char* caPem)
    {
        std::string why;
        EXPECT_TRUE(m_caFile.loadText(caPem, why)) << why;
        mirel::TrustConfig c;
        c.mode = mirel::TrustMode::PemFile;
        c.caFile = &m_caFile;
        return c;
    }
    mirel::CaFile m_caFile;
};

TEST_F(PemMode, TrustsAServerOfTheFilesCa)
{
    ServerCertificates server(fixtures::kServerPem);
    mirel::ServerCheckResult r = mirel::checkServer(server.leaf(), config(fixtures::kTestCaPem), "localhost", false);
    EXPECT_TRUE(r.trusted) << r.why;
}

TEST_F(PemMode, TrustsTheServerByItsAddressEntry)
{
    ServerCertificates server(fixtures::kServerPem);
    mirel::ServerCheckResult r = mirel::checkServer(server.leaf(), config(fixtures::kTestCaPem), "127.0.0.1", true);
    EXPECT_TRUE(r.trusted) << r.why;
}

TEST_F(PemMode, RefusesAServerOfAnotherCa)
{
    ServerCertificates server(fixtures::kServerPem);
    mirel::ServerCheckResult r = mirel::checkServer(server.leaf(), config(fixtures::kOtherCaPem), "localhost", false);
    EXPECT_FALSE(r.trusted);
    EXPECT_EQ(r.why.rfind("the chain is not trusted by the CA file: ", 0), 0u) << r.why;
}

TEST_F(PemMode, RefusesAServerOfAnotherCaThatSentItsCa)
{
    // The other CA comes with the server, but only the file's CAs are roots.
    ServerCertificates server(fixtures::kOtherServerPem, {fixtures::kOtherCaPem});
    mirel::ServerCheckResult r = mirel::checkServer(server.leaf(), config(fixtures::kTestCaPem), "localhost", false);
    EXPECT_FALSE(r.trusted);
}

TEST_F(PemMode, TrustsTheOtherCaWhenTheFileHoldsIt)
{
    ServerCertificates server(fixtures::kOtherServerPem);
    mirel::ServerCheckResult r = mirel::checkServer(server.leaf(), config(fixtures::kOtherCaPem), "localhost", false);
    EXPECT_TRUE(r.trusted) << r.why;
}

TEST_F(PemMode, RefusesAnExpiredServer)
{
    ServerCertificates server(fixtures::kExpiredPem);
    mirel::ServerCheckResult r = mirel::checkServer(server.leaf(), config(fixtures::kTestCaPem), "localhost", false);
    EXPECT_FALSE(r.trusted);
    EXPECT_NE(r.why.find("outside its dates"), std::string::npos) << r.why;
}

TEST_F(PemMode, RefusesAnotherHost)
{
    ServerCertificates server(fixtures::kWrongHostPem);
    mirel::ServerCheckResult r = mirel::checkServer(server.leaf(), config(fixtures::kTestCaPem), "localhost", false);
    EXPECT_FALSE(r.trusted);
    EXPECT_EQ(r.why, "the server's certificate \"other.example\" does not name the host localhost");
}

TEST_F(PemMode, RefusesTheRightCertificateForAnotherHostName)
{
    ServerCertificates server(fixtures::kServerPem);
    mirel::ServerCheckResult r =
        mirel::checkServer(server.leaf(), config(fixtures::kTestCaPem), "download.example", false);
    EXPECT_FALSE(r.trusted);
    EXPECT_EQ(r.why, "the server's certificate \"localhost\" does not name the host download.example");
}

TEST_F(PemMode, AlsoNeedsAThumbprintWhenGiven)
{
    ServerCertificates server(fixtures::kServerPem);
    mirel::TrustConfig c = config(fixtures::kTestCaPem);
    c.pins = {pin(fixtures::kTestCaSha256)};
    EXPECT_TRUE(mirel::checkServer(server.leaf(), c, "localhost", false).trusted);
    c.pins = {pin(fixtures::kOtherCaSha256)};
    mirel::ServerCheckResult r = mirel::checkServer(server.leaf(), c, "localhost", false);
    EXPECT_FALSE(r.trusted);
    EXPECT_EQ(r.why.rfind("no certificate of the server's chain matches a thumbprint", 0), 0u) << r.why;
}

mirel::TrustConfig thumbprints(std::vector<const char*> hex)
{
    mirel::TrustConfig c;
    c.mode = mirel::TrustMode::Thumbprint;
    for (const char* h : hex)
        c.pins.push_back(pin(h));
    return c;
}

TEST(ThumbprintMode, TrustsThePinnedServerWhateverItsCa)
{
    ServerCertificates server(fixtures::kServerPem);
    mirel::ServerCheckResult r =
        mirel::checkServer(server.leaf(), thumbprints({fixtures::kServerSha1}), "localhost", false);
    EXPECT_TRUE(r.trusted) << r.why;
}

TEST(ThumbprintMode, TrustsAPinnedCaTheServerSent)
{
    ServerCertificates server(fixtures::kServerPem, {fixtures::kTestCaPem});
    mirel::ServerCheckResult r =
        mirel::checkServer(server.leaf(), thumbprints({fixtures::kTestCaSha256}), "localhost", false);
    EXPECT_TRUE(r.trusted) << r.why;
}

TEST(ThumbprintMode, RefusesAPinnedCaTheServerDidNotSend)
{
    ServerCertificates server(fixtures::kServerPem);
    mirel::ServerCheckResult r =
        mirel::checkServer(server.leaf(), thumbprints({fixtures::kTestCaSha256}), "localhost", false);
    EXPECT_FALSE(r.trusted);
}

TEST(ThumbprintMode, RefusesAServerNoThumbprintNames)
{
    ServerCertificates server(fixtures::kServerPem);
    mirel::ServerCheckResult r = mirel::checkServer(
        server.leaf(), thumbprints({fixtures::kOtherServerSha1, fixtures::kOtherCaSha256}), "localhost", false);
    EXPECT_FALSE(r.trusted);
    const std::string serverSha1 = "535643d3734b2c8c7fa9750b62c743cf63ea0b7b";
    EXPECT_EQ(r.why,
              "no certificate of the server's chain matches a thumbprint (the server's is SHA-1 " + serverSha1 + ")");
}

TEST(ThumbprintMode, RefusesAPinnedButExpiredServer)
{
    ServerCertificates server(fixtures::kExpiredPem);
    mirel::ServerCheckResult r =
        mirel::checkServer(server.leaf(), thumbprints({fixtures::kExpiredSha1}), "localhost", false);
    EXPECT_FALSE(r.trusted);
    EXPECT_EQ(r.why, "the server's certificate \"localhost\" has expired");
}

TEST(ThumbprintMode, RefusesAPinnedServerOfAnotherHost)
{
    ServerCertificates server(fixtures::kWrongHostPem);
    mirel::ServerCheckResult r =
        mirel::checkServer(server.leaf(), thumbprints({fixtures::kWrongHostSha256}), "localhost", false);
    EXPECT_FALSE(r.trusted);
    EXPECT_EQ(r.why, "the server's certificate \"other.example\" does not name the host localhost");
}

TEST(ThumbprintMode, RefusesNoCertificate)
{
    mirel::ServerCheckResult r = mirel::checkServer(nullptr, thumbprints({fixtures::kServerSha1}), "localhost", false);
    EXPECT_FALSE(r.trusted);
    EXPECT_EQ(r.why, "the server presented no certificate");
}

TEST(CertificateNames, ReadsDnsAddressAndCommonName)
{
    ServerCertificates server(fixtures::kServerPem);
    mirel::CertificateNames names = mirel::namesOf(server.leaf());
    EXPECT_EQ(names.dnsNames, std::vector<std::string>{"localhost"});
    ASSERT_EQ(names.addresses.size(), 1u);
    EXPECT_EQ(names.addresses[0], (std::vector<std::uint8_t>{127, 0, 0, 1}));
    EXPECT_EQ(names.commonName, "localhost");
}

TEST(ChainErrors, AreNamedInWords)
{
    EXPECT_EQ(mirel::chainErrorText(CERT_TRUST_IS_UNTRUSTED_ROOT | CERT_TRUST_IS_PARTIAL_CHAIN),
              "untrusted root, partial chain (no trusted root reached)");
    EXPECT_EQ(mirel::chainErrorText(CERT_TRUST_IS_NOT_TIME_VALID), "a certificate is outside its dates");
    EXPECT_EQ(mirel::chainErrorText(0x40000000), "status 0x40000000");
}

TEST(TrustModes, HaveNamesForTheLog)
{
    EXPECT_STREQ(mirel::trustModeName(mirel::TrustMode::SystemCa), "system CA");
    EXPECT_STREQ(mirel::trustModeName(mirel::TrustMode::PemFile), "PEM file");
    EXPECT_STREQ(mirel::trustModeName(mirel::TrustMode::Thumbprint), "thumbprint");
}

}  // namespace
