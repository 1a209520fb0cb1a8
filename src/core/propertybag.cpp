#include "core/propertybag.h"

#include <cwchar>
#include <new>
#include <vector>

#include "core/log/logmessage.h"

namespace CORE {

namespace {

using Item = PropertyBag::Item;
using Content = PropertyBag::Content;

// Frees content whose count reaches zero, with its items and their sub bags.
// A work list instead of recursion: a bag nested many thousand levels deep
// must not run out of stack when it dies.
void releaseContent(Content* content) noexcept
{
    if (!content || content->count.fetch_sub(1) != 1)
        return;
    std::vector<Content*> work;
    Content* next = content;
    for (;;) {
        for (Item* item : next->items) {
            if (item->count.fetch_sub(1) != 1)
                continue;
            Content* sub = item->subBag;
            delete item;
            if (sub && sub->count.fetch_sub(1) == 1) {
                try {
                    work.push_back(sub);
                } catch (...) {
                    // No memory for the list: this one branch goes by recursion.
                    sub->count.store(1);
                    releaseContent(sub);
                }
            }
        }
        delete next;
        if (work.empty())
            return;
        next = work.back();
        work.pop_back();
    }
}

void releaseItem(Item* item) noexcept
{
    if (item && item->count.fetch_sub(1) == 1) {
        releaseContent(item->subBag);
        delete item;
    }
}

Content* newContent()
{
    Content* content = new (std::nothrow) Content;
    if (!content)
        throwOutOfMem();
    return content;
}

// Owns an item until it is handed to its content.
struct ItemHolder {
    Item* item = nullptr;
    ItemHolder()
    {
        item = new (std::nothrow) Item;
        if (!item)
            throwOutOfMem();
    }
    ~ItemHolder() { releaseItem(item); }
    ItemHolder(const ItemHolder&) = delete;
    ItemHolder& operator=(const ItemHolder&) = delete;
    void appendTo(Content* content)
    {
        content->items.push_back(item);
        item = nullptr;
    }
};

bool isWhite(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

wchar_t foldAscii(wchar_t c) { return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c + (L'a' - L'A')) : c; }

int hexDigit(wchar_t c)
{
    if (c >= L'0' && c <= L'9')
        return c - L'0';
    if (c >= L'a' && c <= L'f')
        return c - L'a' + 10;
    if (c >= L'A' && c <= L'F')
        return c - L'A' + 10;
    return -1;
}

// Standard alphabet; -1 for everything else.
const signed char* base64Codes()
{
    static const auto table = [] {
        struct T {
            signed char code[256];
        } t{};
        for (int i = 0; i < 256; ++i)
            t.code[i] = -1;
        const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (int i = 0; i < 64; ++i)
            t.code[static_cast<unsigned char>(alphabet[i])] = static_cast<signed char>(i);
        return t;
    }();
    return table.code;
}

// Four characters give three bytes; '=' ends the data, and so does the end of
// the text, where two or three characters left over give one or two bytes.
// Characters outside the alphabet (line breaks of wrapped Base64 among them)
// are passed over.
std::vector<unsigned char> decodeBase64(const char* text, std::uint64_t length)
{
    const signed char* codes = base64Codes();
    std::vector<unsigned char> bytes;
    bytes.reserve(static_cast<size_t>(length / 4 * 3 + 3));
    std::uint32_t group = 0;
    int filled = 0;
    for (std::uint64_t i = 0; i < length; ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '=')
            break;
        int code = codes[c];
        if (code < 0)
            continue;
        group = (group << 6) | static_cast<std::uint32_t>(code);
        if (++filled == 4) {
            bytes.push_back(static_cast<unsigned char>(group >> 16));
            bytes.push_back(static_cast<unsigned char>(group >> 8));
            bytes.push_back(static_cast<unsigned char>(group));
            group = 0;
            filled = 0;
        }
    }
    if (filled == 2) {
        bytes.push_back(static_cast<unsigned char>(group >> 4));
    } else if (filled == 3) {
        bytes.push_back(static_cast<unsigned char>(group >> 10));
        bytes.push_back(static_cast<unsigned char>(group >> 2));
    }
    return bytes;
}

// The character an entity at `amp` stands for, and its length; 0 when the
// '&' starts no entity and stays as it stands.
size_t decodeEntity(const wchar_t* amp, const wchar_t* end, wchar_t out[2], int& outCount)
{
    struct Named {
        const wchar_t* text;
        size_t length;
        wchar_t c;
    };
    static const Named named[] = {
        {L"lt;", 3, L'<'}, {L"amp;", 4, L'&'}, {L"gt;", 3, L'>'}, {L"quot;", 5, L'"'}, {L"apos;", 5, L'\''},
    };
    const wchar_t* rest = amp + 1;
    size_t left = static_cast<size_t>(end - rest);
    for (const Named& n : named) {
        if (left >= n.length && std::wmemcmp(rest, n.text, n.length) == 0) {
            out[0] = n.c;
            outCount = 1;
            return 1 + n.length;
        }
    }
    if (left >= 2 && rest[0] == L'#' && rest[1] == L'x') {
        const wchar_t* q = rest + 2;
        std::uint32_t number = 0;
        bool tooLarge = false;
        while (q < end && hexDigit(*q) >= 0) {
            number = number * 16 + static_cast<std::uint32_t>(hexDigit(*q));
            if (number > 0x10FFFF) {
                tooLarge = true;
                number = 0x110000;  // stays too large whatever follows
            }
            ++q;
        }
        // No digits, no ';', 0 or beyond Unicode: not a character, so the '&'
        // stays (a 0 would cut the value short for every C string reader).
        if (q == rest + 2 || q >= end || *q != L';' || tooLarge || number == 0)
            return 0;
        if (number > 0xFFFF) {
            number -= 0x10000;
            out[0] = static_cast<wchar_t>(0xD800 + (number >> 10));
            out[1] = static_cast<wchar_t>(0xDC00 + (number & 0x3FF));
            outCount = 2;
        } else {
            out[0] = static_cast<wchar_t>(number);
            outCount = 1;
        }
        return static_cast<size_t>(q + 1 - amp);
    }
    return 0;
}

// The text from `begin` to `end`, entities decoded once when `decode` is set.
void takeText(const wchar_t* begin, const wchar_t* end, bool decode, corestring& out)
{
    const wchar_t* amp = decode ? std::wmemchr(begin, L'&', static_cast<size_t>(end - begin)) : nullptr;
    if (!amp) {
        out.assign(begin, static_cast<std::uint64_t>(end - begin));
        return;
    }
    out.assign(begin, static_cast<std::uint64_t>(amp - begin));
    const wchar_t* p = amp;
    while (p < end) {
        if (*p != L'&') {
            const wchar_t* next = std::wmemchr(p, L'&', static_cast<size_t>(end - p));
            if (!next)
                next = end;
            out.append(p, static_cast<std::uint64_t>(next - p));
            p = next;
            continue;
        }
        wchar_t chars[2];
        int count = 0;
        size_t used = decodeEntity(p, end, chars, count);
        if (used) {
            out.append(chars, static_cast<std::uint64_t>(count));
            p += used;
        } else {
            out.append(p, 1);
            ++p;
        }
    }
}

class Parser {
public:
    Parser(const wchar_t* text, int strict)
        : m_text(text), m_p(text), m_tolerant(strict == 0), m_decodeNames(strict != 1)
    {
    }

