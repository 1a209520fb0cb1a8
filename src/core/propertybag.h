#pragma once
// A small tree of named values in a tag-based text form:
//   <PROPERTYBAG><ITEM name="a">text</ITEM><ITEM name="b" type="BINARY">QUJD</ITEM>
//   <ITEM name="sub" type="BAG"><ITEM name="c"/></ITEM></PROPERTYBAG>
// It looks like XML and isn't read as XML: the scanner knows two element
// names, and its error texts are fixed.
#include <atomic>
#include <cstdint>
#include <vector>

#include "core/string/corestring.h"

namespace CORE {

class PropertyBag {
public:
    struct Content;

    // One named value, or a sub bag. Counted, as content may be shared.
    struct Item {
        std::atomic<std::uint32_t> count{1};
        corestring name;           // never empty
        corestring value;          // binary content (setBinary) for a BINARY item
        Content* subBag = nullptr; // null for a value
    };

    // Shared between copies of a bag. Releasing it releases its items and,
    // through them, their sub bags.
    struct Content {
        std::atomic<std::uint32_t> count{1};
        std::vector<Item*> items;  // in the order of the text
    };

    PropertyBag();                                      // count 1, new content
    PropertyBag(const PropertyBag& other);              // shares the content
    PropertyBag& operator=(const PropertyBag& other);   // shares the content
    virtual ~PropertyBag();
    virtual void addRef();
    virtual void release();  // deletes the bag when the count reaches zero

    // strict 0: tolerant; any other value: strict, and 1 also leaves entities
    // in the "name" attribute as they stand. quiet: no log on failure. On
    // failure the bag is empty. The content is filled in place, so a copy
    // sharing it sees the result.
    bool Parse(const wchar_t* text, bool quiet, int strict);
    std::uint64_t Count() const;  // items at top level
    void Clear();
    // From position `from`, the next top-level value item named `name`
    // (ignoring case, whole length): its value into `value`, and its
    // position + 1; 0 when there is none. Items with a sub bag are skipped.
    std::uint64_t Get(const wchar_t* name, corestring& value, std::uint64_t from) const;

    const Content& content() const { return *m_content; }
    std::uint32_t refCount() const { return m_count.load(); }

private:
    std::atomic<std::uint32_t> m_count;
    Content* m_content;
};

}  // namespace CORE
