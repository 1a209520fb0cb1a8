#pragma once
// Shared set-up of the registry and policy tests: a fake key store installed
// for the test, and a check that every key opened was closed again.
#include <gtest/gtest.h>

#include <string>

#include "core/string/corestring.h"
#include "diagnostics/ToolLog.h"
#include "fakes/FakeKeyStore.h"
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

    // What the process-wide tool log got since `from` characters.
    static std::wstring logSince(std::size_t from)
    {
        std::wstring all = text(TheToolLog().text());
        return from <= all.size() ? all.substr(from) : std::wstring();
    }
    static std::size_t logLength() { return static_cast<std::size_t>(TheToolLog().text().length()); }

    FakeKeyStore keys;
    fakes::ScopedServices scope{fakes::withKeys(keys)};
    bool expectAllKeysClosed = true;
};

}  // namespace registry_test
