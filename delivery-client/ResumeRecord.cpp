#include "ResumeRecord.h"

#include <vector>

#include "TextUtil.h"

namespace mirel {

namespace {

const char* const kHeader = "mirelclient partial record 1";

bool hasLineBreak(const std::string& text) { return text.find_first_of("\r\n") != std::string::npos; }

}  // namespace

bool serializeRecord(const PartialRecord& record, std::string& text)
{
    if (hasLineBreak(record.url) || hasLineBreak(record.checksum) || hasLineBreak(record.etag) ||
        hasLineBreak(record.lastModified))
        return false;
    text = std::string(kHeader) + "\r\n";
    text += "url=" + record.url + "\r\n";
    text += "checksum=" + record.checksum + "\r\n";
    text += "etag=" + record.etag + "\r\n";
    text += "last-modified=" + record.lastModified + "\r\n";
    text += "bytes=" + std::to_string(record.bytes) + "\r\n";
    text += "total=" + std::to_string(record.total) + "\r\n";
    text += std::string("accept-ranges=") + (record.acceptRanges ? "bytes" : "none") + "\r\n";
    return true;
}

bool parseRecord(const std::string& text, PartialRecord& record, std::string& why)
{
    std::vector<std::string> lines;
    std::string line;
    for (char c : text) {
        if (c == '\n') {
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            lines.push_back(line);
            line.clear();
        } else {
            line.push_back(c);
        }
    }
    if (!line.empty()) {
        why = "its last line is cut off";
        return false;
    }
    if (lines.empty() || lines[0] != kHeader) {
        why = "it doesn't start with \"" + std::string(kHeader) + "\"";
        return false;
    }
    PartialRecord result;
    bool seenUrl = false, seenBytes = false, seenTotal = false, seenRanges = false;
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const std::size_t equals = lines[i].find('=');
        if (equals == std::string::npos) {
            why = "line " + std::to_string(i + 1) + " has no '='";
            return false;
        }
        const std::string key = lines[i].substr(0, equals);
        const std::string value = lines[i].substr(equals + 1);
        if (key == "url") {
            result.url = value;
            seenUrl = true;
        } else if (key == "checksum") {
            result.checksum = value;
        } else if (key == "etag") {
            result.etag = value;
        } else if (key == "last-modified") {
            result.lastModified = value;
        } else if (key == "bytes" || key == "total") {
            std::uint64_t number = 0;
            if (!parseDecimal(value, number)) {
                why = key + " is not a number";
                return false;
            }
            (key == "bytes" ? result.bytes : result.total) = number;
            (key == "bytes" ? seenBytes : seenTotal) = true;
        } else if (key == "accept-ranges") {
            if (value != "bytes" && value != "none") {
                why = "accept-ranges is neither bytes nor none";
                return false;
            }
            result.acceptRanges = value == "bytes";
            seenRanges = true;
        }
    }
    if (!seenUrl || !seenBytes || !seenTotal || !seenRanges) {
        why = "it lacks one of url, bytes, total and accept-ranges";
        return false;
    }
    record = std::move(result);
    return true;
}

bool isStrongEtag(const std::string& etag) { return etag.size() >= 2 && etag.front() == '"' && etag.back() == '"'; }

ResumePlan planResume(bool partialExists, std::uint64_t partialSize, bool recordReadable, const PartialRecord& record,
                      const std::string& url, const std::string& checksum)
{
    ResumePlan plan;
    if (!partialExists) {
        plan.why = "no partial file";
        return plan;
    }
    if (!recordReadable) {
        plan.why = "the partial file has no readable record";
        return plan;
    }
    if (record.url != url) {
        plan.why = "the partial file came from another URL (" + forLog(record.url, 200) + ")";
        return plan;
    }
    if (!equalsNoCase(record.checksum, checksum)) {
        plan.why = "the partial file was fetched for another checksum";
        return plan;
    }
    if (!record.acceptRanges) {
        plan.why = "the server did not offer byte ranges";
        return plan;
    }
    const bool strong = isStrongEtag(record.etag);
    if (!strong && record.lastModified.empty()) {
        plan.why = "the server gave neither a strong ETag nor a Last-Modified date to check the partial file against";
        return plan;
    }
    if (partialSize == 0) {
        plan.why = "the partial file is empty";
        return plan;
    }
    if (partialSize < record.bytes) {
        plan.why = "the partial file holds " + std::to_string(partialSize) + " bytes, fewer than the " +
                   std::to_string(record.bytes) + " recorded";
        return plan;
    }
    if (record.total > 0 && partialSize > record.total) {
        plan.why = "the partial file holds more bytes than the whole payload";
        return plan;
    }
    plan.resume = true;
    plan.offset = partialSize;
    plan.ifRange = strong ? record.etag : record.lastModified;
    plan.why = "same URL and checksum, the server takes ranges and its validator is kept";
    return plan;
}

