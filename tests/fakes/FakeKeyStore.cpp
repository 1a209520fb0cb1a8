#include "fakes/FakeKeyStore.h"

#include <algorithm>
#include <cstring>
#include <cwctype>

namespace fakes {

namespace {

std::wstring lower(std::wstring_view text)
{
    std::wstring result(text);
    for (wchar_t& c : result)
        c = static_cast<wchar_t>(std::towlower(c));
    return result;
}

bool sameName(std::wstring_view a, std::wstring_view b)
{
    return a.size() == b.size() && lower(a) == lower(b);
}

const wchar_t* hiveWord(HKEY hive)
{
    if (hive == HKEY_LOCAL_MACHINE)
        return L"HKLM";
    if (hive == HKEY_CURRENT_USER)
        return L"HKCU";
    if (hive == HKEY_CLASSES_ROOT)
        return L"HKCR";
    if (hive == HKEY_USERS)
        return L"HKU";
    if (hive == HKEY_CURRENT_CONFIG)
        return L"HKCC";
    return nullptr;
}

REGSAM viewRights(FakeKeyStore::View view) { return view == FakeKeyStore::View::Wow32 ? KEY_WOW64_32KEY : 0; }

constexpr REGSAM kAllAccess = KEY_ALL_ACCESS;

bool isText(DWORD type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

// Text handed back without its terminator gets one in the caller's buffer
// when there is room for it; the size reported stays what was stored.
void terminateText(DWORD type, LPBYTE data, DWORD stored, DWORD room)
{
    if (!isText(type) || stored < sizeof(wchar_t) || room < stored + sizeof(wchar_t))
        return;
    wchar_t last;
    std::memcpy(&last, data + stored - sizeof(wchar_t), sizeof last);
    if (last != L'\0')
        std::memset(data + stored, 0, sizeof(wchar_t));
}

}  // namespace

platform::Services withKeys(platform::KeyStore& keys)
{
    platform::Services replacement = platform::services();
    replacement.keys = &keys;
    return replacement;
}

FakeKeyStore::FakeKeyStore()
{
    for (HKEY hive : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER, HKEY_CLASSES_ROOT, HKEY_USERS, HKEY_CURRENT_CONFIG}) {
        auto node = std::make_unique<Node>();
        node->name = hiveWord(hive);
        m_hives[hive] = std::move(node);
    }
}

FakeKeyStore::~FakeKeyStore() = default;

// ---- Tree helpers

FakeKeyStore::Node* FakeKeyStore::root(HKEY hive) const
{
    auto it = m_hives.find(hive);
    return it == m_hives.end() ? nullptr : it->second.get();
}

FakeKeyStore::Node* FakeKeyStore::resolveBase(HKEY key, REGSAM& rights, bool& viaCurrentUser) const
{
    if (Node* hive = root(key)) {
        rights = kAllAccess;
        viaCurrentUser = false;
        return hive;
    }
    const Handle* open = handle(key);
    if (!open)
        return nullptr;
    rights = open->rights;
    viaCurrentUser = open->viaCurrentUser;
    return open->node;
}

std::wstring FakeKeyStore::pathOf(const Node* node) const
{
    std::wstring path;
    for (const Node* n = node; n; n = n->parent)
        path = n->parent ? L"\\" + n->name + path : n->name + path;
    return path;
}

std::wstring FakeKeyStore::viewPath(Node* base, std::wstring_view subkey, REGSAM rights)
{
    std::wstring path(subkey);
    // Only paths from the machine's root are redirected: the users'
    // Software is one key for both views, and a key opened in the 32-bit
    // view is already inside it.
    if (!(rights & KEY_WOW64_32KEY) || base->parent || base->name != L"HKLM")
        return path;
    constexpr std::wstring_view software = L"software";
    std::wstring head = lower(path.substr(0, software.size()));
    if (head != software || (path.size() > software.size() && path[software.size()] != L'\\'))
        return path;
    std::wstring rest = path.size() > software.size() ? path.substr(software.size() + 1) : std::wstring();
    if (lower(rest.substr(0, 11)) == L"wow6432node" && (rest.size() == 11 || rest[11] == L'\\'))
        return path;
    std::wstring result = path.substr(0, software.size()) + L"\\Wow6432Node";
    if (!rest.empty())
        result += L"\\" + rest;
    return result;
}

bool FakeKeyStore::splitPath(std::wstring_view subkey, std::vector<std::wstring>& parts)
{
    parts.clear();
    if (subkey.empty())
        return true;
    if (subkey.front() == L'\\')
        return false;
    std::size_t start = 0;
    while (start < subkey.size()) {
        std::size_t end = subkey.find(L'\\', start);
        if (end == std::wstring_view::npos)
            end = subkey.size();
        if (end == start)
            return false;  // an empty component in the middle
        parts.emplace_back(subkey.substr(start, end - start));
        start = end + 1;
    }
    return true;
}

FakeKeyStore::Node* FakeKeyStore::child(Node* node, std::wstring_view name)
{
    for (auto& c : node->children)
        if (sameName(c->name, name))
            return c.get();
    return nullptr;
}

std::pair<std::wstring, FakeKeyStore::Value>* FakeKeyStore::findValue(Node* node, std::wstring_view name)
{
    for (auto& v : node->values)
        if (sameName(v.first, name))
            return &v;
    return nullptr;
}

FakeKeyStore::Node* FakeKeyStore::find(HKEY hive, std::wstring_view subkey, View view) const
{
    Node* node = root(hive);
    if (!node)
        return nullptr;
    std::vector<std::wstring> parts;
    if (!splitPath(viewPath(node, subkey, viewRights(view)), parts))
        return nullptr;
    for (const std::wstring& part : parts) {
        node = child(node, part);
        if (!node)
            return nullptr;
    }
    return node;
}

FakeKeyStore::Node* FakeKeyStore::makePath(HKEY hive, std::wstring_view subkey, View view, bool isVolatile)
{
    Node* node = root(hive);
    std::vector<std::wstring> parts;
    if (!node || !splitPath(viewPath(node, subkey, viewRights(view)), parts))
        return nullptr;
    for (const std::wstring& part : parts) {
        Node* next = child(node, part);
        if (!next) {
            auto created = std::make_unique<Node>();
            created->name = part;
            created->parent = node;
            created->isVolatile = isVolatile || node->isVolatile;
            next = created.get();
            node->children.push_back(std::move(created));
        }
        node = next;
    }
    return node;
}

std::optional<LSTATUS> FakeKeyStore::faultFor(const Node* base, const std::wstring& subkeyInView) const
{
    std::wstring path = pathOf(base);
    if (!subkeyInView.empty())
        path += L"\\" + subkeyInView;
    while (!path.empty() && path.back() == L'\\')
        path.pop_back();
    auto it = m_openFaults.find(lower(path));
    if (it == m_openFaults.end())
        return std::nullopt;
    return it->second;
}

HKEY FakeKeyStore::newHandle(Node* node, REGSAM rights, bool viaCurrentUser)
{
    HKEY key = reinterpret_cast<HKEY>(m_nextHandle);
    m_nextHandle += 4;
    m_handles[key] = Handle{node, rights, viaCurrentUser};
    return key;
}

const FakeKeyStore::Handle* FakeKeyStore::handle(HKEY key) const
{
    auto it = m_handles.find(key);
    return it == m_handles.end() ? nullptr : &it->second;
}

std::vector<FakeKeyStore::Node*> FakeKeyStore::orderedChildren(Node* node) const
{
    std::vector<Node*> list;
    for (auto& c : node->children)
        list.push_back(c.get());
    if (m_keyOrder == Order::Alphabetical)
        std::stable_sort(list.begin(), list.end(), [](Node* a, Node* b) { return lower(a->name) < lower(b->name); });
    return list;
}

std::vector<std::pair<std::wstring, FakeKeyStore::Value>*> FakeKeyStore::orderedValues(Node* node) const
{
    std::vector<std::pair<std::wstring, Value>*> list;
    for (auto& v : node->values)
        list.push_back(&v);
    if (m_valueOrder == Order::Alphabetical)
        std::stable_sort(list.begin(), list.end(), [](auto* a, auto* b) { return lower(a->first) < lower(b->first); });
    return list;
}

void FakeKeyStore::dropVolatile(Node* node)
{
    for (auto it = node->children.begin(); it != node->children.end();) {
        if ((*it)->isVolatile) {
            std::vector<Node*> stack{it->get()};
            while (!stack.empty()) {
                Node* gone = stack.back();
                stack.pop_back();
                gone->deleted = true;
                for (auto& c : gone->children)
                    stack.push_back(c.get());
            }
            m_removed.push_back(std::move(*it));
            it = node->children.erase(it);
        } else {
            dropVolatile(it->get());
            ++it;
        }
    }
}

// ---- Setting up and looking

void FakeKeyStore::createKey(HKEY hive, std::wstring_view subkey, View view, bool isVolatile)
{
    makePath(hive, subkey, view, isVolatile);
}

void FakeKeyStore::putValue(HKEY hive, std::wstring_view subkey, std::wstring_view name, DWORD type,
                            const void* bytes, std::size_t size, View view)
{
    Node* node = makePath(hive, subkey, view, false);
    if (!node)
        return;
    Value value;
    value.type = type;
    const BYTE* begin = static_cast<const BYTE*>(bytes);
    value.bytes.assign(begin, begin + size);
    if (auto* existing = findValue(node, name))
        existing->second = std::move(value);
    else
        node->values.emplace_back(std::wstring(name), std::move(value));
}

void FakeKeyStore::putBytes(HKEY hive, std::wstring_view subkey, std::wstring_view name, DWORD type,
                            const std::vector<BYTE>& bytes, View view)
{
    putValue(hive, subkey, name, type, bytes.data(), bytes.size(), view);
}

void FakeKeyStore::putString(HKEY hive, std::wstring_view subkey, std::wstring_view name, std::wstring_view text,
                             DWORD type, View view)
{
    std::wstring stored(text);
    putValue(hive, subkey, name, type, stored.c_str(), (stored.size() + 1) * sizeof(wchar_t), view);
}

void FakeKeyStore::putStringWithoutTerminator(HKEY hive, std::wstring_view subkey, std::wstring_view name,
                                              std::wstring_view text, View view)
{
    putValue(hive, subkey, name, REG_SZ, text.data(), text.size() * sizeof(wchar_t), view);
}

void FakeKeyStore::putMultiString(HKEY hive, std::wstring_view subkey, std::wstring_view name,
                                  const std::vector<std::wstring>& strings, View view)
{
    std::wstring stored;
    for (const std::wstring& s : strings) {
        stored += s;
        stored.push_back(L'\0');
    }
    stored.push_back(L'\0');
    putValue(hive, subkey, name, REG_MULTI_SZ, stored.data(), stored.size() * sizeof(wchar_t), view);
}

void FakeKeyStore::putDword(HKEY hive, std::wstring_view subkey, std::wstring_view name, std::uint32_t value,
                            View view)
{
    putValue(hive, subkey, name, REG_DWORD, &value, sizeof value, view);
}

void FakeKeyStore::putQword(HKEY hive, std::wstring_view subkey, std::wstring_view name, std::uint64_t value,
                            View view)
{
    putValue(hive, subkey, name, REG_QWORD, &value, sizeof value, view);
}

void FakeKeyStore::setEnumerationOrder(Order keys, Order values)
{
    m_keyOrder = keys;
    m_valueOrder = values;
}

bool FakeKeyStore::keyExists(HKEY hive, std::wstring_view subkey, View view) const
{
    return find(hive, subkey, view) != nullptr;
}

bool FakeKeyStore::isVolatile(HKEY hive, std::wstring_view subkey, View view) const
{
    Node* node = find(hive, subkey, view);
    return node && node->isVolatile;
}

std::optional<FakeKeyStore::Value> FakeKeyStore::value(HKEY hive, std::wstring_view subkey, std::wstring_view name,
                                                       View view) const
{
    Node* node = find(hive, subkey, view);
    if (!node)
        return std::nullopt;
    auto* found = findValue(node, name);
    if (!found)
        return std::nullopt;
    return found->second;
}

std::optional<std::wstring> FakeKeyStore::stringValue(HKEY hive, std::wstring_view subkey, std::wstring_view name,
                                                      View view) const
{
    auto stored = value(hive, subkey, name, view);
    if (!stored || (stored->type != REG_SZ && stored->type != REG_EXPAND_SZ))
        return std::nullopt;
    std::wstring text(stored->bytes.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), stored->bytes.data(), text.size() * sizeof(wchar_t));
    text.resize(std::wcslen(text.c_str()));
    return text;
}

