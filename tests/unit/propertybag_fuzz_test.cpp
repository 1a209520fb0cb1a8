// Generated texts, valid and damaged, through PropertyBag::Parse in every
// mode. Deterministic: a fixed seed and a generator of our own.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "core/propertybag.h"

using CORE::corestring;
using CORE::PropertyBag;

namespace {

class Rng {
public:
    explicit Rng(std::uint64_t seed) : m_state(seed ? seed : 1) {}
    std::uint64_t next()
    {
        // xorshift64*
        m_state ^= m_state >> 12;
        m_state ^= m_state << 25;
        m_state ^= m_state >> 27;
        return m_state * 0x2545F4914F6CDD1DULL;
    }
    std::uint32_t below(std::uint32_t n) { return n ? static_cast<std::uint32_t>((next() >> 33) % n) : 0; }
    bool chance(std::uint32_t percent) { return below(100) < percent; }
    template <class T, size_t N> const T& pick(const T (&a)[N]) { return a[below(N)]; }

private:
    std::uint64_t m_state;
};

// What a generated item must parse to.
struct Expected {
    std::wstring rawName;
    std::wstring name;
    enum Kind { Text, Binary, Bag } kind = Text;
    std::wstring value;
    std::string bytes;
    std::vector<Expected> children;
};

struct Piece {
    const wchar_t* raw;
    const wchar_t* decoded;
};

// None of these starts with an entity's tail or "/ITEM>", so that any two
// side by side still decode piece by piece.
const Piece kValuePieces[] = {
    {L"abc", L"abc"},         {L" ", L" "},
    {L"\t", L"\t"},           {L"\r\n", L"\r\n"},
    {L"x y", L"x y"},         {L"0123", L"0123"},
    {L"&lt;", L"<"},          {L"&amp;", L"&"},
    {L"&gt;", L">"},          {L"&quot;", L"\""},
    {L"&apos;", L"'"},        {L"&#x41;", L"A"},
    {L"&#x20ac;", L"\u20ac"}, {L"&#x1F600;", L"\xD83D\xDE00"},
    {L"&", L"&"},             {L"&foo;", L"&foo;"},
    {L"&#x;", L"&#x;"},       {L"&#x0;", L"&#x0;"},
    {L"<", L"<"},             {L"<b>", L"<b>"},
    {L"< /ITEM>", L"< /ITEM>"}, {L"</ITEMX>", L"</ITEMX>"},
    {L"<ITEM name='q'>", L"<ITEM name='q'>"}, {L"<!-- c -->", L"<!-- c -->"},
    {L"\u00e9", L"\u00e9"},   {L"\u4e2d", L"\u4e2d"},
    {L"'\"", L"'\""},         {L"=", L"="},
};

const Piece kNamePieces[] = {
    {L"THUMBPRINT", L"THUMBPRINT"}, {L"k", L"k"},   {L"a b", L"a b"},   {L"&amp;", L"&"},
    {L"&#x41;", L"A"},              {L"x&lt;y", L"x<y"}, {L"<>", L"<>"}, {L"\u00e9", L"\u00e9"},
    {L"&bad", L"&bad"},             {L"1", L"1"},   {L"\"", L"\""},     {L"'", L"'"},
};

const wchar_t* const kBagTypes[] = {L"BAG", L"bag", L"x", L"BINARYX", L"BIN"};
const wchar_t* const kBinaryTypes[] = {L"BINARY", L"binary", L"Binary"};

std::wstring base64Of(const std::string& bytes, bool pad)
{
    static const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::wstring out;
    size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        std::uint32_t v = (std::uint32_t(std::uint8_t(bytes[i])) << 16) | (std::uint32_t(std::uint8_t(bytes[i + 1])) << 8) |
                          std::uint8_t(bytes[i + 2]);
        for (int s = 18; s >= 0; s -= 6)
            out += wchar_t(alphabet[(v >> s) & 63]);
    }
    size_t rest = bytes.size() - i;
    if (rest == 1) {
        std::uint32_t v = std::uint32_t(std::uint8_t(bytes[i])) << 16;
        out += wchar_t(alphabet[(v >> 18) & 63]);
        out += wchar_t(alphabet[(v >> 12) & 63]);
        if (pad)
            out += L"==";
    } else if (rest == 2) {
        std::uint32_t v = (std::uint32_t(std::uint8_t(bytes[i])) << 16) | (std::uint32_t(std::uint8_t(bytes[i + 1])) << 8);
        out += wchar_t(alphabet[(v >> 18) & 63]);
        out += wchar_t(alphabet[(v >> 12) & 63]);
        out += wchar_t(alphabet[(v >> 6) & 63]);
        if (pad)
            out += L"=";
    }
    return out;
}

