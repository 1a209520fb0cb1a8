#include "BoundaryText.h"

#include <windows.h>

#include <cstdint>

namespace mirel {

namespace {

constexpr std::uint64_t kInline = 15;

// A block the caller says it took from the process heap: given back only
// when the heap knows it, since HeapFree of a foreign pointer would corrupt
// the heap instead of failing.
bool release(void* block)
{
    if (!block)
        return true;
    HANDLE heap = ::GetProcessHeap();
    if (!::HeapValidate(heap, 0, block))
        return false;
    return ::HeapFree(heap, 0, block) != FALSE;
}

}  // namespace

bool readText(const NarrowText& text, std::string& out, std::string& why)
{
    out.clear();
    if (text.capacity < kInline) {
        why = "its capacity is below 15";
        return false;
    }
    if (text.length > text.capacity) {
        why = "its length is above its capacity";
        return false;
    }
    if (text.length > kMaxBoundaryText) {
        why = "it is longer than 65536 bytes";
        return false;
    }
    if (text.capacity == kInline) {
        out.assign(text.data.inlineText, static_cast<std::size_t>(text.length));
        return true;
    }
    if (!text.data.heapText) {
        why = "its text pointer is null";
        return false;
    }
    out.assign(text.data.heapText, static_cast<std::size_t>(text.length));
    return true;
}

TakenList takeList(const NarrowTextList& list)
{
    TakenList taken;
    if (!list.first) {
        if (list.last || list.end) {
            taken.valid = false;
            taken.why = "its first pointer is null but its others aren't";
        }
        return taken;
    }
    if (list.last < list.first || list.end < list.last) {
        // Nothing can be trusted about its storage: neither read nor freed.
        taken.valid = false;
        taken.why = "its pointers are out of order";
        return taken;
    }
    const std::size_t count = static_cast<std::size_t>(list.last - list.first);
    if (count > kMaxListItems) {
        taken.valid = false;
        taken.why = "it has more than 1024 items";
        return taken;
    }
    // The array must be the process heap's before anything in it is read:
    // a list that isn't has an unknown owner.
    if (!::HeapValidate(::GetProcessHeap(), 0, list.first)) {
        taken.valid = false;
        taken.why = "its array is not a block of the process heap";
        taken.notReleased = 1;
        return taken;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const NarrowText& item = list.first[i];
        std::string text;
        std::string why;
        if (!readText(item, text, why)) {
            if (taken.valid) {
                taken.valid = false;
                taken.why = "item " + std::to_string(i + 1) + ": " + why;
            }
        } else {
            taken.items.push_back(std::move(text));
        }
        if (item.capacity > kInline && item.data.heapText) {
            if (release(item.data.heapText))
                ++taken.released;
            else
                ++taken.notReleased;
        }
    }
    if (release(list.first))
        ++taken.released;
    else
        ++taken.notReleased;
    return taken;
}

bool readHandles(const DownloadHandleList& list, std::vector<void*>& handles, std::string& why)
{
    handles.clear();
    if (!list.first) {
        if (list.last) {
            why = "its first pointer is null but its last isn't";
            return false;
        }
        return true;
    }
    if (list.last < list.first) {
        why = "its pointers are out of order";
        return false;
    }
    const std::size_t count = static_cast<std::size_t>(list.last - list.first);
    if (count > kMaxListItems) {
        why = "it has more than 1024 items";
        return false;
    }
    handles.assign(list.first, list.last);
    return true;
}

}  // namespace mirel