std::optional<std::uint32_t> FakeKeyStore::dwordValue(HKEY hive, std::wstring_view subkey, std::wstring_view name,
                                                      View view) const
{
    auto stored = value(hive, subkey, name, view);
    if (!stored || stored->type != REG_DWORD || stored->bytes.size() != sizeof(std::uint32_t))
        return std::nullopt;
    std::uint32_t number;
    std::memcpy(&number, stored->bytes.data(), sizeof number);
    return number;
}

std::optional<std::uint64_t> FakeKeyStore::qwordValue(HKEY hive, std::wstring_view subkey, std::wstring_view name,
                                                      View view) const
{
    auto stored = value(hive, subkey, name, view);
    if (!stored || stored->type != REG_QWORD || stored->bytes.size() != sizeof(std::uint64_t))
        return std::nullopt;
    std::uint64_t number;
    std::memcpy(&number, stored->bytes.data(), sizeof number);
    return number;
}

std::size_t FakeKeyStore::valueCount(HKEY hive, std::wstring_view subkey, View view) const
{
    Node* node = find(hive, subkey, view);
    return node ? node->values.size() : 0;
}

void FakeKeyStore::simulateReboot()
{
    for (auto& hive : m_hives)
        dropVolatile(hive.second.get());
}

void FakeKeyStore::failOpen(HKEY hive, std::wstring_view subkey, LSTATUS code, View view)
{
    Node* base = root(hive);
    if (!base)
        return;
    std::wstring path = viewPath(base, subkey, viewRights(view));
    std::wstring full = pathOf(base);
    if (!path.empty())
        full += L"\\" + path;
    while (!full.empty() && full.back() == L'\\')
        full.pop_back();
    m_openFaults[lower(full)] = code;
}

