#pragma once
// Every service of the tool faked at once, installed for one test's life,
// with the process-wide state of the tool put back to a fresh start.
#include <initializer_list>

#include "core/log/LogSink.h"
#include "core/string/corestring.h"
#include "fakes/FakeFileSystem.h"
#include "fakes/FakeHashing.h"
#include "fakes/FakeInstaller.h"
#include "fakes/FakeKeyStore.h"
#include "fakes/FakeMachine.h"
#include "fakes/FakeNetwork.h"
#include "fakes/FakePower.h"
#include "fakes/FakeUpdateAgent.h"
#include "fakes/ScopedServices.h"

namespace fakes {

class FakePlatform {
public:
    FakePlatform();
    ~FakePlatform();
    FakePlatform(const FakePlatform&) = delete;
    FakePlatform& operator=(const FakePlatform&) = delete;

    // The lines written to the process-wide tool log since construction.
    std::vector<std::wstring> logLines() const;
    bool logHas(const std::wstring& message) const;
    // How many log lines are exactly the message; whether one begins with the prefix.
    std::size_t countOf(const std::wstring& message) const;
    bool hasLineStartingWith(const std::wstring& prefix) const;
    // The log lines whose tag (the text before ": ") is the one given, or
    // one of those given, in order.
    std::vector<std::wstring> linesOf(const std::wstring& tag) const { return linesOf({tag.c_str()}); }
    std::vector<std::wstring> linesOf(std::initializer_list<const wchar_t*> tags) const;

    FakeKeyStore keys;
    FakeFileSystem files;
    FakeProcesses processes;
    FakeInstaller installer;
    FakeClock clock;
    FakeConsole console;
    FakeDelivery delivery;
    FakePower power;
    FakeNetwork network;
    FakeHashing hashing;
    FakeUpdateAgent updateAgent;

private:
    static platform::Services servicesOf(FakePlatform& p);
    ScopedServices m_scope;
    CORE::LogSink* m_previousSink;
    bool (*m_previousCleanup)();
};

// The whole of a corestring, embedded terminators included.
inline std::wstring whole(const CORE::corestring& s)
{
    return std::wstring(s.c_str(), static_cast<std::size_t>(s.length()));
}

// Splits a log text into its messages: the part behind "<stamp>: " of each
// CR LF line.
std::vector<std::wstring> messagesOf(const std::wstring& text);

}  // namespace fakes
