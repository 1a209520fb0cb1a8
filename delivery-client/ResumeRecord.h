#pragma once
// Resuming: the record kept beside a partial file, whether a new attempt
// continues it, and what the server's answer to a range request means.
#include <cstdint>
#include <string>

namespace mirel {

// What the record file beside a partial file holds.
struct PartialRecord {
    std::string url;            // the URL whose bytes these are
    std::string checksum;       // the expected SHA-256 at the time (lower case; may be empty)
    std::string etag;           // the server's ETag, as sent
    std::string lastModified;   // the server's Last-Modified, as sent
    std::uint64_t bytes = 0;    // bytes in the partial file at the last checkpoint
    std::uint64_t total = 0;    // the whole payload's size the server announced; 0 when unknown
    bool acceptRanges = false;  // the server said "Accept-Ranges: bytes"
};

// Text of the record: one "key=value" line each, UTF-8. Values that hold a
// line break can't be kept: false then.
bool serializeRecord(const PartialRecord& record, std::string& text);
// False with `why` when the text isn't a record this client wrote.
bool parseRecord(const std::string& text, PartialRecord& record, std::string& why);

// Whether an ETag can be sent back in If-Range (weak ones can't).
bool isStrongEtag(const std::string& etag);

struct ResumePlan {
    bool resume = false;
    std::uint64_t offset = 0;  // first byte asked for
    std::string ifRange;       // validator sent with the range
    std::string why;           // why it resumes or starts over, for the log
};

// Whether the next attempt for `url` continues the partial file. It does when
// the record belongs to the same URL and checksum, the server took ranges and
// gave a validator, and the file holds at least the recorded bytes and no
// more than the whole; it starts over otherwise.
ResumePlan planResume(bool partialExists, std::uint64_t partialSize, bool recordReadable, const PartialRecord& record,
                      const std::string& url, const std::string& checksum);

// "bytes A-B/T", "bytes A-B/*" or "bytes */T".
struct ContentRange {
    bool unsatisfied = false;  // "*/T"
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    std::uint64_t total = 0;
    bool totalKnown = false;
};
bool parseContentRange(const std::string& text, ContentRange& range);

// The validators of a response.
struct Validators {
    std::string etag;
    std::string lastModified;
};

enum class RangeVerdict {
    Continue,         // 206 from the offset, same payload: append
    UseAsWhole,       // 200: the whole payload comes instead; the partial file starts over
    AskAgainWhole,    // the answer can't be appended: ask again without a range
    AlreadyComplete,  // 416 and the partial file already holds the whole payload
    NotARangeAnswer,  // any other status: handled as a failed attempt
};

struct RangeJudgement {
    RangeVerdict verdict = RangeVerdict::NotARangeAnswer;
    std::string why;
};

// The answer to "Range: bytes=offset-" sent for `record`.
RangeJudgement judgeRangeAnswer(std::uint32_t status, const std::string& contentRange, const Validators& answer,
                                const PartialRecord& record, std::uint64_t offset);

}  // namespace mirel