void FakeKeyStore::failOpenCurrentUser(LSTATUS code) { m_currentUserFault = code; }
void FakeKeyStore::failQueries(LSTATUS code) { m_queryFault = code; }
void FakeKeyStore::failSetValue(LSTATUS code) { m_setFault = code; }
void FakeKeyStore::failFlush(LSTATUS code) { m_flushFault = code; }

void FakeKeyStore::clearFaults()
{
    m_openFaults.clear();
    m_currentUserFault = m_queryFault = m_setFault = m_flushFault = ERROR_SUCCESS;
    m_expansionFails = false;
}

void FakeKeyStore::setEnvironment(std::wstring_view name, std::wstring_view value)
{
    m_environment[lower(name)] = std::wstring(value);
}

void FakeKeyStore::failExpansion(bool fail) { m_expansionFails = fail; }

std::vector<std::wstring> FakeKeyStore::openedPaths() const
{
    std::vector<std::wstring> paths;
    for (const OpenRecord& record : m_opens)
        paths.push_back(record.path);
    return paths;
}

// ---- platform::KeyStore

LSTATUS FakeKeyStore::RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD, REGSAM rights, PHKEY result)
{
    OpenRecord record{L"open", L"", rights, ERROR_SUCCESS, false};
    // A failed open hands out no handle.
    if (result)
        *result = nullptr;
    REGSAM baseRights = 0;
    Node* base = resolveBase(key, baseRights, record.viaCurrentUser);
    if (!base || !result) {
        record.status = base ? ERROR_INVALID_PARAMETER : ERROR_INVALID_HANDLE;
        m_opens.push_back(record);
        return record.status;
    }
    std::wstring inView = viewPath(base, subKey ? subKey : L"", rights);
    record.path = pathOf(base) + (inView.empty() ? L"" : L"\\" + inView);
    std::vector<std::wstring> parts;
    Node* node = base;
    if (!splitPath(inView, parts)) {
        record.status = ERROR_BAD_PATHNAME;
    } else if (auto fault = faultFor(base, inView)) {
        record.status = *fault;
    } else if (base->deleted) {
        record.status = ERROR_KEY_DELETED;
    } else {
        for (const std::wstring& part : parts) {
            node = child(node, part);
            if (!node) {
                record.status = ERROR_FILE_NOT_FOUND;
                break;
            }
        }
    }
    if (record.status == ERROR_SUCCESS)
        *result = newHandle(node, rights, record.viaCurrentUser);
    m_opens.push_back(record);
    return record.status;
}

