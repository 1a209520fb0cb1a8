#pragma once
// The files of one payload in the workspace: the final file, the partial
// file the bytes land in, and the record beside it.
#include <windows.h>

#include <cstdint>
#include <string>

#include "Digest.h"
#include "ResumeRecord.h"

namespace mirel {

// "<name>.partial" and "<name>.partial.info" beside "<name>".
extern const wchar_t* const kPartialSuffix;
extern const wchar_t* const kRecordSuffix;

// A path Windows takes beyond MAX_PATH: "\\?\" before an absolute drive
// path, "\\?\UNC\" before a UNC path; others as they are.
std::wstring longPath(const std::wstring& path);

// Makes the folder and the folders above it that are missing.
bool makeFolders(const std::wstring& folder, std::string& why);

class PayloadFiles {
public:
    PayloadFiles(const std::wstring& folder, const std::wstring& name);
    ~PayloadFiles();
    PayloadFiles(const PayloadFiles&) = delete;
    PayloadFiles& operator=(const PayloadFiles&) = delete;

    const std::wstring& finalPath() const { return m_final; }
    const std::wstring& partialPath() const { return m_partial; }
    const std::wstring& recordPath() const { return m_record; }
    // The same without the "\\?\" form, for the log and for other readers.
    const std::wstring& plainFinalPath() const { return m_plainFinal; }
    std::wstring plainPartialPath() const { return m_plainFinal + kPartialSuffix; }

    // What the workspace holds of an earlier attempt.
    bool partialExists(std::uint64_t& size) const;
    bool readRecord(PartialRecord& record, std::string& why) const;
    bool writeRecord(const PartialRecord& record, std::string& why) const;

    // A new, empty partial file (an old one is replaced).
    bool startOver(std::string& why);
    // Opens the partial file to continue it at `offset`: its first `offset`
    // bytes go through `hash`, anything behind them is cut off.
    bool continueAt(std::uint64_t offset, Sha256& hash, std::string& why);
    bool write(const void* data, std::uint32_t size, std::string& why);
    std::uint64_t written() const { return m_written; }
    // Flushes and closes the partial file.
    bool close(std::string& why);
    // Puts the complete partial file under the final name, replacing an old
    // file, and removes the record.
    bool publish(std::string& why);
    // Removes the partial file and its record (after a content failure).
    void discard();

private:
    std::wstring m_plainFinal;
    std::wstring m_final;
    std::wstring m_partial;
    std::wstring m_record;
    HANDLE m_file = INVALID_HANDLE_VALUE;
    std::uint64_t m_written = 0;
};

}  // namespace mirel
