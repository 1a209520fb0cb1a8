#pragma once
// Template bodies of basic_corestring; included by corestring.h only.
#include <algorithm>

namespace CORE {

template <class C> C* basic_corestring<C>::allocate(std::uint64_t capacity)
{
    void* block = g_corestringMemory.allocate(blockSize(capacity));
    if (!block)
        throwOutOfMem();
    auto* h = static_cast<corestring_header*>(block);
    h->length = 0;
    h->capacity = capacity;
    h->guard1 = kGuardHead;
    h->flags = 0;
    h->guard2 = kGuardMid;
    h->byteLength = 0;
    C* p = reinterpret_cast<C*>(h + 1);
    p[0] = C(0);
    writeTailGuard(p, capacity);
    return p;
}

template <class C> void basic_corestring<C>::reallocate(std::uint64_t capacity)
{
    corestring_header* h = header();
    std::size_t bytes = blockSize(capacity);
    if ((h->flags & kWipeFlag) && capacity < h->capacity)
        std::memset(m_p + capacity, 0, (h->capacity - capacity + 1) * width);
    void* block = g_corestringMemory.reallocate(h, bytes);
    if (!block)
        throwOutOfMem();  // the old block is untouched
    h = static_cast<corestring_header*>(block);
    h->capacity = capacity;
    m_p = reinterpret_cast<C*>(h + 1);
    writeTailGuard(m_p, capacity);
}

template <class C> void basic_corestring<C>::setLength(std::uint64_t n)
{
    corestring_header* h = header();
    h->length = n;
    h->byteLength = static_cast<std::uint32_t>(n * width) & ~kBinaryBit;
    m_p[n] = C(0);
}

template <class C> void basic_corestring<C>::release()
{
    if (!m_p)
        return;
    corestring_header* h = header();
    if (h->byteLength & kBinaryBit)
        h->byteLength = static_cast<std::uint32_t>(width * h->length);
    if (h->guard1 != kGuardHead || h->guard2 != kGuardMid || h->length > h->capacity ||
        readTailGuard(m_p, h->capacity) != kGuardTail || h->byteLength != static_cast<std::uint32_t>(width * h->length))
        throwCore(L"CORESTRING CORRUPTION");
    if (h->flags & kWipeFlag)
        std::memset(m_p, 0, h->byteLength);
    std::uint32_t zero = 0;
    std::memcpy(m_p + h->capacity + 1, &zero, sizeof zero);
    std::memset(h, 0, sizeof *h);
    g_corestringMemory.free(h);
    m_p = reinterpret_cast<C*>(~std::uintptr_t(0));
}

template <class C> basic_corestring<C>& basic_corestring<C>::resize(std::uint64_t n, bool exact)
{
    if (n == 0 && !exact) {
        release();
        m_p = nullptr;
        return *this;
    }
    if (!m_p) {
        m_p = allocate(n);
    } else if (!exact) {
        std::uint64_t cap = header()->capacity;
        std::uint64_t margin = std::max<std::uint64_t>(n / 2, 128);
        if (!(n <= cap && n + 2 * margin >= cap))
            reallocate(n + margin);
    } else if (n != header()->capacity) {
        reallocate(n);
    }
    setLength(n);
    return *this;
}

template <class C> basic_corestring<C>& basic_corestring<C>::operator=(const basic_corestring& other)
{
    if (m_p == other.m_p)
        return *this;
    if (other.length() == 0) {
        release();
        m_p = nullptr;
        return *this;
    }
    corestring_header* src = other.header();
    if ((src->byteLength & kBinaryBit) && (src->byteLength & ~kBinaryBit)) {
        resize(src->length, true);
        std::memcpy(m_p, other.m_p, src->length * width);
        header()->byteLength = src->byteLength;
    } else {
        assign(other.m_p, src->length);
    }
    if (src->flags & kWipeFlag)
        header()->flags |= kWipeFlag;
    return *this;
}

template <class C> basic_corestring<C>& basic_corestring<C>::assign(const C* text, std::uint64_t length)
{
    if (!text)
        length = 0;
    else if (length == npos)
        length = T::len(text);
    if (m_p && text >= m_p && text <= m_p + header()->length) {
        // A part of this string itself: move it down, then cut.
        std::uint64_t offset = static_cast<std::uint64_t>(text - m_p);
        if (length > header()->length - offset + 1)
            throwCore(L"buffer overrun in overlapping data");
        std::memmove(m_p, text, length * width);
        return resize(length, false);
    }
    resize(length, false);
    if (length)
        std::memcpy(m_p, text, length * width);
    return *this;
}

template <class C> basic_corestring<C>& basic_corestring<C>::setBinary(const void* bytes, std::uint64_t byteCount)
{
    std::uint64_t chars = (byteCount + width - 1) / width;
    resize(chars, true);
    if (chars)
        m_p[chars - 1] = C(0);  // an odd byte count leaves the last character's high byte zero
    if (byteCount)
        std::memcpy(m_p, bytes, byteCount);
    header()->byteLength = static_cast<std::uint32_t>(byteCount) | kBinaryBit;
    return *this;
}

template <class C> void basic_corestring<C>::setWipeMark(bool on)
{
    if (!m_p)
        return;
    if (on)
        header()->flags |= kWipeFlag;
    else
        header()->flags &= static_cast<std::uint16_t>(~kWipeFlag);
}

template <class C> basic_corestring<C> basic_corestring<C>::fromNumber(std::uint64_t value, std::uint32_t radix)
{
    C buffer[128];
    int pos = 127;
    buffer[pos] = C(0);
    if (radix < 2 || radix > 36)
        radix = 10;
    do {
        unsigned digit = static_cast<unsigned>(value % radix);
        buffer[--pos] = static_cast<C>(digit < 10 ? '0' + digit : 'a' + digit - 10);
        value /= radix;
    } while (value && pos > 0);
    return basic_corestring(buffer + pos);
}

template <class C> basic_corestring<C> basic_corestring<C>::fromNumber(std::uint32_t value, std::uint32_t radix)
{
    return fromNumber(static_cast<std::uint64_t>(value), radix);
}

template <class C> basic_corestring<C>& basic_corestring<C>::append(const C* text, std::uint64_t length)
{
    if (!text)
        return *this;
    if (length == npos)
        length = T::len(text);
    if (length == 0)
        return *this;
    std::uint64_t old = this->length();
    if (m_p && old + length <= header()->capacity) {
        std::memcpy(m_p + old, text, length * width);
        setLength(old + length);
        return *this;
    }
    resize(old + length, false);
    std::memcpy(m_p + old, text, length * width);
    return *this;
}

template <class C> basic_corestring<C>& basic_corestring<C>::appendChar(C c, std::uint64_t count)
{
    if (count == 0)
        return *this;
    C local[1024 / sizeof(C)];
    C* buffer = local;
    corestring_buffer<C> heap;
    if (count > sizeof(local) / sizeof(C)) {
        heap.reset(static_cast<C*>(g_corestringMemory.allocate(count * width)));
        if (!heap)
            throwOutOfMem();
        buffer = heap.get();
    }
    std::fill(buffer, buffer + count, c);
    return append(buffer, count);
}

template <class C> basic_corestring<C>& basic_corestring<C>::appendPath(const C* component)
{
    if (!component)
        return *this;
    std::uint64_t len = length();
    if (len && m_p[len - 1] != C('\\') && component[0] != C('\\') && component[0] != C('/'))
        appendChar(C('\\'), 1);
    return append(toBackslashes(component));
}

template <class C>
basic_corestring<C>& basic_corestring<C>::concat(const basic_corestring& a, basic_corestring& out, const C* b)
{
    if (&out != &a)
        out = a;
    return out.append(b);
}

template <class C>
basic_corestring<C>& basic_corestring<C>::replaceRange(std::uint64_t position, std::uint64_t count, const C* text,
                                                       std::uint64_t length)
{
    std::uint64_t len = this->length();
    position = std::min(position, len);
    count = std::min(count, len - position);
    basic_corestring result = left(position);
    result.append(text, length);
    result.append(c_str() + position + count, len - position - count);
    // The text is still this string's: a new block mustn't drop the wipe mark.
    if (wipeMark())
        result.setWipeMark(true);
    swap(result);
    return *this;
}

template <class C> basic_corestring<C>& basic_corestring<C>::trimLeft(const C* set)
{
    if (!m_p)
        return *this;
    std::uint64_t skip = T::span(m_p, set);
    if (skip)
        assign(m_p + skip, header()->length - skip);
    return *this;
}

template <class C> basic_corestring<C>& basic_corestring<C>::trimRight(const C* set)
{
    if (!m_p)
        return *this;
    std::uint64_t n = header()->length;
    while (n && T::chr(set, m_p[n - 1]))
        --n;
    if (n != header()->length)
        assign(m_p, n);
    return *this;
}

template <class C> basic_corestring<C> basic_corestring<C>::toBackslashes(const C* text)
{
    basic_corestring copy(text);
    for (std::uint64_t i = 0; i < copy.length(); ++i)
        if (copy.m_p[i] == C('/'))
            copy.m_p[i] = C('\\');
    return copy;
}

template <class C> basic_corestring<C> basic_corestring<C>::mid(std::uint64_t position, std::uint64_t n) const
{
    std::uint64_t len = length();
    position = std::min(position, len);
    n = std::min(n, len - position);
    return basic_corestring(c_str() + position, n);
}

template <class C> std::uint64_t basic_corestring<C>::findChar(C c, std::uint64_t from) const
{
    std::uint64_t len = length();
    for (std::uint64_t i = from; i < len; ++i)
        if (m_p[i] == c)
            return i;
    return npos;
}

template <class C> std::uint64_t basic_corestring<C>::findNoCase(const C* text, const C* needle)
{
    if (!text || !needle)
        return npos;
    basic_corestring t(text), n(needle);
    if (t.m_p)
        T::lower(t.m_p, static_cast<std::uint32_t>(t.length()));
    if (n.m_p)
        T::lower(n.m_p, static_cast<std::uint32_t>(n.length()));
    const C* hit = T::str(t.c_str(), n.c_str());
    return hit ? static_cast<std::uint64_t>(hit - t.c_str()) : npos;
}

template <class C> basic_corestring<C> basic_corestring<C>::stripExtension(const C* name)
{
    basic_corestring s(name);
    std::uint64_t len = s.length();
    for (std::uint64_t i = len; i > 0; --i)
        if (s.m_p[i - 1] == C('.'))
            return s.left(i - 1);
    return s;
}

template <class C> C basic_corestring<C>::charAt(std::uint64_t index) const
{
    if (index > length())
        throwCore(L"Array bounds");
    return c_str()[index];
}

template <class C> C& basic_corestring<C>::charAtForWrite(std::uint64_t index)
{
    if (!m_p || index >= header()->length)
        throwCore(L"Array bounds");
    return m_p[index];
}

template <class C> bool basic_corestring<C>::equals(const C* other, bool ignoreCase) const
{
    const C* b = other ? other : T::empty();
    std::uint64_t n = std::min<std::uint64_t>(length(), T::len(b)) + 1;
    return T::compare(ignoreCase ? 1u : 0u, c_str(), static_cast<int>(n), b, static_cast<int>(n)) == 2;
}

template <class C> int basic_corestring<C>::compareNoCase(const C* other, std::uint64_t length) const
{
    if (!other)
        return 1;
    if (length == npos)
        length = T::len(other) + 1;
    std::uint64_t mine = std::min<std::uint64_t>(this->length() + 1, length);
    return T::compare(1u, c_str(), static_cast<int>(mine), other, static_cast<int>(length)) - 2;
}

template <class C> bool basic_corestring<C>::operator<(const basic_corestring& other) const
{
    std::uint64_t n = std::min(length(), other.length()) + 1;
    return T::compare(0u, c_str(), static_cast<int>(n), other.c_str(), static_cast<int>(n)) < 2;
}

template <class C> bool basic_corestring<C>::startsWith(const C* prefix) const
{
    if (!prefix)
        return false;
    const C* hit = T::str(c_str(), prefix);
    return hit == c_str();
}

template <class C> basic_corestring<C> basic_corestring<C>::normalizeNumber() const
{
    basic_corestring s(*this);
    s.trim(blanks);
    std::uint64_t len = s.length();
    std::uint64_t start = (len && (s.m_p[0] == C('+') || s.m_p[0] == C('-'))) ? 1 : 0;
    std::uint64_t i = start;
    while (i + 1 < len && s.m_p[i] == C('0') && s.m_p[i + 1] >= C('0') && s.m_p[i + 1] <= C('9'))
        ++i;
    if (i > start)
        s.replaceRange(start, i - start, nullptr, 0);
    return s;
}

template <class C> long basic_corestring<C>::toInt(bool normalize) const
{
    return normalize ? T::toLong(normalizeNumber().c_str()) : T::toLong(c_str());
}

template <class C> unsigned long basic_corestring<C>::toUInt(bool normalize) const
{
    return normalize ? T::toULong(normalizeNumber().c_str()) : T::toULong(c_str());
}

template <class C> long long basic_corestring<C>::toInt64(bool normalize) const
{
    return normalize ? T::toInt64(normalizeNumber().c_str()) : T::toInt64(c_str());
}

template <class C>
basic_corestring<C>& basic_corestring<C>::vformat(basic_corestring& out, std::uint64_t firstSize, const C* format,
                                                  va_list args)
{
    // 16M characters: no log line of the tool comes near, and a format the
    // formatter keeps refusing must not eat the memory before it gives up.
    constexpr std::uint64_t kLimit = std::uint64_t(1) << 24;
    std::uint64_t size = firstSize ? firstSize : 8192;
    for (;;) {
        corestring_buffer<C> buffer(static_cast<C*>(g_corestringMemory.allocate(size * width)));
        if (!buffer)
            throwOutOfMem();
        va_list copy;
        va_copy(copy, args);
        int n = T::vformat(buffer.get(), static_cast<size_t>(size), format, copy);
        va_end(copy);
        if (n >= 0 && static_cast<std::uint64_t>(n) < size) {
            buffer.get()[size - 1] = C(0);
            return out.assign(buffer.get(), T::len(buffer.get()));
        }
        buffer.reset();
        if (size >= kLimit)
            throwOutOfMem();
        size *= 2;
    }
}

template <class C> basic_corestring<C>& basic_corestring<C>::format(basic_corestring& out, const C* format, ...)
{
    va_list args;
    va_start(args, format);
    try {
        vformat(out, 8192, format, args);
    } catch (...) {
        va_end(args);
        throw;
    }
    va_end(args);
    return out;
}

template <class C>
basic_corestring<C> basic_corestring<C>::tokenize(const C*& cursor, const C* delimiters, const C* quotes)
{
    basic_corestring token;
    if (!cursor)
        return token;
    cursor += T::span(cursor, delimiters);
    if (quotes && *cursor && T::chr(quotes, *cursor)) {
        const C quote = *cursor;
        const C* piece = cursor + 1;
        const C* search = piece;
        for (;;) {
            const C* close = T::chr(search, quote);
            if (!close)
                break;  // unbalanced: read it as a plain token below
            token.append(piece, static_cast<std::uint64_t>(close - piece));
            if (close[1] == quote) {
                // A doubled quote stands for one; the second begins the next piece.
                piece = close + 1;
                search = close + 2;
                continue;
            }
            cursor = close + 1;
            return token;
        }
        token = basic_corestring();
    }
    std::uint64_t n = T::cspan(cursor, delimiters);
    token.assign(cursor, n);
    cursor += n;
    return token;
}

template <class C>
std::vector<basic_corestring<C>> basic_corestring<C>::split(const C* text, const C* delimiters, const C* quotes)
{
    std::vector<basic_corestring> list;
    const C* cursor = text;
    for (;;) {
        basic_corestring token = tokenize(cursor, delimiters, quotes);
        if (token.empty())
            break;
        list.push_back(std::move(token));
    }
    return list;
}

}  // namespace CORE
