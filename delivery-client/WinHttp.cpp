#include "WinHttp.h"

#include "AttemptPlan.h"
#include "Outcome.h"
#include "TextUtil.h"

namespace mirel {

namespace {

const wchar_t kUserAgent[] = L"mirelclient/1.0 (Zenthra update tool)";

DWORD milliseconds(std::uint32_t seconds) { return seconds > 0x7fffffffu / 1000 ? 0x7fffffff : seconds * 1000; }

bool queryText(HINTERNET request, DWORD query, std::string& value)
{
    value.clear();
    DWORD size = 0;
    ::WinHttpQueryHeaders(request, query, WINHTTP_HEADER_NAME_BY_INDEX, WINHTTP_NO_OUTPUT_BUFFER, &size,
                          WINHTTP_NO_HEADER_INDEX);
    if (::GetLastError() != ERROR_INSUFFICIENT_BUFFER || size == 0 || size > 64 * 1024)
        return false;
    std::wstring buffer(size / sizeof(wchar_t) + 1, L'\0');
    if (!::WinHttpQueryHeaders(request, query, WINHTTP_HEADER_NAME_BY_INDEX, buffer.data(), &size,
                               WINHTTP_NO_HEADER_INDEX))
        return false;
    buffer.resize(size / sizeof(wchar_t));
    value = wideToUtf8(buffer);
    return true;
}

// Why WinHTTP refused a server in the system CA mode: Wine says only 12157.
// A HEAD request that lets any certificate through fetches the server's
// certificate, which the client's own check then names the fault of; no
// body is read. Empty when that doesn't work out.
std::string explainRefusal(HINTERNET session, const HttpsUrl& url, const TrustConfig& trust)
{
    InternetHandle connect(::WinHttpConnect(session, url.host.c_str(), url.port, 0));
    if (!connect)
        return std::string();
    InternetHandle request(::WinHttpOpenRequest(connect.get(), L"HEAD", url.pathAndQuery.c_str(), nullptr,
                                                WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES, WINHTTP_FLAG_SECURE));
    if (!request)
        return std::string();
    DWORD flags = SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_DATE_INVALID |
                  SECURITY_FLAG_IGNORE_CERT_CN_INVALID | SECURITY_FLAG_IGNORE_CERT_WRONG_USAGE;
    DWORD never = WINHTTP_OPTION_REDIRECT_POLICY_NEVER;
    ::WinHttpSetOption(request.get(), WINHTTP_OPTION_REDIRECT_POLICY, &never, sizeof(never));
    if (!::WinHttpSetOption(request.get(), WINHTTP_OPTION_SECURITY_FLAGS, &flags, sizeof(flags)) ||
        !::WinHttpSendRequest(request.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0, 0))
        return std::string();
    PCCERT_CONTEXT cert = nullptr;
    DWORD size = sizeof(cert);
    if (!::WinHttpQueryOption(request.get(), WINHTTP_OPTION_SERVER_CERT_CONTEXT, &cert, &size) || !cert)
        return std::string();
    const ServerCheckResult check = checkServer(cert, trust, wideToUtf8(url.host), url.hostIsAddress);
    ::CertFreeCertificateContext(cert);
    return check.trusted ? std::string() : "; the client's own check of the certificate: " + check.why;
}

}  // namespace

InternetHandle& InternetHandle::operator=(InternetHandle&& other) noexcept
{
    if (this != &other) {
        reset(other.m_handle);
        other.m_handle = nullptr;
    }
    return *this;
}

void InternetHandle::reset(HINTERNET handle)
{
    if (m_handle)
        ::WinHttpCloseHandle(m_handle);
    m_handle = handle;
}

std::string RouteSpec::describe() const
{
    switch (kind) {
    case Direct:
        return "direct";
    case Proxy:
        return "proxy " + proxy;
    case MachineDefault:
        return "the machine's proxy setting";
    }
    return "?";
}

bool openSession(const RouteSpec& route, const Settings& settings, InternetHandle& session, std::string& why)
{
    std::wstring proxy;
    DWORD access = WINHTTP_ACCESS_TYPE_NO_PROXY;
    if (route.kind == RouteSpec::Proxy) {
        utf8ToWide(route.proxy, proxy);
        access = WINHTTP_ACCESS_TYPE_NAMED_PROXY;
    } else if (route.kind == RouteSpec::MachineDefault) {
        access = WINHTTP_ACCESS_TYPE_DEFAULT_PROXY;
    }
    // No bypass list: a named proxy is used for every host, localhost too.
    session.reset(::WinHttpOpen(kUserAgent, access, proxy.empty() ? WINHTTP_NO_PROXY_NAME : proxy.c_str(),
                                WINHTTP_NO_PROXY_BYPASS, 0));
    if (!session) {
        why = "WinHttpOpen failed: " + winHttpErrorText(::GetLastError());
        return false;
    }
    if (!::WinHttpSetTimeouts(session.get(), static_cast<int>(milliseconds(settings.resolveTimeoutSeconds)),
                              static_cast<int>(milliseconds(settings.connectTimeoutSeconds)),
                              static_cast<int>(milliseconds(settings.sendTimeoutSeconds)),
                              static_cast<int>(milliseconds(settings.responseTimeoutSeconds)))) {
        why = "WinHttpSetTimeouts failed: " + winHttpErrorText(::GetLastError());
        return false;
    }
    DWORD protocols = WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_2 | WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_3;
    if (!::WinHttpSetOption(session.get(), WINHTTP_OPTION_SECURE_PROTOCOLS, &protocols, sizeof(protocols))) {
        // Systems that don't know TLS 1.3 refuse the whole set.
        protocols = WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_2;
        ::WinHttpSetOption(session.get(), WINHTTP_OPTION_SECURE_PROTOCOLS, &protocols, sizeof(protocols));
    }
    return true;
}

std::string machineProxyText()
{
    WINHTTP_PROXY_INFO info{};
    if (!::WinHttpGetDefaultProxyConfiguration(&info))
        return "unknown (error " + std::to_string(::GetLastError()) + ")";
    std::string text;
    if (info.dwAccessType == WINHTTP_ACCESS_TYPE_NAMED_PROXY && info.lpszProxy) {
        text = "proxy " + forLog(std::wstring(info.lpszProxy), 200);
        if (info.lpszProxyBypass)
            text += ", bypass " + forLog(std::wstring(info.lpszProxyBypass), 200);
    } else {
        text = "direct";
    }
    if (info.lpszProxy)
        ::GlobalFree(info.lpszProxy);
    if (info.lpszProxyBypass)
        ::GlobalFree(info.lpszProxyBypass);
    return text;
}

bool proxiesFromPac(const std::wstring& pacUrl, const std::string& url, const Settings& settings,
                    std::vector<std::string>& proxies, std::string& why)
{
    proxies.clear();
    InternetHandle session;
    RouteSpec direct;
    direct.kind = RouteSpec::Direct;
    if (!openSession(direct, settings, session, why))
        return false;
    std::wstring wideUrl;
    utf8ToWide(url, wideUrl);
    WINHTTP_AUTOPROXY_OPTIONS options{};
    options.dwFlags = WINHTTP_AUTOPROXY_CONFIG_URL;
    options.lpszAutoConfigUrl = pacUrl.c_str();
    options.fAutoLogonIfChallenged = FALSE;
    WINHTTP_PROXY_INFO info{};
    if (!::WinHttpGetProxyForUrl(session.get(), wideUrl.c_str(), &options, &info)) {
        why = "WinHttpGetProxyForUrl failed: " + winHttpErrorText(::GetLastError());
        return false;
    }
    if (info.dwAccessType == WINHTTP_ACCESS_TYPE_NAMED_PROXY && info.lpszProxy)
        proxies = proxiesFromPacAnswer(wideToUtf8(info.lpszProxy));
    if (info.lpszProxy)
        ::GlobalFree(info.lpszProxy);
    if (info.lpszProxyBypass)
        ::GlobalFree(info.lpszProxyBypass);
    return true;
}

std::int32_t HttpRequest::send(HINTERNET session, const HttpsUrl& url, const TrustConfig& trust,
                               const Settings& settings, const std::wstring& extraHeaders, std::string& why)
{
    close();
    m_settings = &settings;
    m_connect.reset(::WinHttpConnect(session, url.host.c_str(), url.port, 0));
    if (!m_connect) {
        const DWORD error = ::GetLastError();
        why = "WinHttpConnect failed: " + winHttpErrorText(error);
        return MIRELCLIENT_DOWNLOAD_FAILED;
    }
    m_request.reset(::WinHttpOpenRequest(m_connect.get(), L"GET", url.pathAndQuery.c_str(), nullptr, WINHTTP_NO_REFERER,
                                         WINHTTP_DEFAULT_ACCEPT_TYPES, WINHTTP_FLAG_SECURE));
    if (!m_request) {
        const DWORD error = ::GetLastError();
        why = "WinHttpOpenRequest failed: " + winHttpErrorText(error);
        return MIRELCLIENT_DOWNLOAD_FAILED;
    }
    // A redirect would lead to a server the administrator didn't list.
    DWORD never = WINHTTP_OPTION_REDIRECT_POLICY_NEVER;
    ::WinHttpSetOption(m_request.get(), WINHTTP_OPTION_REDIRECT_POLICY, &never, sizeof(never));
    if (trust.mode != TrustMode::SystemCa) {
        // The client checks the chain itself (CA file or thumbprints, dates,
        // host); WinHTTP would stop on the CA before that.
        DWORD flags = SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_DATE_INVALID |
                      SECURITY_FLAG_IGNORE_CERT_CN_INVALID | SECURITY_FLAG_IGNORE_CERT_WRONG_USAGE;
        if (!::WinHttpSetOption(m_request.get(), WINHTTP_OPTION_SECURITY_FLAGS, &flags, sizeof(flags))) {
            why = "the security flags can't be set: " + winHttpErrorText(::GetLastError());
            return MIRELCLIENT_INIT_FAILED;
        }
    } else if (settings.checkRevocation) {
        DWORD feature = WINHTTP_ENABLE_SSL_REVOCATION;
        ::WinHttpSetOption(m_request.get(), WINHTTP_OPTION_ENABLE_FEATURE, &feature, sizeof(feature));
    }
    if (!::WinHttpSendRequest(m_request.get(),
                              extraHeaders.empty() ? WINHTTP_NO_ADDITIONAL_HEADERS : extraHeaders.c_str(),
                              extraHeaders.empty() ? 0 : static_cast<DWORD>(-1L), WINHTTP_NO_REQUEST_DATA, 0, 0, 0)) {
        const DWORD error = ::GetLastError();
        why = "the request failed: " + winHttpErrorText(error);
        const std::int32_t code = codeForWinHttpError(error);
        if (code == MIRELCLIENT_HTTP_CERTIFICATE_ERROR) {
            why += "; WinHTTP refused the server's certificate or the secure channel";
            if (trust.mode == TrustMode::SystemCa)
                why += explainRefusal(session, url, trust);
        }
        return code;
    }
    PCCERT_CONTEXT cert = nullptr;
    DWORD size = sizeof(cert);
    if (!::WinHttpQueryOption(m_request.get(), WINHTTP_OPTION_SERVER_CERT_CONTEXT, &cert, &size) || !cert) {
        why = "the server's certificate can't be read: " + winHttpErrorText(::GetLastError());
        return MIRELCLIENT_HTTP_CERTIFICATE_ERROR;
    }
    std::string host = wideToUtf8(url.host);
    ServerCheckResult check = checkServer(cert, trust, host, url.hostIsAddress);
    ::CertFreeCertificateContext(cert);
    if (!check.trusted) {
        why = "certificate refused (" + std::string(trustModeName(trust.mode)) + " check): " + check.why;
        return MIRELCLIENT_HTTP_CERTIFICATE_ERROR;
    }
    return MIRELCLIENT_SUCCESS;
}

std::int32_t HttpRequest::receive(Response& response, std::string& why)
{
    response = Response{};
    if (!::WinHttpReceiveResponse(m_request.get(), nullptr)) {
        const DWORD error = ::GetLastError();
        why = "no answer: " + winHttpErrorText(error);
        return codeForWinHttpError(error);
    }
    DWORD status = 0;
    DWORD size = sizeof(status);
    if (!::WinHttpQueryHeaders(m_request.get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                               WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX)) {
        why = "the answer has no status: " + winHttpErrorText(::GetLastError());
        return MIRELCLIENT_DOWNLOAD_FAILED;
    }
    response.status = status;
    std::string length;
    if (queryText(m_request.get(), WINHTTP_QUERY_CONTENT_LENGTH, length)) {
        if (!parseDecimal(length, response.contentLength)) {
            why = "the answer's Content-Length \"" + forLog(length, 40) + "\" is not a number";
            return MIRELCLIENT_DOWNLOAD_FAILED;
        }
        response.hasLength = true;
    }
    queryText(m_request.get(), WINHTTP_QUERY_CONTENT_RANGE, response.contentRange);
    queryText(m_request.get(), WINHTTP_QUERY_ETAG, response.etag);
    queryText(m_request.get(), WINHTTP_QUERY_LAST_MODIFIED, response.lastModified);
    queryText(m_request.get(), WINHTTP_QUERY_ACCEPT_RANGES, response.acceptRanges);
    queryText(m_request.get(), WINHTTP_QUERY_CONTENT_ENCODING, response.contentEncoding);
    return MIRELCLIENT_SUCCESS;
}

void HttpRequest::setStallTimeout(std::uint32_t ms)
{
    if (!m_request || !m_settings)
        return;
    // On the request handle, so that the socket's receive timeout changes
    // now (Wine applies it to the open connection at once).
    ::WinHttpSetTimeouts(m_request.get(), static_cast<int>(milliseconds(m_settings->resolveTimeoutSeconds)),
                         static_cast<int>(milliseconds(m_settings->connectTimeoutSeconds)),
                         static_cast<int>(milliseconds(m_settings->sendTimeoutSeconds)), static_cast<int>(ms));
}

bool HttpRequest::waitForData(std::uint32_t& available, std::uint32_t& error)
{
    DWORD count = 0;
    available = 0;
    error = 0;
    if (!::WinHttpQueryDataAvailable(m_request.get(), &count)) {
        error = ::GetLastError();
        return false;
    }
    available = count;
    return true;
}

bool HttpRequest::read(void* buffer, std::uint32_t size, std::uint32_t& got, std::uint32_t& error)
{
    DWORD read = 0;
    got = 0;
    error = 0;
    if (!::WinHttpReadData(m_request.get(), buffer, size, &read)) {
        error = ::GetLastError();
        return false;
    }
    got = read;
    return true;
}

void HttpRequest::close()
{
    m_request.reset();
    m_connect.reset();
}

}  // namespace mirel