    // Fills `top`; on failure leaves the message and place for the caller.
    bool run(Content* top);

    const wchar_t* error() const { return m_error; }
    void errorPlace(unsigned& line, unsigned& column) const;

private:
    bool fail(const wchar_t* message, const wchar_t* at)
    {
        m_error = message;
        m_errorAt = at;
        return false;
    }

    // A tag word at `at`: ignoring case (ASCII, as _wcsnicmp does) in the
    // tolerant mode, exact in the strict one.
    bool wordAt(const wchar_t* at, const wchar_t* word) const
    {
        for (; *word; ++at, ++word) {
            if (*at == 0)
                return false;
            if (m_tolerant ? foldAscii(*at) != foldAscii(*word) : *at != *word)
                return false;
        }
        return true;
    }
    bool word(const wchar_t* w) const { return wordAt(m_p, w); }
    bool atTagEnd() const { return *m_p == L'>' || (m_p[0] == L'/' && m_p[1] == L'>'); }

    // White space, comments and processing instructions: tolerant mode only.
    void skip()
    {
        if (!m_tolerant)
            return;
        for (;;) {
            while (isWhite(*m_p))
                ++m_p;
            if (m_p[0] == L'<' && m_p[1] == L'!' && m_p[2] == L'-' && m_p[3] == L'-')
                skipTo(m_p + 4, L"-->", 3);
            else if (m_p[0] == L'<' && m_p[1] == L'?')
                skipTo(m_p + 2, L"?>", 2);
            else
                return;
        }
    }
    // Unterminated, it runs to the end of the text.
    void skipTo(const wchar_t* from, const wchar_t* close, size_t length)
    {
        const wchar_t* hit = std::wcsstr(from, close);
        m_p = hit ? hit + length : from + std::wcslen(from);
    }

