#pragma once
// The client's use of WinHTTP: a session per route, one GET request at a
// time, synchronous, with the client's timeouts and certificate check.
#include <windows.h>
// After windows.h, which it needs.
#include <winhttp.h>

#include <cstdint>
#include <string>
#include <vector>

#include "HttpsUrl.h"
#include "ServerCheck.h"
#include "Settings.h"

namespace mirel {

// Closes a WinHTTP handle when it goes.
class InternetHandle {
public:
    InternetHandle() = default;
    explicit InternetHandle(HINTERNET handle) : m_handle(handle) {}
    ~InternetHandle() { reset(); }
    InternetHandle(const InternetHandle&) = delete;
    InternetHandle& operator=(const InternetHandle&) = delete;
    InternetHandle(InternetHandle&& other) noexcept : m_handle(other.m_handle) { other.m_handle = nullptr; }
    InternetHandle& operator=(InternetHandle&& other) noexcept;
    void reset(HINTERNET handle = nullptr);
    HINTERNET get() const { return m_handle; }
    explicit operator bool() const { return m_handle != nullptr; }

private:
    HINTERNET m_handle = nullptr;
};

// How one attempt reaches the server.
struct RouteSpec {
    enum Kind { Direct, Proxy, MachineDefault } kind = MachineDefault;
    std::string proxy;  // "host:port" for Proxy
    std::string describe() const;
};

// Opens a session for the route, with the settings' timeouts. Wine ignores
// a proxy set on a request, so each proxy gets a session of its own.
bool openSession(const RouteSpec& route, const Settings& settings, InternetHandle& session, std::string& why);

// The machine's WinHTTP proxy setting, for the log.
std::string machineProxyText();

// Asks WinHTTP which proxies the PAC file at `pacUrl` names for `url`.
// False with `why` when the file can't be fetched or run; `proxies` empty
// means direct.
bool proxiesFromPac(const std::wstring& pacUrl, const std::string& url, const Settings& settings,
                    std::vector<std::string>& proxies, std::string& why);

struct Response {
    std::uint32_t status = 0;
    bool hasLength = false;
    std::uint64_t contentLength = 0;
    std::string contentRange;
    std::string etag;
    std::string lastModified;
    std::string acceptRanges;
    std::string contentEncoding;
};

// One GET request.
class HttpRequest {
public:
    // Connects, sends the request (with `extraHeaders`, CRLF-separated) and
    // checks the server's certificate before the answer is read. Returns
    // MIRELCLIENT_SUCCESS or the failure's code, with `why`.
    std::int32_t send(HINTERNET session, const HttpsUrl& url, const TrustConfig& trust, const Settings& settings,
                      const std::wstring& extraHeaders, std::string& why);
    // Reads the answer's status line and headers.
    std::int32_t receive(Response& response, std::string& why);
    // From now on a read that waits longer than `milliseconds` fails.
    void setStallTimeout(std::uint32_t milliseconds);
    // Waits for body bytes (at most the stall timeout); `available` 0 means
    // the end. False with the error.
    bool waitForData(std::uint32_t& available, std::uint32_t& error);
    // Reads up to `size` body bytes; `got` 0 means the end. False with the
    // error.
    bool read(void* buffer, std::uint32_t size, std::uint32_t& got, std::uint32_t& error);
    void close();

private:
    InternetHandle m_connect;
    InternetHandle m_request;
    const Settings* m_settings = nullptr;
};

}  // namespace mirel
