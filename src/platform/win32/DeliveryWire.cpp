#include "platform/win32/DeliveryWire.h"

#include <cstring>

#include "core/string/corestring.h"
#include "core/win.h"

namespace platform {

namespace {

constexpr std::size_t kInlineBytes = 15;

// Lays `value` out as the boundary wants it; `heap` holds size + 1 bytes when
// the text is longer than what fits in the object.
void fill(NarrowText& text, const std::string& value, char* heap)
{
    text = NarrowText{};
    text.length = value.size();
    if (value.size() <= kInlineBytes) {
        std::memcpy(text.data.inlineText, value.c_str(), value.size() + 1);
        text.capacity = kInlineBytes;
    } else {
        std::memcpy(heap, value.c_str(), value.size() + 1);
        text.data.heapText = heap;
        text.capacity = value.size();
    }
}

void* fromProcessHeap(std::size_t bytes)
{
    void* block = ::HeapAlloc(::GetProcessHeap(), 0, bytes);
    if (!block)
        CORE::throwOutOfMem();
    return block;
}

}  // namespace

WireText::WireText(const std::string& text)
{
    if (text.size() > kInlineBytes)
        m_heap.reset(new char[text.size() + 1]);
    fill(m_text, text, m_heap.get());
}

NarrowTextList GiveAwayList(const std::vector<std::string>& items)
{
    NarrowTextList list{};
    if (items.empty())
        return list;
    auto* texts = static_cast<NarrowText*>(fromProcessHeap(items.size() * sizeof(NarrowText)));
    for (std::size_t i = 0; i < items.size(); ++i) {
        char* heap = items[i].size() > kInlineBytes ? static_cast<char*>(fromProcessHeap(items[i].size() + 1)) : nullptr;
        fill(texts[i], items[i], heap);
    }
    list.first = texts;
    list.last = texts + items.size();
    list.end = list.last;
    return list;
}

}  // namespace platform
