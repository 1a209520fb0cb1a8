#pragma once
// Takes the place of the tool log for a test that runs a layer below it:
// installed as the log sink for its life, it keeps every line written.
#include <string>
#include <vector>

#include "core/log/LogSink.h"

namespace fakes {

class RecordingLogSink final : public CORE::LogSink {
public:
    RecordingLogSink() : m_previous(CORE::SetLogSink(this)) {}
    ~RecordingLogSink() { CORE::SetLogSink(m_previous); }
    RecordingLogSink(const RecordingLogSink&) = delete;
    RecordingLogSink& operator=(const RecordingLogSink&) = delete;

    void Write(const CORE::corestring& message) override
    {
        lines.emplace_back(message.c_str(), static_cast<std::size_t>(message.length()));
    }
    // Every line so far, each ended by CR LF as in the log file.
    std::wstring text() const
    {
        std::wstring all;
        for (const std::wstring& line : lines)
            all += line + L"\r\n";
        return all;
    }

    std::vector<std::wstring> lines;

private:
    CORE::LogSink* m_previous;
};

}  // namespace fakes