class Generator {
public:
    Generator(Rng& rng, bool strictForm) : r(rng), strict(strictForm) {}

    std::wstring document(std::vector<Expected>& items)
    {
        std::wstring out;
        gap(out);
        out += word(L"<PROPERTYBAG");
        if (r.chance(20))
            out += L" version=\"1\"";
        out += L">";
        int n = static_cast<int>(r.below(7));
        for (int i = 0; i < n; ++i) {
            gap(out);
            if (r.chance(10)) {
                out += word(L"<ITEM/>");
                gap(out);
            }
            items.push_back(item(out, 0));
        }
        gap(out);
        out += word(L"</PROPERTYBAG>");
        if (r.chance(30))
            out += r.chance(50) ? L"\r\n" : L" \t";
        if (!strict && r.chance(10))
            out += L"<!-- end -->";
        return out;
    }

    Expected item(std::wstring& out, int depth)
    {
        Expected e;
        wchar_t quote = r.chance(50) ? L'"' : L'\'';
        int pieces = 1 + static_cast<int>(r.below(3));
        for (int i = 0; i < pieces; ++i) {
            const Piece* p;
            do {
                p = &r.pick(kNamePieces);
            } while (p->raw[0] == quote);
            e.rawName += p->raw;
            e.name += p->decoded;
        }
        std::uint32_t kindRoll = r.below(100);
        e.kind = (depth < 4 && kindRoll < 15) ? Expected::Bag : kindRoll < 35 ? Expected::Binary : Expected::Text;

        out += word(L"<ITEM");
        out += strict ? std::wstring(L" ") : pickWhite(true);
        std::wstring nameAttr = attribute(L"name", e.rawName, quote);
        std::wstring typeAttr;
        if (e.kind == Expected::Bag)
            typeAttr = attribute(L"type", r.pick(kBagTypes), quote);
        else if (e.kind == Expected::Binary)
            typeAttr = attribute(L"type", r.pick(kBinaryTypes), quote);
        bool typeFirst = !typeAttr.empty() && r.chance(30);
        out += typeFirst ? typeAttr : nameAttr;
        if (!typeAttr.empty()) {
            out += strict ? std::wstring(L" ") : pickWhite(false);
            out += typeFirst ? nameAttr : typeAttr;
        }
        if (strict ? r.chance(20) : r.chance(40))
            out += strict ? std::wstring(L" ") : pickWhite(false);

        bool selfClosed = r.chance(15);
        if (selfClosed) {
            out += L"/>";
            return e;
        }
        out += L">";
        if (e.kind == Expected::Bag) {
            int n = static_cast<int>(r.below(4));
            for (int i = 0; i < n; ++i) {
                gap(out);
                e.children.push_back(item(out, depth + 1));
            }
            gap(out);
        } else if (e.kind == Expected::Binary) {
            std::string bytes;
            int n = static_cast<int>(r.below(40));
            for (int i = 0; i < n; ++i)
                bytes += char(r.below(256));
            std::wstring b64 = base64Of(bytes, r.chance(70));
            // Line breaks and blanks inside are passed over.
            if (r.chance(20) && !b64.empty())
                b64.insert(r.below(static_cast<std::uint32_t>(b64.size())), L"\r\n ");
            e.bytes = bytes;
            out += b64;
        } else {
            int n = static_cast<int>(r.below(6));
            for (int i = 0; i < n; ++i) {
                const Piece& p = r.pick(kValuePieces);
                out += p.raw;
                e.value += p.decoded;
            }
        }
        out += word(L"</ITEM>");
        return e;
    }

private:
    std::wstring attribute(const wchar_t* name, const std::wstring& value, wchar_t quote)
    {
        std::wstring out = word(name);
        if (!strict && r.chance(20))
            out += pickWhite(false);
        out += L"=";
        if (!strict && r.chance(20))
            out += pickWhite(false);
        out += quote;
        out += value;
        out += quote;
        return out;
    }

    // Tag words in random case for the tolerant form.
    std::wstring word(const wchar_t* w)
    {
        std::wstring out = w;
        if (!strict && r.chance(20))
            for (wchar_t& c : out)
                if (r.chance(50) && c >= L'A' && c <= L'Z')
                    c = static_cast<wchar_t>(c + 32);
        return out;
    }