bool parseContentRange(const std::string& text, ContentRange& range)
{
    std::string rest = text;
    while (!rest.empty() && rest.front() == ' ')
        rest.erase(0, 1);
    if (asciiLower(rest.substr(0, 6)) != "bytes ")
        return false;
    rest = rest.substr(6);
    while (!rest.empty() && rest.front() == ' ')
        rest.erase(0, 1);
    while (!rest.empty() && rest.back() == ' ')
        rest.pop_back();
    const std::size_t slash = rest.find('/');
    if (slash == std::string::npos)
        return false;
    const std::string span = rest.substr(0, slash);
    const std::string total = rest.substr(slash + 1);
    ContentRange result;
    if (total == "*") {
        result.totalKnown = false;
    } else if (parseDecimal(total, result.total)) {
        result.totalKnown = true;
    } else {
        return false;
    }
    if (span == "*") {
        if (!result.totalKnown)
            return false;
        result.unsatisfied = true;
        range = result;
        return true;
    }
    const std::size_t dash = span.find('-');
    if (dash == std::string::npos || !parseDecimal(span.substr(0, dash), result.first) ||
        !parseDecimal(span.substr(dash + 1), result.last) || result.last < result.first)
        return false;
    if (result.totalKnown && result.last >= result.total)
        return false;
    range = result;
    return true;
}

RangeJudgement judgeRangeAnswer(std::uint32_t status, const std::string& contentRange, const Validators& answer,
                                const PartialRecord& record, std::uint64_t offset)
{
    RangeJudgement judgement;
    if (status == 200) {
        judgement.verdict = RangeVerdict::UseAsWhole;
        judgement.why = "the server answered the range request with the whole payload (200)";
        return judgement;
    }
    ContentRange range;
    if (status == 416) {
        if (parseContentRange(contentRange, range) && range.unsatisfied && range.total == offset &&
            (record.total == 0 || record.total == offset)) {
            judgement.verdict = RangeVerdict::AlreadyComplete;
            judgement.why = "the partial file already holds all " + std::to_string(offset) + " bytes";
        } else {
            judgement.verdict = RangeVerdict::AskAgainWhole;
            judgement.why = "the server can't serve from byte " + std::to_string(offset) + " (416)";
        }
        return judgement;
    }
    if (status != 206) {
        judgement.verdict = RangeVerdict::NotARangeAnswer;
        return judgement;
    }
    judgement.verdict = RangeVerdict::AskAgainWhole;
    if (!parseContentRange(contentRange, range) || range.unsatisfied) {
        judgement.why = "the server's Content-Range \"" + forLog(contentRange, 80) + "\" can't be read";
        return judgement;
    }
    if (range.first != offset) {
        judgement.why = "the server sent a range from byte " + std::to_string(range.first) + " instead of " +
                        std::to_string(offset);
        return judgement;
    }
    if (range.totalKnown && record.total > 0 && range.total != record.total) {
        judgement.why = "the payload's size changed from " + std::to_string(record.total) + " to " +
                        std::to_string(range.total) + " bytes";
        return judgement;
    }
    if (isStrongEtag(record.etag) && !answer.etag.empty() && answer.etag != record.etag) {
        judgement.why = "the server's ETag changed";
        return judgement;
    }
    if (!isStrongEtag(record.etag) && !answer.lastModified.empty() && answer.lastModified != record.lastModified) {
        judgement.why = "the server's Last-Modified date changed";
        return judgement;
    }
    judgement.verdict = RangeVerdict::Continue;
    judgement.why = "the server sent the rest from byte " + std::to_string(offset);
    return judgement;
}

}  // namespace mirel