LSTATUS FakeKeyStore::RegOpenCurrentUser(REGSAM rights, PHKEY result)
{
    OpenRecord record{L"user", L"HKCU", rights, m_currentUserFault, true};
    if (!result)
        record.status = ERROR_INVALID_PARAMETER;
    if (record.status == ERROR_SUCCESS)
        *result = newHandle(root(HKEY_CURRENT_USER), rights, true);
    m_opens.push_back(record);
    return record.status;
}

LSTATUS FakeKeyStore::RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM rights, PHKEY result,
                                      LPDWORD disposition)
{
    OpenRecord record{L"create", L"", rights, ERROR_SUCCESS, false};
    REGSAM baseRights = 0;
    Node* base = resolveBase(key, baseRights, record.viaCurrentUser);
    if (!base || !result) {
        record.status = base ? ERROR_INVALID_PARAMETER : ERROR_INVALID_HANDLE;
        m_opens.push_back(record);
        return record.status;
    }
    std::wstring inView = viewPath(base, subKey ? subKey : L"", rights);
    record.path = pathOf(base) + (inView.empty() ? L"" : L"\\" + inView);
    const bool makeVolatile = (options & REG_OPTION_VOLATILE) != 0;
    std::vector<std::wstring> parts;
    if (!splitPath(inView, parts)) {
        record.status = ERROR_BAD_PATHNAME;
    } else if (auto fault = faultFor(base, inView)) {
        record.status = *fault;
    } else if (base->deleted) {
        record.status = ERROR_KEY_DELETED;
    }
    if (record.status != ERROR_SUCCESS) {
        m_opens.push_back(record);
        return record.status;
    }
    Node* node = base;
    bool createdAny = false;
    for (const std::wstring& part : parts) {
        Node* next = child(node, part);
        if (!next) {
            // Below a volatile key only volatile keys may be made.
            if (node->isVolatile && !makeVolatile) {
                record.status = ERROR_CHILD_MUST_BE_VOLATILE;
                m_opens.push_back(record);
                return record.status;
            }
            auto created = std::make_unique<Node>();
            created->name = part;
            created->parent = node;
            created->isVolatile = makeVolatile;
            next = created.get();
            node->children.push_back(std::move(created));
            createdAny = true;
        }
        node = next;
    }
    if (disposition)
        *disposition = createdAny ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
    *result = newHandle(node, rights, record.viaCurrentUser);
    m_opens.push_back(record);
    return ERROR_SUCCESS;
}