    std::wstring pickWhite(bool atLeastOne)
    {
        static const wchar_t* const whites[] = {L" ", L"\t", L"\r\n", L"\n", L"  \t"};
        std::wstring out = r.pick(whites);
        if (!atLeastOne && r.chance(30))
            out += L"<!--x-->";
        return out;
    }

    void gap(std::wstring& out)
    {
        if (strict || !r.chance(30))
            return;
        static const wchar_t* const gaps[] = {L" ", L"\r\n\t", L"<!-- note -->", L"<?pi x?>", L"\n  <!--a--> \t"};
        out += r.pick(gaps);
    }

    Rng& r;
    bool strict;
};

// What is wrong with the parsed items, or empty.
std::wstring compare(const std::vector<PropertyBag::Item*>& got, const std::vector<Expected>& want, int strict)
{
    if (got.size() != want.size())
        return L"item count " + std::to_wstring(got.size()) + L" instead of " + std::to_wstring(want.size());
    for (size_t i = 0; i < got.size(); ++i) {
        const PropertyBag::Item& g = *got[i];
        const Expected& w = want[i];
        const std::wstring& name = strict == 1 ? w.rawName : w.name;
        if (name != g.name.c_str())
            return L"name " + std::wstring(g.name.c_str()) + L" instead of " + name;
        if ((w.kind == Expected::Bag) != (g.subBag != nullptr))
            return L"kind of " + name;
        if (w.kind == Expected::Bag) {
            std::wstring inner = compare(g.subBag->items, w.children, strict);
            if (!inner.empty())
                return inner;
        } else if (w.kind == Expected::Binary) {
            if (!g.value.isBinary())
                return L"not binary: " + name;
            size_t n = g.value.byteLength() & ~CORE::kBinaryBit;
            if (std::string(reinterpret_cast<const char*>(g.value.handle()), n) != w.bytes)
                return L"bytes of " + name;
        } else if (w.value != g.value.c_str()) {
            return L"value " + std::wstring(g.value.c_str()) + L" instead of " + w.value;
        }
    }
    return L"";
}

// Structure any parsed bag has: names never empty, and a false parse leaves
// nothing. Walked without recursion, as damaged texts may nest deeply.
std::wstring invariants(const PropertyBag& bag, bool ok)
{
    if (bag.Count() != bag.content().items.size())
        return L"Count differs from the items";
    if (!ok)
        return bag.Count() == 0 ? L"" : L"items left after a failed parse";
    std::vector<const PropertyBag::Content*> work{&bag.content()};
    while (!work.empty()) {
        const PropertyBag::Content* c = work.back();
        work.pop_back();
        for (const PropertyBag::Item* item : c->items) {
            if (item->name.empty())
                return L"empty name";
            if (item->count.load() != 1)
                return L"item count not 1";
            if (item->subBag) {
                if (item->value.handle())
                    return L"sub bag with a value";
                work.push_back(item->subBag);
            }
        }
    }
    return L"";
}

const wchar_t kNoise[] = L"<>/=\"'&;#x ITEMitem\t\r\nPROPERTYBAG!-?AZaz09+";

wchar_t noiseChar(Rng& r)
{
    if (r.chance(80))
        return kNoise[r.below(sizeof kNoise / sizeof kNoise[0] - 1)];
    // Anything but the terminator, surrogate halves included.
    return static_cast<wchar_t>(1 + r.below(0xFFFF));
}

void mutate(Rng& r, std::wstring& text)
{
    int steps = 1 + static_cast<int>(r.below(3));
    for (int s = 0; s < steps; ++s) {
        std::uint32_t size = static_cast<std::uint32_t>(text.size());
        std::uint32_t at = r.below(size + 1);
        switch (r.below(6)) {
        case 0:  // truncate
            text.resize(at);
            break;
        case 1: {  // insert noise
            int n = 1 + static_cast<int>(r.below(5));
            for (int i = 0; i < n; ++i)
                text.insert(text.begin() + at, noiseChar(r));
            break;
        }
        case 2:  // delete a range
            text.erase(at, 1 + r.below(8));
            break;
        case 3:  // copy a slice elsewhere
            if (size) {
                std::uint32_t from = r.below(size);
                std::wstring slice = text.substr(from, 1 + r.below(30));
                text.insert(r.below(static_cast<std::uint32_t>(text.size()) + 1), slice);
            }
            break;
        case 4:  // flip the case of letters
            for (std::uint32_t i = at; i < text.size() && i < at + 10; ++i)
                if ((text[i] >= L'A' && text[i] <= L'Z') || (text[i] >= L'a' && text[i] <= L'z'))
                    text[i] ^= 0x20;
            break;
        default:  // replace one character
            if (at < size)
                text[at] = noiseChar(r);
            break;
        }
    }
}

