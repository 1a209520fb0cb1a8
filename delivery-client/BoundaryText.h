#pragma once
// Reading the boundary's texts and lists (mirel_types.h), and giving back
// the lists the caller hands over.
#include <cstddef>
#include <string>
#include <vector>

#include "mirel_types.h"

namespace mirel {

// Longest text taken from the caller; beyond it the text is refused rather
// than copied (a URL, a path or a thumbprint is never near this).
constexpr std::size_t kMaxBoundaryText = 64 * 1024;
// Most items taken from one list.
constexpr std::size_t kMaxListItems = 1024;

// Copies a text lent by reference. False, with `why`, when its layout can't
// be a text of the boundary (capacity below 15, length above capacity, a
// heap text without pointer, too long); nothing is read then.
bool readText(const NarrowText& text, std::string& out, std::string& why);

// A list handed over by value: its items copied, then its memory given back
// to the process heap (array and every heap text), as mirel_types.h says.
struct TakenList {
    std::vector<std::string> items;
    bool valid = true;            // false when the list's layout was refused
    std::string why;              // what was wrong with it
    std::size_t released = 0;     // blocks given back with HeapFree
    std::size_t notReleased = 0;  // blocks that weren't the process heap's: kept, never freed
};
TakenList takeList(const NarrowTextList& list);

// The handles of a run's list; false with `why` when the list's pointers
// can't be a list.
bool readHandles(const DownloadHandleList& list, std::vector<void*>& handles, std::string& why);

}  // namespace mirel
