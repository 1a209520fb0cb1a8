// The delivery client's boundary types as the tool builds them.
#include "platform/win32/DeliveryWire.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "core/win.h"

using platform::GiveAwayList;
using platform::WireText;

namespace {

const char* textOf(const NarrowText& text) { return text.capacity > 15 ? text.data.heapText : text.data.inlineText; }

// What the library does with a list it got: give every block back to the
// process heap. False when a block isn't the heap's.
bool freeLikeTheLibrary(const NarrowTextList& list)
{
    HANDLE heap = ::GetProcessHeap();
    bool ok = true;
    for (NarrowText* text = list.first; text != list.last; ++text)
        if (text->capacity > 15)
            ok = ::HeapFree(heap, 0, text->data.heapText) && ok;
    if (list.first)
        ok = ::HeapFree(heap, 0, list.first) && ok;
    return ok;
}

}  // namespace

TEST(WireText, FifteenBytesOrFewerLieInTheObject)
{
    for (const std::string& text : {std::string(), std::string("a"), std::string(15, 'x')}) {
        WireText wire(text);
        const NarrowText& t = wire.get();
        EXPECT_EQ(15u, t.capacity);
        EXPECT_EQ(text.size(), t.length);
        EXPECT_EQ(0, std::memcmp(t.data.inlineText, text.c_str(), text.size() + 1)) << text;
    }
}

TEST(WireText, LongerTextsLieBehindThePointerTerminated)
{
    const std::string text(16, 'y');
    WireText wire(text);
    const NarrowText& t = wire.get();
    EXPECT_EQ(16u, t.length);
    EXPECT_GT(t.capacity, 15u);
    EXPECT_GE(t.capacity, t.length);
    EXPECT_STREQ(text.c_str(), t.data.heapText);
}

TEST(WireText, Utf8BytesAreCountedAsBytes)
{
    WireText wire("\xC3\xA9t\xC3\xA9");
    EXPECT_EQ(5u, wire.get().length);
    EXPECT_STREQ("\xC3\xA9t\xC3\xA9", textOf(wire.get()));
}

TEST(GiveAwayList, EmptyListIsThreeNullPointers)
{
    NarrowTextList list = GiveAwayList({});
    EXPECT_EQ(nullptr, list.first);
    EXPECT_EQ(nullptr, list.last);
    EXPECT_EQ(nullptr, list.end);
}

TEST(GiveAwayList, ItemsInOrderWithStorageFromTheProcessHeap)
{
    const std::vector<std::string> items = {"short", std::string(40, 'L'), "", std::string(16, 'M')};
    NarrowTextList list = GiveAwayList(items);
    ASSERT_EQ(items.size(), static_cast<std::size_t>(list.last - list.first));
    EXPECT_EQ(list.last, list.end);
    for (std::size_t i = 0; i < items.size(); ++i) {
        EXPECT_EQ(items[i].size(), list.first[i].length);
        EXPECT_STREQ(items[i].c_str(), textOf(list.first[i]));
    }
    // The blocks are the process heap's, of the sizes the items need.
    HANDLE heap = ::GetProcessHeap();
    EXPECT_EQ(items.size() * sizeof(NarrowText), ::HeapSize(heap, 0, list.first));
    EXPECT_EQ(41u, ::HeapSize(heap, 0, list.first[1].data.heapText));
    EXPECT_EQ(17u, ::HeapSize(heap, 0, list.first[3].data.heapText));
    EXPECT_TRUE(freeLikeTheLibrary(list));
}
