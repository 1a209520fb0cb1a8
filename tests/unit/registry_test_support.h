#pragma once
// Shared set-up of the registry and policy tests: a fake key store installed
// for the test, and a check that every key opened was closed again.
#include <gtest/gtest.h>

#include <string>

#include "core/string/corestring.h"
#include "fakes/FakeKeyStore.h"
#include "fakes/RecordingLogSink.h"
#include "fakes/ScopedServices.h"

namespace registry_test {

using CORE::corestring;
using fakes::FakeKeyStore;

// The whole text, embedded terminators included.
inline std::wstring text(const corestring& s) { return std::wstring(s.c_str(), static_cast<std::size_t>(s.length())); }

class FakeRegistryTest : public ::testing::Test {
protected:
    void TearDown() override
    {
        if (expectAllKeysClosed) {
            EXPECT_EQ(0u, keys.openHandleCount()) << "a key was left open";
        }
    }

    // What was logged since `from` characters.
    std::wstring logSince(std::size_t from) const
    {
        std::wstring all = log.text();
        return from <= all.size() ? all.substr(from) : std::wstring();
    }
    std::size_t logLength() const { return log.text().size(); }

    fakes::RecordingLogSink log;
    FakeKeyStore keys;
    fakes::ScopedServices scope{fakes::withKeys(keys)};
    bool expectAllKeysClosed = true;
};

}  // namespace registry_test
