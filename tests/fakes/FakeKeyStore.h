#pragma once
// An in-memory registry for unit tests. Keys and value names are matched
// without regard to case; values keep their type and raw bytes. Every open
// handle is tracked, so tests can check that nothing leaks, and every open
// or create is logged, so tests can check which keys were looked at.
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Services.h"

namespace fakes {

class FakeKeyStore final : public platform::KeyStore {
public:
    // The 32-bit view lives under "Wow6432Node" below "Software", as on a
    // 64-bit machine; everything outside "Software" is shared.
    enum class View { Native, Wow32 };
    // Windows lists values in insertion order, Wine alphabetically.
    enum class Order { Insertion, Alphabetical };

    struct Value {
        DWORD type = REG_NONE;
        std::vector<BYTE> bytes;
    };

    // One RegOpenKeyExW, RegCreateKeyExW or RegOpenCurrentUser call.
    struct OpenRecord {
        std::wstring operation;  // L"open", L"create", L"user"
        std::wstring path;       // the key as reached, hive word first: L"HKLM\\Software\\X"
        REGSAM rights = 0;
        LSTATUS status = ERROR_SUCCESS;
        bool viaCurrentUser = false;  // below the handle of RegOpenCurrentUser
    };

    FakeKeyStore();
    ~FakeKeyStore() override;
    FakeKeyStore(const FakeKeyStore&) = delete;
    FakeKeyStore& operator=(const FakeKeyStore&) = delete;

    // ---- Setting up. subkey is relative to the hive, "" for the hive root.
    void createKey(HKEY hive, std::wstring_view subkey, View view = View::Native, bool isVolatile = false);
    void putValue(HKEY hive, std::wstring_view subkey, std::wstring_view name, DWORD type, const void* bytes,
                  std::size_t size, View view = View::Native);
    void putBytes(HKEY hive, std::wstring_view subkey, std::wstring_view name, DWORD type,
                  const std::vector<BYTE>& bytes, View view = View::Native);
    // The text with its terminator, as RegSetValueExW callers store it.
    void putString(HKEY hive, std::wstring_view subkey, std::wstring_view name, std::wstring_view text,
                   DWORD type = REG_SZ, View view = View::Native);
    // The text's characters only, as careless writers store it.
    void putStringWithoutTerminator(HKEY hive, std::wstring_view subkey, std::wstring_view name,
                                    std::wstring_view text, View view = View::Native);
    // Each string with its terminator, then the closing empty string.
    void putMultiString(HKEY hive, std::wstring_view subkey, std::wstring_view name,
                        const std::vector<std::wstring>& strings, View view = View::Native);
    void putDword(HKEY hive, std::wstring_view subkey, std::wstring_view name, std::uint32_t value,
                  View view = View::Native);
    void putQword(HKEY hive, std::wstring_view subkey, std::wstring_view name, std::uint64_t value,
                  View view = View::Native);
    void setEnumerationOrder(Order keys, Order values);

    // ---- Looking at the store without going through handles.
    bool keyExists(HKEY hive, std::wstring_view subkey, View view = View::Native) const;
    bool isVolatile(HKEY hive, std::wstring_view subkey, View view = View::Native) const;
    std::optional<Value> value(HKEY hive, std::wstring_view subkey, std::wstring_view name,
                               View view = View::Native) const;
    // The stored text of a REG_SZ/REG_EXPAND_SZ, cut at its first terminator.
    std::optional<std::wstring> stringValue(HKEY hive, std::wstring_view subkey, std::wstring_view name,
                                            View view = View::Native) const;
    std::optional<std::uint32_t> dwordValue(HKEY hive, std::wstring_view subkey, std::wstring_view name,
                                            View view = View::Native) const;
    std::optional<std::uint64_t> qwordValue(HKEY hive, std::wstring_view subkey, std::wstring_view name,
                                            View view = View::Native) const;
    std::size_t valueCount(HKEY hive, std::wstring_view subkey, View view = View::Native) const;

    // ---- Machine events and faults.
    // Volatile keys and everything below them are gone after a restart.
    void simulateReboot();
    // Opening or creating exactly this key fails with code from now on.
    void failOpen(HKEY hive, std::wstring_view subkey, LSTATUS code, View view = View::Native);
    void failOpenCurrentUser(LSTATUS code);
    // Every RegQueryValueExW / RegSetValueExW / RegFlushKey fails with code (0: no fault).
    void failQueries(LSTATUS code);
    void failSetValue(LSTATUS code);
    void failFlush(LSTATUS code);
    void clearFaults();
    void setEnvironment(std::wstring_view name, std::wstring_view value);
    // ExpandEnvironmentStringsW answers 0 (failure) from now on.
    void failExpansion(bool fail);

