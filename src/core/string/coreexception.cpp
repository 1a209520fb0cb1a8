#include "core/string/coreexception.h"

#include <cstdlib>
#include <cwchar>

namespace CORE {

namespace {
wchar_t* copyText(const wchar_t* text)
{
    if (!text)
        return nullptr;
    size_t n = std::wcslen(text) + 1;
    auto* copy = static_cast<wchar_t*>(std::malloc(n * sizeof(wchar_t)));
    if (copy)
        std::wmemcpy(copy, text, n);
    return copy;  // without memory the exception still carries its code
}
}  // namespace

coreException::coreException(std::uint32_t code, const wchar_t* text) : m_code(code), m_text(copyText(text)) {}

coreException::coreException(const coreException& other) : m_code(other.m_code), m_text(copyText(other.m_text)) {}

coreException& coreException::operator=(const coreException& other)
{
    if (this != &other) {
        wchar_t* copy = copyText(other.m_text);
        std::free(m_text);
        m_text = copy;
        m_code = other.m_code;
    }
    return *this;
}

coreException::~coreException() { std::free(m_text); }

}  // namespace CORE
