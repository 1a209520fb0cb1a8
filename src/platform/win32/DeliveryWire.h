#pragma once
// The delivery client's boundary types built from the tool's texts.
#include <memory>
#include <string>
#include <vector>

#include "mirel_types.h"

namespace platform {

// A text the tool lends to the library for one call: 15 bytes or fewer lie
// in the object itself, longer ones behind the pointer, zero-terminated.
class WireText {
public:
    explicit WireText(const std::string& text);
    WireText(const WireText&) = delete;
    WireText& operator=(const WireText&) = delete;
    const NarrowText& get() const { return m_text; }

private:
    NarrowText m_text{};
    std::unique_ptr<char[]> m_heap;
};

// A list handed to the library by value: the library owns the copy it gets.
// Its array and every text longer than 15 bytes come from the process heap
// (HeapAlloc on GetProcessHeap), and the library gives them back there with
// HeapFree, whichever runtime it was built with. Null pointers for an empty
// list.
NarrowTextList GiveAwayList(const std::vector<std::string>& items);

}  // namespace platform
