#pragma once
// Collects the client's log lines in a test, formatted as the tool formats
// them (msvcrt's _vsprintf_p, the Microsoft conventions).
#include <windows.h>

#include <cstdarg>
#include <mutex>
#include <string>
#include <vector>

#include "ClientLog.h"

namespace testing_support {

class LogCapture {
public:
    LogCapture()
    {
        instance() = this;
        mirel::setLogCallback(&LogCapture::callback);
    }
    ~LogCapture()
    {
        mirel::setLogCallback(nullptr);
        instance() = nullptr;
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines()
    {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_lines;
    }
    // Whether a line at `level` holds `part`.
    bool has(int level, const std::string& part)
    {
        std::lock_guard<std::mutex> guard(m_lock);
        for (std::size_t i = 0; i < m_lines.size(); ++i)
            if (m_levels[i] == level && m_lines[i].find(part) != std::string::npos)
                return true;
        return false;
    }
    std::string all()
    {
        std::string text;
        for (const std::string& line : lines())
            text += line + "\n";
        return text;
    }

private:
    using Formatter = int (*)(char*, size_t, const char*, va_list);
    static LogCapture*& instance()
    {
        static LogCapture* current = nullptr;
        return current;
    }
    static void callback(int level, const char* format, va_list arguments)
    {
        static const Formatter format_p = reinterpret_cast<Formatter>(
            reinterpret_cast<void*>(::GetProcAddress(::LoadLibraryW(L"msvcrt.dll"), "_vsprintf_p")));
        char buffer[16384] = {};
        format_p(buffer, sizeof(buffer), format, arguments);
        LogCapture* self = instance();
        if (!self)
            return;
        std::lock_guard<std::mutex> guard(self->m_lock);
        self->m_levels.push_back(level);
        self->m_lines.emplace_back(buffer);
    }
    std::mutex m_lock;
    std::vector<int> m_levels;
    std::vector<std::string> m_lines;
};

}  // namespace testing_support