LSTATUS FakeKeyStore::RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD type, LPBYTE data, LPDWORD size)
{
    ++m_queries;
    if (data && !size)
        return ERROR_INVALID_PARAMETER;
    const Handle* open = handle(key);
    if (!open)
        return ERROR_INVALID_HANDLE;
    // Asked for the size alone, the caller gets 0 unless a value is found.
    if (!data && size)
        *size = 0;
    if (!(open->rights & KEY_QUERY_VALUE))
        return ERROR_ACCESS_DENIED;
    if (open->node->deleted)
        return ERROR_KEY_DELETED;
    if (m_queryFault != ERROR_SUCCESS)
        return m_queryFault;
    auto* found = findValue(open->node, name ? name : L"");
    if (!found)
        return ERROR_FILE_NOT_FOUND;
    const Value& stored = found->second;
    if (type)
        *type = stored.type;
    const DWORD needed = static_cast<DWORD>(stored.bytes.size());
    if (!data) {
        if (size)
            *size = needed;
        return ERROR_SUCCESS;
    }
    if (*size < needed) {
        *size = needed;
        return ERROR_MORE_DATA;
    }
    if (needed)
        std::memcpy(data, stored.bytes.data(), needed);
    terminateText(stored.type, data, needed, *size);
    *size = needed;
    return ERROR_SUCCESS;
}

