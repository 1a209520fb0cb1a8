#include "core/NoCaseMap.h"

namespace CORE {

const corestring* NoCaseMap::find(const wchar_t* name) const
{
    for (const Entry& entry : m_entries)
        if (keywordEquals(entry.first.c_str(), name, true))
            return &entry.second;
    return nullptr;
}

corestring& NoCaseMap::operator[](const wchar_t* name)
{
    for (Entry& entry : m_entries)
        if (keywordEquals(entry.first.c_str(), name, true))
            return entry.second;
    m_entries.emplace_back(corestring(name), corestring());
    return m_entries.back().second;
}

}  // namespace CORE
