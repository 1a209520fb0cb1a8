#pragma once
#include <utility>
#include <vector>

#include "core/string/corestring.h"

namespace CORE {

// Name -> text, looked up without regard to case (CompareStringW, locale
// 1024, ignore case, exact length), in insertion order.
class NoCaseMap {
public:
    using Entry = std::pair<corestring, corestring>;

    // The value stored under name, or null when there is none.
    const corestring* find(const wchar_t* name) const;
    // A copy of the value stored under name; empty when there is none.
    corestring get(const wchar_t* name) const
    {
        const corestring* value = find(name);
        return value ? *value : corestring();
    }
    // The value under name, made empty if it isn't there yet.
    corestring& operator[](const wchar_t* name);
    void set(const wchar_t* name, const corestring& value) { (*this)[name] = value; }
    bool empty() const { return m_entries.empty(); }
    std::size_t size() const { return m_entries.size(); }
    void clear() { m_entries.clear(); }
    const std::vector<Entry>& entries() const { return m_entries; }

private:
    std::vector<Entry> m_entries;
};

}  // namespace CORE

using CORE::NoCaseMap;
