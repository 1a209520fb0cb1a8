#pragma once
#include <cstdint>

namespace CORE {

// What the framework throws: out of memory and bounds errors only. The text
// is held in a heap copy of its own, so it outlives whatever built it.
class coreException {
public:
    coreException(std::uint32_t code, const wchar_t* text);
    coreException(const coreException& other);
    coreException& operator=(const coreException& other);
    virtual ~coreException();

    std::uint32_t code() const { return m_code; }
    const wchar_t* text() const { return m_text ? m_text : L""; }

private:
    std::uint32_t m_code;
    wchar_t* m_text;
};

}  // namespace CORE