LSTATUS FakeKeyStore::RegSetValueExW(HKEY key, LPCWSTR name, DWORD type, const BYTE* data, DWORD size)
{
    if (!data && size)
        return ERROR_NOACCESS;
    // Text whose count leaves out a terminator that follows it in memory is
    // stored with the terminator.
    if (data && size >= sizeof(wchar_t) && isText(type)) {
        const wchar_t* text = reinterpret_cast<const wchar_t*>(data);
        if (text[size / sizeof(wchar_t) - 1] != L'\0' && text[size / sizeof(wchar_t)] == L'\0')
            size += sizeof(wchar_t);
    }
    const Handle* open = handle(key);
    if (!open)
        return ERROR_INVALID_HANDLE;
    if (!(open->rights & KEY_SET_VALUE))
        return ERROR_ACCESS_DENIED;
    if (open->node->deleted)
        return ERROR_KEY_DELETED;
    if (m_setFault != ERROR_SUCCESS)
        return m_setFault;
    Value value;
    value.type = type;
    if (size)
        value.bytes.assign(data, data + size);
    std::wstring valueName = name ? name : L"";
    if (auto* existing = findValue(open->node, valueName))
        existing->second = std::move(value);
    else
        open->node->values.emplace_back(valueName, std::move(value));
    return ERROR_SUCCESS;
}

LSTATUS FakeKeyStore::RegDeleteValueW(HKEY key, LPCWSTR name)
{
    const Handle* open = handle(key);
    if (!open)
        return ERROR_INVALID_HANDLE;
    if (!(open->rights & KEY_SET_VALUE))
        return ERROR_ACCESS_DENIED;
    if (open->node->deleted)
        return ERROR_KEY_DELETED;
    auto& values = open->node->values;
    std::wstring valueName = name ? name : L"";
    for (auto it = values.begin(); it != values.end(); ++it) {
        if (sameName(it->first, valueName)) {
            values.erase(it);
            return ERROR_SUCCESS;
        }
    }
    return ERROR_FILE_NOT_FOUND;
}