    bool parseItem(Content*& current, std::vector<Content*>& open);
    bool parseAttributes(corestring& name, bool& hasName, corestring& type, bool& hasType);

    const wchar_t* m_text;
    const wchar_t* m_p;
    bool m_tolerant;
    bool m_decodeNames;
    const wchar_t* m_error = nullptr;
    const wchar_t* m_errorAt = nullptr;
};

void Parser::errorPlace(unsigned& line, unsigned& column) const
{
    line = 1;
    column = 1;
    for (const wchar_t* q = m_text; q < m_errorAt; ++q) {
        if (*q == L'\n') {
            ++line;
            column = 1;
        } else if (*q == L'\t') {
            column = ((column - 1) / 4 + 1) * 4 + 1;
        } else {
            ++column;
        }
    }
}

bool Parser::run(Content* top)
{
    skip();
    if (*m_p == 0)
        return true;
    // "<PROPERTYBAG/>" has a '>' too and so goes this way, to fail for want of
    // a closing tag: an empty bag is empty text or an open and a close tag.
    if (!word(L"<PROPERTYBAG"))
        return fail(L"expected start of property bag", m_p);
    const wchar_t* close = std::wcschr(m_p + 12, L'>');
    if (!close)
        return fail(L"expected start of property bag", m_p);
    m_p = close + 1;

    // Sub bags open and close on this stack rather than by recursion, so that
    // the depth of the text is limited by memory alone.
    std::vector<Content*> open;
    Content* current = top;
    for (;;) {
        skip();
        if (word(L"<ITEM")) {
            if (!parseItem(current, open))
                return false;
            continue;
        }
        if (open.empty()) {
            if (!word(L"</PROPERTYBAG>"))
                return fail(L"expected end of property bag", m_p);
            m_p += 14;
            skip();
            while (isWhite(*m_p))
                ++m_p;
            if (*m_p != 0)
                return fail(L"un-expected data after property bag", m_p);
            return true;
        }
        if (!word(L"</ITEM>"))
            return fail(L"expected end of sub bag", m_p);
        m_p += 7;
        current = open.back();
        open.pop_back();
    }
}

bool Parser::parseItem(Content*& current, std::vector<Content*>& open)
{
    m_p += 5;  // "<ITEM"
    if (m_p[0] == L'/' && m_p[1] == L'>') {
        m_p += 2;  // "<ITEM/>" says nothing
        return true;
    }
    if (!(*m_p == L' ' || (m_tolerant && isWhite(*m_p))))
        return fail(L"expected start of item", m_p);
    ++m_p;

    corestring name, type;
    bool hasName = false, hasType = false;
    if (!parseAttributes(name, hasName, type, hasType))
        return false;
    if (!hasName)
        return fail(L"name attribute is mandatory", m_p);

    ItemHolder holder;
    Item* item = holder.item;
    item->name.swap(name);

    if (hasType && type.compareNoCase(L"BINARY") != 0) {
        item->subBag = newContent();
        bool hasBody = *m_p == L'>';
        m_p += hasBody ? 1 : 2;
        holder.appendTo(current);
        if (hasBody) {
            open.push_back(current);
            current = item->subBag;
        }
        return true;
    }

    if (*m_p == L'>') {
        const wchar_t* start = m_p + 1;
        const wchar_t* end = start;
        for (;;) {
            end = std::wcschr(end, L'<');
            if (!end)
                return fail(L"expected end of item", m_p);
            if (wordAt(end + 1, L"/ITEM>"))
                break;
            ++end;
        }
        takeText(start, end, true, item->value);
        m_p = end + 7;
    } else {
        m_p += 2;
    }

    if (hasType) {
        coremstring utf8 = to_mstr(item->value.c_str(), item->value.length(), 65001);
        std::vector<unsigned char> bytes = decodeBase64(utf8.c_str(), utf8.length());
        item->value.setBinary(bytes.data(), bytes.size());
    }
    holder.appendTo(current);
    return true;
}

bool Parser::parseAttributes(corestring& name, bool& hasName, corestring& type, bool& hasType)
{
    for (;;) {
        skip();
        if (atTagEnd())
            return true;

        const wchar_t* nameStart = m_p;
        while (*m_p && *m_p != L'=' && *m_p != L'>' && !isWhite(*m_p) && !(m_p[0] == L'/' && m_p[1] == L'>'))
            ++m_p;
        const wchar_t* nameEnd = m_p;
        skip();
        if (*m_p != L'=')
            return fail(L"expected equal sign after attribute name", m_p);
        if (nameEnd == nameStart)
            return fail(L"empty attribute name", m_p);
        ++m_p;
        skip();
        wchar_t quote = *m_p;
        if (quote != L'"' && quote != L'\'')
            return fail(L"expected start quote", m_p);
        const wchar_t* openQuote = m_p;
        const wchar_t* closeQuote = std::wcschr(openQuote + 1, quote);
        if (!closeQuote)
            return fail(L"expected ending quote", openQuote);
        if (closeQuote == openQuote + 1)
            return fail(L"attribute value is mandatory", openQuote);

        size_t nameLength = static_cast<size_t>(nameEnd - nameStart);
        if (nameLength == 4 && wordAt(nameStart, L"name")) {
            takeText(openQuote + 1, closeQuote, m_decodeNames, name);
            hasName = true;
        } else if (nameLength == 4 && wordAt(nameStart, L"type")) {
            type.assign(openQuote + 1, static_cast<std::uint64_t>(closeQuote - openQuote - 1));
            hasType = true;
        } else {
            return fail(L"unknown attribute name (may be missing equal sign or quote's)", nameStart);
        }
        m_p = closeQuote + 1;

        // The strict form wants one blank between attributes.
        if (!m_tolerant) {
            if (*m_p == L' ')
                ++m_p;
            else if (!atTagEnd())
                return fail(L"unknown attribute name (may be missing equal sign or quote's)", m_p);
        }
    }
}

}  // namespace