std::wstring deepText(Rng& r, bool& valid)
{
    int depth = 1000 + static_cast<int>(r.below(2000));
    std::wstring text = L"<PROPERTYBAG>";
    for (int i = 0; i < depth; ++i)
        text += r.chance(50) ? L"<ITEM name=\"d\" type=\"BAG\">" : L"<ITEM name='d' type='x'><ITEM/>";
    text += L"<ITEM name=\"leaf\">v</ITEM>";
    int closed = r.chance(50) ? depth : static_cast<int>(r.below(static_cast<std::uint32_t>(depth)));
    for (int i = 0; i < closed; ++i)
        text += L"</ITEM>";
    text += L"</PROPERTYBAG>";
    valid = closed == depth;
    return text;
}

std::wstring entityFlood(Rng& r)
{
    static const wchar_t* const parts[] = {L"&amp;", L"&lt;", L"&", L"&#x", L"&#x41;", L"&#x110000;", L"&#xFFFFFFFFFFFF;",
                                           L"&am", L";", L"&#x1F600;", L"&quot", L"&apos;"};
    std::wstring text = L"<PROPERTYBAG><ITEM name=\"";
    for (int i = 0; i < 50; ++i)
        text += r.pick(parts);
    text += L"\">";
    int n = 500 + static_cast<int>(r.below(2000));
    for (int i = 0; i < n; ++i)
        text += r.pick(parts);
    text += L"</ITEM></PROPERTYBAG>";
    return text;
}

std::wstring badBase64(Rng& r)
{
    std::wstring text = L"<PROPERTYBAG><ITEM name=\"b\" type=\"BINARY\">";
    int n = static_cast<int>(r.below(200));
    for (int i = 0; i < n; ++i)
        text += r.chance(50) ? noiseChar(r) : static_cast<wchar_t>(L"QUJD=+/ \r\n"[r.below(10)]);
    // A '<' of the noise may end the value early: then the text fails, which
    // is fine, as long as nothing breaks.
    text += L"</ITEM></PROPERTYBAG>";
    return text;
}

}  // namespace

TEST(PropertyBagFuzz, GeneratedTextsNeverBreakTheParser)
{
    Rng r(0x5EEDF00DCAFEULL);
    const int kTexts = 100000;
    int validParsed = 0, failures = 0;
    for (int n = 0; n < kTexts; ++n) {
        std::wstring text;
        std::vector<Expected> expected;
        bool checkExpected = false;  // a valid text with a known result
        bool deepValid = false;        // a valid deep text: one item at top level
        bool strictForm = false;
        std::uint32_t kind = r.below(1000);
        if (kind < 3) {
            bool valid = false;
            text = deepText(r, valid);
            if (r.chance(30)) {
                mutate(r, text);
                valid = false;
            }
            deepValid = valid;
        } else if (kind < 20) {
            text = entityFlood(r);
        } else if (kind < 60) {
            text = badBase64(r);
        } else {
            strictForm = r.chance(40);
            Generator g(r, strictForm);
            text = g.document(expected);
            checkExpected = true;
            if (kind >= 400) {
                mutate(r, text);
                checkExpected = false;
            }
        }

        for (int strict : {0, 1, 2}) {
            PropertyBag bag;
            bool ok = false;
            try {
                ok = bag.Parse(text.c_str(), true, strict);
            } catch (...) {
                ADD_FAILURE() << "text " << n << " mode " << strict << " threw";
                return;
            }
            std::wstring broken = invariants(bag, ok);
            if (broken.empty() && deepValid && (!ok || bag.Count() != 1))
                broken = L"a valid deep text didn't give one item";
            if (broken.empty() && checkExpected && (strict == 0 || strictForm)) {
                if (!ok)
                    broken = L"a valid text failed";
                else
                    broken = compare(bag.content().items, expected, strict);
                if (broken.empty())
                    ++validParsed;
            }
            if (!ok)
                ++failures;
            if (!broken.empty()) {
                ADD_FAILURE() << "text " << n << " mode " << strict << ": "
                              << testing::PrintToString(broken) << "\n"
                              << testing::PrintToString(text.substr(0, 2000));
                return;
            }
        }
    }
    // The generator must have produced both sides in fair numbers.
    EXPECT_GT(validParsed, kTexts / 2);
    EXPECT_GT(failures, kTexts / 4);
}
