#include "diagnostics/Telemetry.h"

#include <algorithm>
#include <cstdint>

#include "core/log/LogLine.h"
#include "diagnostics/ToolLog.h"
#include "platform/Handles.h"
#include "platform/Services.h"
#include "update/UpdateRecord.h"
#include "update/UpdateState.h"

using CORE::corestring;

namespace {

const wchar_t* const kTag = L"Util_UpdateDataForTelemetry";

// ReadFile and WriteFile take a DWORD count; larger files go in pieces.
constexpr std::uint64_t kChunk = 1u << 30;

// Writes the text from offset 0 over what the file holds. The file is not
// cut to the new length. Returns the error found, 0 when all went well.
DWORD writeOver(const corestring& path, const std::string& text)
{
    platform::FileHandle file(platform::files().CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_WRITE, OPEN_ALWAYS,
                                                  FILE_ATTRIBUTE_NORMAL));
    if (!file.valid())
        return ::GetLastError();

    std::uint64_t done = 0;
    while (done < text.size()) {
        DWORD piece = static_cast<DWORD>(std::min<std::uint64_t>(text.size() - done, kChunk));
        DWORD written = 0;
        if (!platform::files().WriteFile(file.get(), text.data() + done, piece, &written))
            return ::GetLastError();
        if (written == 0)
            return ERROR_WRITE_FAULT;
        done += written;
    }
    return 0;
}

Json::Value jsonText(const corestring& value) { return Json::Value(CORE::WideToUtf8(value)); }

}  // namespace

bool LoadJsonFile(corestring path, Json::Value& root)
{
    DWORD error = 0;
    {
        // No sharing while we read; OPEN_ALWAYS leaves an empty file behind
        // when there was none.
        platform::FileHandle file(platform::files().CreateFileW(path.c_str(), GENERIC_READ, 0, OPEN_ALWAYS,
                                                      FILE_ATTRIBUTE_NORMAL));
        if (!file.valid()) {
            error = ::GetLastError();
        } else {
            DWORD high = 0;
            ::SetLastError(0);
            DWORD low = platform::files().GetFileSize(file.get(), &high);
            std::uint64_t size = (static_cast<std::uint64_t>(high) << 32) | low;
            if (low == INVALID_FILE_SIZE) {
                // Taken as a failure even when it is a real size.
                error = ::GetLastError();
                if (error == 0)
                    error = ERROR_FILE_TOO_LARGE;
            } else if (size == 0) {
                // What mapping an empty file reports; the first run of all
                // ends here.
                error = ERROR_FILE_INVALID;
            } else {
                std::string bytes(static_cast<size_t>(size), '\0');
                std::uint64_t got = 0;
                while (got < size) {
                    DWORD piece = static_cast<DWORD>(std::min<std::uint64_t>(size - got, kChunk));
                    DWORD read = 0;
                    if (!platform::files().ReadFile(file.get(), bytes.data() + got, piece, &read)) {
                        error = ::GetLastError();
                        break;
                    }
                    if (read == 0)
                        break;  // the file got shorter: parse what is there
                    got += read;
                }
                if (error == 0) {
                    Json::Reader reader;
                    bool parsed = false;
                    try {
                        parsed = reader.parse(bytes.data(), bytes.data() + got, root, true);
                    } catch (const Json::Exception&) {
                        // The reader throws on nesting too deep for it:
                        // that is a file that doesn't parse like any other.
                        parsed = false;
                    }
                    if (!parsed)
                        error = ERROR_INVALID_DATA;
                }
            }
        }
    }
    ::SetLastError(error);
    return error == 0;
}

bool Util_UpdateDataForTelemetry()
{
    const UpdateRecord& record = g_updateRecord;
    if (record.sUpdateKey.empty()) {
        LogLine(L"%s: UpdateID empty", kTag);
        return false;
    }

    __time64_t now = platform::clock().time64();

    // Plain concatenation: a directory value ending in a backslash gives a
    // doubled one, which Windows accepts.
    corestring path = GetInstallerLogsRoot();
    path.append(L"\\updatetool");
    platform::files().CreateDirectoryW(path.c_str());
    path.append(L"\\UpdateToolTelemetryData.json");

    Json::Value root;
    if (LoadJsonFile(path, root))
        LogLine(L"%s: Loading from json file %s completed", kTag, path.c_str());
    else
        LogLine(L"%s: Json file - %s , doesn't exist", kTag, path.c_str());

    Json::Value entry;
    entry["updatedGUID"] = jsonText(record.sUpdateKey);
    entry["type"] = jsonText(record.sAgent);
    entry["fileName"] = jsonText(record.sFileName);
    entry["version"] = jsonText(record.sVersion);
    entry["timestamp"] = Json::Value(static_cast<Json::Int64>(now));
    entry["status"] = jsonText(stateStr(record.nState));
    entry["attempt"] = Json::Value(static_cast<Json::Int>(record.nRetry));
    entry["result"] = jsonText(record.sResult);
    if (!record.sFromVersion.empty())
        entry["fromVersion"] = jsonText(record.sFromVersion);
    if (!record.sErrorCode.empty())
        entry["errorCode"] = jsonText(record.sErrorCode);
    if (!record.sErrorDesc.empty())
        entry["errorDescription"] = jsonText(record.sErrorDesc);

    // jsoncpp throws if "updateTool" is something other than an array (or
    // the root something other than an object); that is left to crash
    // handling like any other logic error.
    root["updateTool"].append(std::move(entry));

    std::string document = root.toStyledString();
    DWORD error = writeOver(path, document);
    if (error == 0) {
        LogLine(L"%s: Saving to json file - %s completed", kTag, path.c_str());
        return true;
    }
    // The log line leaves the error in place for the caller.
    ::SetLastError(error);
    LogLine(L"%s: Failed to save to json file - %s", kTag, path.c_str());
    return false;
}