    // ---- What happened.
    const std::vector<OpenRecord>& opens() const { return m_opens; }
    // The paths of the successful and failed opens, in call order.
    std::vector<std::wstring> openedPaths() const;
    void clearLog() { m_opens.clear(); }
    std::size_t openHandleCount() const { return m_handles.size(); }
    std::size_t queryCount() const { return m_queries; }
    std::size_t flushCount() const { return m_flushes; }
    std::size_t closeCount() const { return m_closes; }
    std::size_t expandCount() const { return m_expansions; }

    // ---- platform::KeyStore
    LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM rights, PHKEY result) override;
    LSTATUS RegOpenCurrentUser(REGSAM rights, PHKEY result) override;
    LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM rights, PHKEY result,
                            LPDWORD disposition) override;
    LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD type, LPBYTE data, LPDWORD size) override;
    LSTATUS RegSetValueExW(HKEY key, LPCWSTR name, DWORD type, const BYTE* data, DWORD size) override;
    LSTATUS RegDeleteValueW(HKEY key, LPCWSTR name) override;
    // nameLength: in, the buffer's size in characters with room for the
    // terminator; out, the name's length without it. Too small a buffer
    // gives ERROR_MORE_DATA and leaves the count alone, as Windows does.
    LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength) override;
    LSTATUS RegEnumValueW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength, LPDWORD type, LPBYTE data,
                          LPDWORD dataSize) override;
    LSTATUS RegFlushKey(HKEY key) override;
    LSTATUS RegCloseKey(HKEY key) override;
    DWORD ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR destination, DWORD size) override;

private:
    struct Node {
        std::wstring name;
        Node* parent = nullptr;
        bool isVolatile = false;
        bool deleted = false;
        std::vector<std::unique_ptr<Node>> children;
        std::vector<std::pair<std::wstring, Value>> values;
    };
    struct Handle {
        Node* node;
        REGSAM rights;
        bool viaCurrentUser;
    };

    Node* root(HKEY hive) const;
    Node* resolveBase(HKEY key, REGSAM& rights, bool& viaCurrentUser) const;
    std::wstring pathOf(const Node* node) const;
    static std::wstring viewPath(Node* base, std::wstring_view subkey, REGSAM rights);
    static bool splitPath(std::wstring_view subkey, std::vector<std::wstring>& parts);
    static Node* child(Node* node, std::wstring_view name);
    static std::pair<std::wstring, Value>* findValue(Node* node, std::wstring_view name);
    Node* find(HKEY hive, std::wstring_view subkey, View view) const;
    Node* makePath(HKEY hive, std::wstring_view subkey, View view, bool isVolatile);
    std::optional<LSTATUS> faultFor(const Node* base, const std::wstring& subkeyInView) const;
    HKEY newHandle(Node* node, REGSAM rights, bool viaCurrentUser);
    const Handle* handle(HKEY key) const;
    std::vector<Node*> orderedChildren(Node* node) const;
    std::vector<std::pair<std::wstring, Value>*> orderedValues(Node* node) const;
    void dropVolatile(Node* node);

    std::map<HKEY, std::unique_ptr<Node>> m_hives;
    std::map<HKEY, Handle> m_handles;
    std::uintptr_t m_nextHandle = 0x10000;
    std::vector<std::unique_ptr<Node>> m_removed;  // kept so that stale handles stay harmless
    std::map<std::wstring, LSTATUS> m_openFaults;  // lower-case full path -> code
    LSTATUS m_currentUserFault = ERROR_SUCCESS;
    LSTATUS m_queryFault = ERROR_SUCCESS;
    LSTATUS m_setFault = ERROR_SUCCESS;
    LSTATUS m_flushFault = ERROR_SUCCESS;
    bool m_expansionFails = false;
    std::map<std::wstring, std::wstring> m_environment;  // lower-case name -> value
    Order m_keyOrder = Order::Insertion;
    Order m_valueOrder = Order::Insertion;
    std::vector<OpenRecord> m_opens;
    std::size_t m_queries = 0;
    std::size_t m_flushes = 0;
    std::size_t m_closes = 0;
    std::size_t m_expansions = 0;
};

// The current services with the key store replaced, to hand to
// ScopedServices: ScopedServices scope{withKeys(store)};
platform::Services withKeys(platform::KeyStore& keys);

}  // namespace fakes
