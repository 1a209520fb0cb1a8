#include "Download.h"

#include "CaFile.h"
#include "ClientLog.h"
#include "Digest.h"
#include "LocalName.h"
#include "Outcome.h"
#include "PayloadFiles.h"
#include "Settings.h"
#include "TarUnpack.h"
#include "TextUtil.h"
#include "Transfer.h"
#include "WinHttp.h"

namespace mirel {

namespace {

bool isAbsoluteWindowsPath(const std::wstring& path)
{
    const bool drive = path.size() >= 3 &&
                       ((path[0] >= L'A' && path[0] <= L'Z') || (path[0] >= L'a' && path[0] <= L'z')) &&
                       path[1] == L':' && (path[2] == L'\\' || path[2] == L'/');
    const bool unc = path.size() >= 5 && path[0] == L'\\' && path[1] == L'\\' && path[2] != L'?' && path[2] != L'.';
    return drive || unc;
}

std::string listWhy(const char* name, const TakenList& list)
{
    return std::string("the ") + name + " list is malformed: " + list.why;
}

}  // namespace

TrustMode trustModeFor(const TrustChoice& choice, bool hasThumbprints)
{
    if (choice.kind == TrustChoice::PemFile)
        return TrustMode::PemFile;
    if (choice.kind == TrustChoice::SystemCa)
        return TrustMode::SystemCa;
    return hasThumbprints ? TrustMode::Thumbprint : TrustMode::SystemCa;
}

Preflight checkRequest(const DownloadRequest& request, CheckedRequest& checked)
{
    Preflight result;
    auto refuse = [&result](std::int32_t code, std::string why) {
        result.code = code;
        result.why = std::move(why);
        return result;
    };
    if (!request.refusedTexts.empty())
        return refuse(MIRELCLIENT_QUEUE_DOWNLOAD_FAILED, "an argument is malformed: " + request.refusedTexts.front());
    if (!request.urls.valid)
        return refuse(MIRELCLIENT_QUEUE_DOWNLOAD_FAILED, listWhy("URL", request.urls));
    if (!request.thumbprints.valid)
        return refuse(MIRELCLIENT_QUEUE_DOWNLOAD_FAILED, listWhy("thumbprint", request.thumbprints));
    if (!request.proxies.valid)
        return refuse(MIRELCLIENT_QUEUE_DOWNLOAD_FAILED, listWhy("proxy", request.proxies));

    if (request.payloadType == kPayloadZip)
        return refuse(MIRELCLIENT_QUEUE_DOWNLOAD_FAILED, "zip payloads (type 2) are not supported by this client");
    if (request.payloadType != kPayloadExe && request.payloadType != kPayloadTar)
        return refuse(MIRELCLIENT_QUEUE_DOWNLOAD_FAILED,
                      "payload type " + std::to_string(request.payloadType) + " is unknown (0 file, 1 tar)");

    if (request.workspace.empty())
        return refuse(MIRELCLIENT_QUEUE_DOWNLOAD_FAILED, "the workspace is empty");
    if (!utf8ToWide(request.workspace, checked.workspace))
        return refuse(MIRELCLIENT_QUEUE_DOWNLOAD_FAILED, "the workspace is not valid UTF-8");
    if (!isAbsoluteWindowsPath(checked.workspace))
        return refuse(MIRELCLIENT_QUEUE_DOWNLOAD_FAILED,
                      "the workspace \"" + forLog(request.workspace) + "\" is not an absolute path");
    for (wchar_t c : checked.workspace)
        if (c < 0x20 || c == L'*' || c == L'?' || c == L'"' || c == L'<' || c == L'>' || c == L'|')
            return refuse(MIRELCLIENT_QUEUE_DOWNLOAD_FAILED,
                          "the workspace \"" + forLog(request.workspace) + "\" holds a character no path can have");

    if (request.urls.items.empty())
        return refuse(MIRELCLIENT_INVALID_URI_ERROR, "no URL was given");
    checked.urls.clear();
    for (std::size_t i = 0; i < request.urls.items.size(); ++i) {
        HttpsUrl url;
        std::string why;
        if (!parseHttpsUrl(request.urls.items[i], url, why))
            return refuse(MIRELCLIENT_INVALID_URI_ERROR,
                          "URL " + std::to_string(i + 1) + " (\"" + forLog(request.urls.items[i], 200) + "\"): " + why);
        checked.urls.push_back(std::move(url));
    }
    std::wstring firstUrl;
    utf8ToWide(request.urls.items.front(), firstUrl);
    const std::wstring name = localNameFromUrl(firstUrl);
    if (request.payloadType == kPayloadExe) {
        std::string why;
        if (!checkLocalName(name, why))
            return refuse(MIRELCLIENT_INVALID_URI_ERROR, "the first URL gives no usable file name: " + why);
        checked.name = name;
    } else {
        checked.name = sanitizedName(name);
    }

    checked.proxies.clear();
    for (std::size_t i = 0; i < request.proxies.items.size(); ++i) {
        ProxyAddress proxy;
        std::string why;
        if (!parseProxy(request.proxies.items[i], proxy, why))
            return refuse(MIRELCLIENT_INVALID_URI_ERROR, "proxy " + std::to_string(i + 1) + " (\"" +
                                                             forLog(request.proxies.items[i], 100) + "\"): " + why);
        checked.proxies.push_back(std::move(proxy));
    }
    checked.hasPac = !request.pacUrl.empty();
    if (checked.hasPac) {
        std::string why;
        if (!parsePacUrl(request.pacUrl, checked.pacUrl, why))
            return refuse(MIRELCLIENT_INVALID_URI_ERROR,
                          "the PAC URL (\"" + forLog(request.pacUrl, 200) + "\"): " + why);
    }

    checked.pins.clear();
    for (std::size_t i = 0; i < request.thumbprints.items.size(); ++i) {
        Thumbprint pin;
        std::string why;
        if (!parseThumbprint(request.thumbprints.items[i], pin, why))
            return refuse(MIRELCLIENT_INVALID_THUMBPRINT, "thumbprint " + std::to_string(i + 1) + " (\"" +
                                                              forLog(request.thumbprints.items[i], 100) +
                                                              "\"): " + why);
        checked.pins.push_back(std::move(pin));
    }

    checked.checksum.clear();
    if (!request.checksum.empty()) {
        std::string why;
        if (!parseChecksum(request.checksum, checked.checksum, why))
            return refuse(MIRELCLIENT_WRONG_CHECKSUM_ERROR,
                          "the expected checksum \"" + forLog(request.checksum, 100) + "\" is malformed: " + why);
    }
    checked.mode = trustModeFor(request.trust, !checked.pins.empty());
    return result;
}

std::int32_t Download::fail(std::int32_t code, const std::string& why) const
{
    log(kError, "mirelclient: download %s failed with %d (%s): %s", forLog(m_request.identity, 100).c_str(),
        static_cast<int>(code), resultName(code), why.c_str());
    return code;
}

std::int32_t Download::run()
{
    const DownloadRequest& request = m_request;
    const std::string id = forLog(request.identity, 100);
    CheckedRequest checked;
    const Preflight preflight = checkRequest(request, checked);
    log(kInfo,
        "mirelclient: download %s: %u URL(s), %u proxy(ies), PAC %s, expected size %d, checksum %s, payload type %d",
        id.c_str(), static_cast<unsigned>(request.urls.items.size()),
        static_cast<unsigned>(request.proxies.items.size()),
        request.pacUrl.empty() ? "none" : forLog(request.pacUrl, 200).c_str(), static_cast<int>(request.expectedSize),
        request.checksum.empty() ? "none" : forLog(request.checksum, 80).c_str(),
        static_cast<int>(request.payloadType));
    if (preflight.code != MIRELCLIENT_SUCCESS)
        return fail(preflight.code, preflight.why);
    if (request.expectedSize < 0)
        log(kWarning, "mirelclient: download %s: expected size %d is negative: the size is not checked", id.c_str(),
            static_cast<int>(request.expectedSize));
    else if (request.expectedSize == 0)
        log(kInfo, "mirelclient: download %s: no expected size: the size is not checked", id.c_str());
    if (request.checksum.empty())
        log(kWarning, "mirelclient: download %s: no checksum given: the payload's content is not verified", id.c_str());
    if (checked.hasPac && !checked.proxies.empty())
        log(kInfo, "mirelclient: download %s: the proxy list is used; the PAC URL is not", id.c_str());

    SettingsReport report;
    const Settings settings = loadSettings(report);
    for (const std::string& line : report.taken)
        log(kInfo, "mirelclient: setting %s", line.c_str());
    for (const std::string& line : report.ignored)
        log(kWarning, "mirelclient: setting ignored, default kept: %s", line.c_str());

    TrustConfig trust;
    trust.mode = checked.mode;
    trust.pins = checked.pins;
    trust.checkRevocation = settings.checkRevocation;
    CaFile caFile;
    if (trust.mode == TrustMode::PemFile) {
        if (!request.trust.pemPathValid)
            return fail(MIRELCLIENT_PEM_FILE_FAILED, "the CA file's path is malformed: " + request.trust.pemPathWhy);
        std::wstring path;
        if (request.trust.pemPath.empty() || !utf8ToWide(request.trust.pemPath, path))
            return fail(MIRELCLIENT_PEM_FILE_FAILED, request.trust.pemPath.empty() ? "the CA file's path is empty"
                                                                                   : "the CA file's path is not UTF-8");
        std::string why;
        if (!caFile.load(path, why))
            return fail(MIRELCLIENT_PEM_FILE_FAILED,
                        "the CA file " + forLog(request.trust.pemPath) + " can't be used: " + why);
        log(kInfo, "mirelclient: CA file %s: %u certificate(s)", forLog(request.trust.pemPath).c_str(), caFile.count());
        trust.caFile = &caFile;
    }
    log(kInfo, "mirelclient: download %s: certificate check: %s%s", id.c_str(), trustModeName(trust.mode),
        trust.mode != TrustMode::Thumbprint && !trust.pins.empty()
            ? ", and a certificate of the chain must match a thumbprint"
            : "");

    std::string why;
    if (!makeFolders(checked.workspace, why))
        return fail(MIRELCLIENT_DOWNLOAD_FAILED, why);
    PayloadFiles files(checked.workspace, checked.name);

    const std::vector<Attempt> plan = planAttempts(checked.urls.size(), checked.proxies.size(), checked.hasPac);
    if (!checked.hasPac && checked.proxies.empty())
        log(kInfo, "mirelclient: download %s: the machine's proxy setting: %s", id.c_str(), machineProxyText().c_str());

    FailureTally tally;
    std::vector<bool> urlDone(checked.urls.size(), false);
    unsigned attemptNumber = 0;
    for (const Attempt& attempt : plan) {
        if (urlDone[attempt.urlIndex])
            continue;
        const HttpsUrl& url = checked.urls[attempt.urlIndex];
        std::vector<RouteSpec> routes;
        if (attempt.route.kind == RouteKind::Explicit) {
            RouteSpec route;
            route.kind = RouteSpec::Proxy;
            route.proxy = checked.proxies[attempt.route.proxyIndex].text;
            routes.push_back(route);
        } else if (attempt.route.kind == RouteKind::Pac) {
            std::vector<std::string> named;
            std::string pacWhy;
            if (!proxiesFromPac(checked.pacUrl, url.text, settings, named, pacWhy)) {
                // As Windows does when a PAC file fails: go direct.
                log(kWarning, "mirelclient: the PAC file %s gives no answer for %s: %s; going direct",
                    forLog(request.pacUrl, 200).c_str(), forLog(url.text, 200).c_str(), pacWhy.c_str());
            }
            for (const std::string& text : named) {
                ProxyAddress proxy;
                std::string proxyWhy;
                if (!parseProxy(text, proxy, proxyWhy)) {
                    log(kWarning, "mirelclient: the PAC file names the proxy \"%s\", which is left out: %s",
                        forLog(text, 100).c_str(), proxyWhy.c_str());
                    continue;
                }
                RouteSpec route;
                route.kind = RouteSpec::Proxy;
                route.proxy = proxy.text;
                routes.push_back(route);
            }
            if (routes.empty()) {
                RouteSpec route;
                route.kind = RouteSpec::Direct;
                routes.push_back(route);
            }
            log(kInfo, "mirelclient: the PAC file sends %s %s", forLog(url.text, 200).c_str(),
                named.empty() ? "direct" : ("through " + std::to_string(routes.size()) + " proxy(ies)").c_str());
        } else {
            routes.push_back(RouteSpec{});
        }

        for (const RouteSpec& route : routes) {
            ++attemptNumber;
            const std::string label = "attempt " + std::to_string(attemptNumber);
            log(kInfo, "mirelclient: %s: %s via %s", label.c_str(), forLog(url.text, 300).c_str(),
                route.describe().c_str());
            InternetHandle session;
            std::string sessionWhy;
            if (!openSession(route, settings, session, sessionWhy)) {
                tally.record(MIRELCLIENT_INIT_FAILED, sessionWhy);
                log(kWarning, "mirelclient: %s failed: %s", label.c_str(), sessionWhy.c_str());
                return fail(MIRELCLIENT_INIT_FAILED, sessionWhy);
            }
            TransferJob job;
            job.url = &url;
            job.checksum = checked.checksum;
            job.expectedSize = request.expectedSize;
            job.files = &files;
            job.trust = &trust;
            job.settings = &settings;
            job.label = label;
            const TransferResult result = transfer(session.get(), job);
            if (result.code == MIRELCLIENT_SUCCESS) {
                log(kInfo, "mirelclient: %s: verified: %I64u bytes, SHA-256 %s", label.c_str(), result.bytes,
                    result.sha256.c_str());
                if (request.payloadType == kPayloadTar) {
                    std::string unpackWhy;
                    const std::wstring archive = files.plainPartialPath();
                    const TarResult unpacked = unpackTar(archive, checked.workspace, unpackWhy);
                    files.discard();
                    if (unpacked != TarResult::Ok)
                        return fail(MIRELCLIENT_VERIFY_FAILED,
                                    "the archive was refused or could not be unpacked: " + unpackWhy);
                    log(kInfo, "mirelclient: download %s done: archive from %s unpacked into %s", id.c_str(),
                        forLog(url.text, 300).c_str(), forLog(checked.workspace).c_str());
                    return MIRELCLIENT_SUCCESS;
                }
                std::string publishWhy;
                if (!files.publish(publishWhy))
                    return fail(MIRELCLIENT_DOWNLOAD_FAILED, publishWhy);
                log(kInfo, "mirelclient: download %s done: %s from %s", id.c_str(),
                    forLog(files.plainFinalPath()).c_str(), forLog(url.text, 300).c_str());
                return MIRELCLIENT_SUCCESS;
            }
            log(kWarning, "mirelclient: %s failed with %d (%s): %s", label.c_str(), static_cast<int>(result.code),
                resultName(result.code), result.why.c_str());
            if (result.localFailure)
                return fail(result.code, result.why);
            tally.record(result.code, result.why);
            if (skipsOtherRoutesOfUrl(result.code)) {
                urlDone[attempt.urlIndex] = true;
                break;
            }
        }
    }
    if (tally.empty())
        return fail(MIRELCLIENT_DOWNLOAD_FAILED, "no attempt could be made");
    return fail(tally.code(), "every URL failed; the most telling failure: " + tally.why());
}

}  // namespace mirel
