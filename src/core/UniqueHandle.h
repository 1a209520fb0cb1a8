#pragma once
// One owner for every kind of handle the program holds. A kind's traits give
// its handle type, its invalid value (NULL for most, INVALID_HANDLE_VALUE for
// files and find handles) and how it is closed. Move-only. Closing keeps the
// thread's last error, since the owner usually goes out of scope while its
// caller is about to report a failure's code.
#include <utility>

#include "core/win.h"

namespace CORE {

template <class Traits> class UniqueHandle {
public:
    using Handle = typename Traits::Handle;

    UniqueHandle() noexcept = default;
    explicit UniqueHandle(Handle handle) noexcept : m_handle(handle) {}
    UniqueHandle(UniqueHandle&& other) noexcept : m_handle(other.release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;
    ~UniqueHandle() { reset(); }

    bool valid() const noexcept { return m_handle != Traits::invalid(); }
    explicit operator bool() const noexcept { return valid(); }
    Handle get() const noexcept { return m_handle; }
    // For calls that hand a new handle out through a pointer; whatever was
    // held before is closed first.
    Handle* out() noexcept
    {
        reset();
        return &m_handle;
    }
    // Gives the handle up without closing it.
    Handle release() noexcept { return std::exchange(m_handle, Traits::invalid()); }
    void reset(Handle handle = Traits::invalid()) noexcept
    {
        Handle old = std::exchange(m_handle, handle);
        if (old == Traits::invalid())
            return;
        const DWORD saved = ::GetLastError();
        Traits::close(old);
        ::SetLastError(saved);
    }

private:
    Handle m_handle = Traits::invalid();
};

// A COM interface pointer, released once.
template <class Interface> struct ComTraits {
    using Handle = Interface*;
    static Handle invalid() noexcept { return nullptr; }
    static void close(Handle p) noexcept { p->Release(); }
};
template <class Interface> class ComPtr : public UniqueHandle<ComTraits<Interface>> {
public:
    using UniqueHandle<ComTraits<Interface>>::UniqueHandle;
    Interface* operator->() const noexcept { return this->get(); }
};

// A block the system allocated for the caller (FORMAT_MESSAGE_ALLOCATE_BUFFER).
template <class Pointer> struct LocalMemoryTraits {
    using Handle = Pointer;
    static Handle invalid() noexcept { return nullptr; }
    static void close(Handle p) noexcept { ::LocalFree(p); }
};
template <class Pointer> using LocalMemory = UniqueHandle<LocalMemoryTraits<Pointer>>;

}  // namespace CORE
