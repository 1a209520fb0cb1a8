#include "Transfer.h"

#include <vector>

#include "ClientLog.h"
#include "Digest.h"
#include "Outcome.h"
#include "TextUtil.h"
#include "WriteBehind.h"

namespace mirel {

namespace {

constexpr std::uint64_t kCheckpointBytes = 32ull * 1024 * 1024;
constexpr std::uint64_t kProgressBytesUnknownTotal = 128ull * 1024 * 1024;
constexpr ULONGLONG kHandOffMilliseconds = 1000;

TransferResult failure(std::int32_t code, const std::string& why, bool local = false)
{
    TransferResult result;
    result.code = code;
    result.why = why;
    result.localFailure = local;
    return result;
}

bool offersRanges(const std::string& acceptRanges)
{
    std::string item;
    for (char c : asciiLower(acceptRanges) + ",") {
        if (c == ',' || c == ' ') {
            if (item == "bytes")
                return true;
            item.clear();
        } else {
            item.push_back(c);
        }
    }
    return false;
}

std::wstring requestHeaders(const ResumePlan& plan)
{
    // Identity only: the bytes counted and hashed are the payload's own.
    std::string headers = "Accept-Encoding: identity\r\n";
    if (plan.resume) {
        headers += "Range: bytes=" + std::to_string(plan.offset) + "-\r\n";
        headers += "If-Range: " + plan.ifRange + "\r\n";
    }
    std::wstring wide;
    utf8ToWide(headers, wide);
    return wide;
}

// The record written beside the partial file before its first byte, and
// brought up to date at checkpoints.
class Checkpoint {
public:
    Checkpoint(PayloadFiles& files, PartialRecord record) : m_files(files), m_record(std::move(record)) {}
    void save(std::uint64_t bytes)
    {
        m_record.bytes = bytes;
        std::string why;
        if (!m_files.writeRecord(m_record, why) && !m_warned) {
            m_warned = true;
            log(kWarning,
                "mirelclient: the resume record %s can't be kept: %s; an interrupted transfer will start over",
                forLog(m_files.recordPath()).c_str(), why.c_str());
        }
    }

private:
    PayloadFiles& m_files;
    PartialRecord m_record;
    bool m_warned = false;
};

struct BodyResult {
    std::int32_t code = MIRELCLIENT_SUCCESS;
    std::string why;
    bool local = false;
};

// The socket's own timeout, which Wine reports where Windows says 12002.
constexpr std::uint32_t kSocketTimedOut = 10060;

std::string stallText(std::uint32_t error, const Settings& settings)
{
    if (error == ERROR_WINHTTP_TIMEOUT || error == kSocketTimedOut)
        return "no data for " + std::to_string(settings.stallTimeoutSeconds) + " seconds (stall timeout)";
    return "the transfer broke off: " + winHttpErrorText(error);
}

// Reads the body into the partial file through the write-behind thread,
// checking the counts against Content-Length and the expected size as the
// bytes come.
BodyResult receiveBody(HttpRequest& request, const Response& response, const TransferJob& job, PayloadFiles& files,
                       Sha256& hash, Checkpoint& checkpoint, std::uint64_t total)
{
    const Settings& settings = *job.settings;
    const char* label = job.label.c_str();
    request.setStallTimeout(settings.stallTimeoutSeconds * 1000);
    const std::uint64_t start = files.written();
    const std::uint64_t progressStep = total >= 10 ? total / 10 : kProgressBytesUnknownTotal;
    std::uint64_t nextCheckpoint = start + kCheckpointBytes;
    std::uint64_t nextProgress = start + progressStep;
    WriteBehind writer(files, hash, [&](std::uint64_t written) {
        if (written >= nextCheckpoint) {
            checkpoint.save(written);
            nextCheckpoint = written + kCheckpointBytes;
        }
        if (written >= nextProgress) {
            log(kDebug, "mirelclient: %s: %I64u bytes received", label, written);
            nextProgress = written + progressStep;
        }
    });
    // Ends the body: what is queued gets written, the record follows the file.
    auto end = [&](std::int32_t code, const std::string& why, bool keepPartial) {
        BodyResult result;
        result.code = code;
        result.why = why;
        std::string writeWhy;
        if (!writer.finish(writeWhy)) {
            result.code = MIRELCLIENT_DOWNLOAD_FAILED;
            result.why = writeWhy;
            result.local = true;
        }
        if (keepPartial) {
            checkpoint.save(files.written());
            if (result.code != MIRELCLIENT_SUCCESS) {
                std::string ignored;
                files.close(ignored);
            }
        } else {
            files.discard();
        }
        return result;
    };

    std::uint64_t body = 0;
    const ULONGLONG began = ::GetTickCount64();
    std::uint8_t* buffer = writer.take();
    std::size_t used = 0;
    ULONGLONG bufferStarted = began;
    for (;;) {
        if (!buffer)
            return end(MIRELCLIENT_DOWNLOAD_FAILED, "writing failed", true);
        std::uint32_t available = 0;
        std::uint32_t error = 0;
        std::uint32_t got = 0;
        const std::uint32_t room = static_cast<std::uint32_t>(WriteBehind::kBufferBytes - used);
        // Only what has arrived is asked for, so that a stall keeps every byte
        // received before it.
        if (!request.waitForData(available, error) ||
            (available > 0 && !request.read(buffer + used, available < room ? available : room, got, error))) {
            writer.give(used);
            return end(MIRELCLIENT_DOWNLOAD_FAILED,
                       stallText(error, settings) + " after " + std::to_string(start + body) +
                           " bytes; the partial file is kept",
                       true);
        }
        if (available == 0 || got == 0)
            break;
        body += got;
        used += got;
        if (response.hasLength && body > response.contentLength) {
            writer.give(0);
            return end(
                MIRELCLIENT_WRONG_SIZE_ERROR,
                "the server sent more bytes than the " + std::to_string(response.contentLength) + " it announced",
                false);
        }
        if (job.expectedSize > 0 && start + body > static_cast<std::uint64_t>(job.expectedSize)) {
            writer.give(0);
            return end(MIRELCLIENT_WRONG_SIZE_ERROR,
                       "the server sent more than the " + std::to_string(job.expectedSize) + " bytes expected", false);
        }
        // A full buffer goes to the writer, and so does one that has waited a
        // second: on a slow line the partial file still grows steadily, and
        // an interrupted run loses little.
        const ULONGLONG now = ::GetTickCount64();
        if (used == WriteBehind::kBufferBytes || now - bufferStarted >= kHandOffMilliseconds) {
            writer.give(used);
            used = 0;
            buffer = writer.take();
            bufferStarted = now;
        }
        if (settings.attemptTimeoutSeconds > 0 &&
            ::GetTickCount64() - began > settings.attemptTimeoutSeconds * 1000ull) {
            writer.give(used);
            return end(MIRELCLIENT_DOWNLOAD_FAILED,
                       "the attempt took longer than " + std::to_string(settings.attemptTimeoutSeconds) +
                           " seconds (attempt timeout); the partial file is kept",
                       true);
        }
    }
    writer.give(used);
    // Wine reports a connection closed early as a normal end.
    if (response.hasLength && body < response.contentLength)
        return end(MIRELCLIENT_DOWNLOAD_FAILED,
                   "the connection closed after " + std::to_string(body) + " of " +
                       std::to_string(response.contentLength) + " announced bytes; the partial file is kept",
                   true);
    return end(MIRELCLIENT_SUCCESS, "", true);
}

}  // namespace

TransferResult transfer(HINTERNET session, const TransferJob& job)
{
    const HttpsUrl& url = *job.url;
    PayloadFiles& files = *job.files;
    const char* label = job.label.c_str();

    std::uint64_t partialSize = 0;
    const bool partialExists = files.partialExists(partialSize);
    PartialRecord stored;
    std::string recordWhy;
    const bool recordReadable = partialExists && files.readRecord(stored, recordWhy);
    ResumePlan plan = planResume(partialExists, partialSize, recordReadable, stored, url.text, job.checksum);
    if (partialExists && !recordReadable)
        plan.why += " (" + recordWhy + ")";
    if (plan.resume)
        log(kInfo, "mirelclient: %s: asking to resume the partial file at byte %I64u: %s", label, plan.offset,
            plan.why.c_str());
    else if (partialExists)
        log(kInfo, "mirelclient: %s: a partial file of %I64u bytes is there but won't be resumed: %s", label,
            partialSize, plan.why.c_str());

    for (int round = 0; round < 2; ++round) {
        HttpRequest request;
        std::string why;
        std::int32_t code = request.send(session, url, *job.trust, *job.settings, requestHeaders(plan), why);
        if (code != MIRELCLIENT_SUCCESS)
            return failure(code, why);
        Response response;
        code = request.receive(response, why);
        if (code != MIRELCLIENT_SUCCESS)
            return failure(code, why);

        bool append = false;
        bool complete = false;
        if (plan.resume) {
            const RangeJudgement judgement =
                judgeRangeAnswer(response.status, response.contentRange,
                                 Validators{response.etag, response.lastModified}, stored, plan.offset);
            switch (judgement.verdict) {
            case RangeVerdict::Continue:
                append = true;
                log(kInfo, "mirelclient: %s: resuming from byte %I64u: %s", label, plan.offset, judgement.why.c_str());
                break;
            case RangeVerdict::AlreadyComplete:
                complete = true;
                log(kInfo, "mirelclient: %s: nothing left to fetch: %s", label, judgement.why.c_str());
                break;
            case RangeVerdict::UseAsWhole:
                log(kInfo, "mirelclient: %s: starting over from byte 0: %s", label, judgement.why.c_str());
                break;
            case RangeVerdict::AskAgainWhole:
                log(kInfo, "mirelclient: %s: starting over from byte 0 with a new request: %s", label,
                    judgement.why.c_str());
                plan = ResumePlan{};
                continue;
            case RangeVerdict::NotARangeAnswer:
                break;
            }
        }
        if (!append && !complete && response.status != 200) {
            if (response.status == 206)
                return failure(MIRELCLIENT_DOWNLOAD_FAILED, "the server sent part of the payload (206) unasked");
            return failure(MIRELCLIENT_DOWNLOAD_FAILED, "the server answered HTTP " + std::to_string(response.status));
        }
        if (!response.contentEncoding.empty() && !equalsNoCase(response.contentEncoding, "identity"))
            return failure(MIRELCLIENT_DOWNLOAD_FAILED,
                           "the server encoded the payload (" + forLog(response.contentEncoding, 40) + ")");

        // What the whole payload's size is, as far as the server says.
        bool totalKnown = false;
        std::uint64_t total = 0;
        if (append || complete) {
            ContentRange range;
            if (parseContentRange(response.contentRange, range) && range.totalKnown) {
                totalKnown = true;
                total = range.total;
            }
            if (append && response.hasLength && response.contentLength != range.last - range.first + 1)
                return failure(MIRELCLIENT_DOWNLOAD_FAILED,
                               "the server's Content-Length doesn't fit its Content-Range");
        } else if (response.hasLength) {
            totalKnown = true;
            total = response.contentLength;
        }
        if (job.expectedSize > 0 && totalKnown && total != static_cast<std::uint64_t>(job.expectedSize)) {
            if (append || complete)
                files.discard();
            return failure(MIRELCLIENT_WRONG_SIZE_ERROR, "the server announces " + std::to_string(total) + " bytes; " +
                                                             std::to_string(job.expectedSize) + " are expected");
        }

        Sha256 hash;
        if (!hash.ready())
            return failure(MIRELCLIENT_INIT_FAILED, "SHA-256 is not available (bcrypt)", true);
        if (append || complete) {
            if (!files.continueAt(plan.offset, hash, why))
                return failure(MIRELCLIENT_DOWNLOAD_FAILED, why, true);
        } else if (!files.startOver(why)) {
            return failure(MIRELCLIENT_DOWNLOAD_FAILED, why, true);
        }

        PartialRecord record;
        record.url = url.text;
        record.checksum = job.checksum;
        record.etag = append ? (response.etag.empty() ? stored.etag : response.etag) : response.etag;
        record.lastModified = append ? (response.lastModified.empty() ? stored.lastModified : response.lastModified)
                                     : response.lastModified;
        record.total = totalKnown ? total : 0;
        // A 206 shows ranges work even when the header isn't repeated.
        record.acceptRanges = append || complete || offersRanges(response.acceptRanges);
        Checkpoint checkpoint(files, record);
        checkpoint.save(files.written());

        if (!complete) {
            if (!append)
                log(kInfo, "mirelclient: %s: HTTP %u, %s, into %s", label, response.status,
                    totalKnown ? (std::to_string(total) + " bytes").c_str() : "size not announced",
                    forLog(files.plainPartialPath()).c_str());
            const BodyResult body =
                receiveBody(request, response, job, files, hash, checkpoint, totalKnown ? total : 0);
            if (body.code != MIRELCLIENT_SUCCESS)
                return failure(body.code, body.why, body.local);
        }

        TransferResult result;
        result.bytes = files.written();
        if (job.expectedSize > 0 && result.bytes != static_cast<std::uint64_t>(job.expectedSize)) {
            files.discard();
            return failure(MIRELCLIENT_WRONG_SIZE_ERROR, "received " + std::to_string(result.bytes) + " bytes; " +
                                                             std::to_string(job.expectedSize) + " are expected");
        }
        const std::vector<std::uint8_t> digest = hash.finish();
        if (digest.empty()) {
            files.close(why);
            return failure(MIRELCLIENT_INIT_FAILED, "SHA-256 could not be finished (bcrypt)", true);
        }
        result.sha256 = toHex(digest);
        if (!job.checksum.empty() && result.sha256 != job.checksum) {
            files.discard();
            return failure(MIRELCLIENT_WRONG_CHECKSUM_ERROR,
                           "the payload's SHA-256 is " + result.sha256 + "; " + job.checksum + " is expected");
        }
        if (!files.close(why))
            return failure(MIRELCLIENT_DOWNLOAD_FAILED, why, true);
        return result;
    }
    return failure(MIRELCLIENT_DOWNLOAD_FAILED, "the server kept refusing to continue or restart the payload");
}

}  // namespace mirel
