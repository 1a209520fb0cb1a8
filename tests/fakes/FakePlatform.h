#pragma once
// Every service of the tool faked at once, installed for one test's life,
// with the process-wide state of the tool put back to a fresh start.
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
};

// Splits a log text into its messages: the part behind "<stamp>: " of each
// CR LF line.
std::vector<std::wstring> messagesOf(const std::wstring& text);

}  // namespace fakes