LSTATUS FakeKeyStore::RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength)
{
    REGSAM rights = 0;
    bool via = false;
    Node* node = resolveBase(key, rights, via);
    if (!node)
        return ERROR_INVALID_HANDLE;
    if (!(rights & KEY_ENUMERATE_SUB_KEYS))
        return ERROR_ACCESS_DENIED;
    if (!name || !nameLength)
        return ERROR_INVALID_PARAMETER;
    std::vector<Node*> list = orderedChildren(node);
    if (index >= list.size())
        return ERROR_NO_MORE_ITEMS;
    const std::wstring& found = list[index]->name;
    if (*nameLength < found.size() + 1)
        return ERROR_MORE_DATA;
    std::wmemcpy(name, found.c_str(), found.size() + 1);
    *nameLength = static_cast<DWORD>(found.size());
    return ERROR_SUCCESS;
}

LSTATUS FakeKeyStore::RegEnumValueW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength, LPDWORD type,
                                    LPBYTE data, LPDWORD dataSize)
{
    if ((data && !dataSize) || !name || !nameLength)
        return ERROR_INVALID_PARAMETER;
    REGSAM rights = 0;
    bool via = false;
    Node* node = resolveBase(key, rights, via);
    if (!node)
        return ERROR_INVALID_HANDLE;
    if (!(rights & KEY_QUERY_VALUE))
        return ERROR_ACCESS_DENIED;
    auto list = orderedValues(node);
    if (index >= list.size())
        return ERROR_NO_MORE_ITEMS;
    const std::wstring& found = list[index]->first;
    const Value& stored = list[index]->second;
    const DWORD needed = static_cast<DWORD>(stored.bytes.size());
    // Whatever doesn't fit, the type and the data's size are reported; a
    // name that doesn't fit is not given, nor is its length.
    LSTATUS status = ERROR_SUCCESS;
    if (*nameLength < found.size() + 1) {
        status = ERROR_MORE_DATA;
    } else {
        std::wmemcpy(name, found.c_str(), found.size() + 1);
        *nameLength = static_cast<DWORD>(found.size());
        if (data && *dataSize < needed) {
            status = ERROR_MORE_DATA;
        } else if (data) {
            if (needed)
                std::memcpy(data, stored.bytes.data(), needed);
            terminateText(stored.type, data, needed, *dataSize);
        }
    }
    if (type)
        *type = stored.type;
    if (dataSize)
        *dataSize = needed;
    return status;
}

LSTATUS FakeKeyStore::RegFlushKey(HKEY key)
{
    REGSAM rights = 0;
    bool via = false;
    if (!resolveBase(key, rights, via))
        return ERROR_INVALID_HANDLE;
    ++m_flushes;
    return m_flushFault;
}

LSTATUS FakeKeyStore::RegCloseKey(HKEY key)
{
    if (root(key))
        return ERROR_SUCCESS;
    auto it = m_handles.find(key);
    if (it == m_handles.end())
        return ERROR_INVALID_HANDLE;
    m_handles.erase(it);
    ++m_closes;
    return ERROR_SUCCESS;
}

DWORD FakeKeyStore::ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR destination, DWORD size)
{
    ++m_expansions;
    if (m_expansionFails || !source)
        return 0;
    std::wstring expanded;
    const std::wstring text(source);
    std::size_t i = 0;
    while (i < text.size()) {
        if (text[i] == L'%') {
            std::size_t close = text.find(L'%', i + 1);
            if (close != std::wstring::npos) {
                auto it = m_environment.find(lower(text.substr(i + 1, close - i - 1)));
                if (it != m_environment.end()) {
                    expanded += it->second;
                    i = close + 1;
                    continue;
                }
                // Unknown names stay as written, and the closing mark may
                // open the next name.
                expanded += text.substr(i, close - i);
                i = close;
                continue;
            }
        }
        expanded.push_back(text[i]);
        ++i;
    }
    const DWORD needed = static_cast<DWORD>(expanded.size() + 1);
    if (destination && size >= needed)
        std::wmemcpy(destination, expanded.c_str(), needed);
    return needed;
}

}  // namespace fakes