PropertyBag::PropertyBag() : m_count(1), m_content(newContent()) {}

PropertyBag::PropertyBag(const PropertyBag& other) : m_count(1), m_content(other.m_content)
{
    m_content->count.fetch_add(1);
}

PropertyBag& PropertyBag::operator=(const PropertyBag& other)
{
    if (m_content != other.m_content) {
        other.m_content->count.fetch_add(1);
        releaseContent(m_content);
        m_content = other.m_content;
    }
    return *this;
}

PropertyBag::~PropertyBag() { releaseContent(m_content); }

void PropertyBag::addRef() { m_count.fetch_add(1); }

void PropertyBag::release()
{
    if (m_count.fetch_sub(1) == 1)
        delete this;
}

std::uint64_t PropertyBag::Count() const { return m_content->items.size(); }

void PropertyBag::Clear()
{
    std::vector<Item*> items;
    items.swap(m_content->items);
    for (Item* item : items)
        releaseItem(item);
}

bool PropertyBag::Parse(const wchar_t* text, bool quiet, int strict)
{
    if (!m_content->items.empty())
        Clear();
    if (!text)
        return true;

    Parser parser(text, strict);
    bool ok;
    try {
        ok = parser.run(m_content);
    } catch (const std::bad_alloc&) {
        Clear();
        throwOutOfMem();
    } catch (...) {
        Clear();
        throw;
    }
    if (ok)
        return true;

    Clear();
    if (!quiet) {
        unsigned line = 0, column = 0;
        parser.errorPlace(line, column);
        logMessage(LOG_WARN, L"PropertyBag Parse failed: %s, line=%u, col=%u", parser.error(), line, column);
    }
    return false;
}

std::uint64_t PropertyBag::Get(const wchar_t* name, corestring& value, std::uint64_t from) const
{
    if (!name)
        return 0;
    const std::vector<Item*>& items = m_content->items;
    for (std::uint64_t i = from; i < items.size(); ++i) {
        const Item* item = items[static_cast<size_t>(i)];
        if (!item->subBag && item->name.equals(name, true)) {
            value = item->value;
            return i + 1;
        }
    }
    return 0;
}

}  // namespace CORE
