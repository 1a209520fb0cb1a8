// The boundary's texts and lists: what the client reads of them, and that it
// gives a handed-over list's memory back to the process heap.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "BoundaryText.h"

namespace {

// Blocks of a megabyte: the heap keeps blocks that large apart from the small
// ones and hands their memory back when they are freed, so a freed block is
// never taken again by a small allocation and HeapValidate can tell it is
// gone.
constexpr std::size_t kBig = 1 << 20;

NarrowText inlineText(const char* text)
{
    NarrowText t{};
    t.length = std::strlen(text);
    std::memcpy(t.data.inlineText, text, t.length + 1);
    t.capacity = 15;
    return t;
}

// A heap text as the tool makes it: from the process heap, capacity above 15.
NarrowText heapText(const std::string& text, std::size_t blockBytes = kBig)
{
    NarrowText t{};
    char* block = static_cast<char*>(::HeapAlloc(::GetProcessHeap(), 0, blockBytes));
    std::memcpy(block, text.c_str(), text.size() + 1);
    t.data.heapText = block;
    t.length = text.size();
    t.capacity = blockBytes - 1;
    return t;
}

NarrowTextList heapList(const std::vector<NarrowText>& items)
{
    NarrowTextList list{};
    auto* array = static_cast<NarrowText*>(::HeapAlloc(::GetProcessHeap(), 0, kBig));
    for (std::size_t i = 0; i < items.size(); ++i)
        array[i] = items[i];
    list.first = array;
    list.last = array + items.size();
    list.end = list.last;
    return list;
}

bool stillAllocated(const void* block) { return ::HeapValidate(::GetProcessHeap(), 0, block) != FALSE; }

TEST(BoundaryText, ReadsAnInlineText)
{
    NarrowText t = inlineText("abc");
    std::string out, why;
    ASSERT_TRUE(mirel::readText(t, out, why));
    EXPECT_EQ(out, "abc");
}

TEST(BoundaryText, ReadsFifteenBytesInline)
{
    NarrowText t = inlineText("123456789012345");
    std::string out, why;
    ASSERT_TRUE(mirel::readText(t, out, why));
    EXPECT_EQ(out, "123456789012345");
}

TEST(BoundaryText, ReadsAHeapTextAndLeavesItToTheCaller)
{
    NarrowText t = heapText("https://localhost/a/long/path.msi", 64);
    std::string out, why;
    ASSERT_TRUE(mirel::readText(t, out, why));
    EXPECT_EQ(out, "https://localhost/a/long/path.msi");
    EXPECT_TRUE(stillAllocated(t.data.heapText));
    ::HeapFree(::GetProcessHeap(), 0, t.data.heapText);
}

TEST(BoundaryText, TakesTheLengthNotTheTerminator)
{
    NarrowText t = inlineText("abcdef");
    t.length = 3;
    std::string out, why;
    ASSERT_TRUE(mirel::readText(t, out, why));
    EXPECT_EQ(out, "abc");
}

TEST(BoundaryText, RefusesACapacityBelowFifteen)
{
    NarrowText t = inlineText("abc");
    t.capacity = 3;
    std::string out, why;
    EXPECT_FALSE(mirel::readText(t, out, why));
    EXPECT_EQ(why, "its capacity is below 15");
}

TEST(BoundaryText, RefusesALengthAboveTheCapacity)
{
    NarrowText t = inlineText("abc");
    t.length = 16;
    std::string out, why;
    EXPECT_FALSE(mirel::readText(t, out, why));
    EXPECT_EQ(why, "its length is above its capacity");
}

TEST(BoundaryText, RefusesAHeapTextWithoutPointer)
{
    NarrowText t{};
    t.length = 20;
    t.capacity = 40;
    std::string out, why;
    EXPECT_FALSE(mirel::readText(t, out, why));
    EXPECT_EQ(why, "its text pointer is null");
}

TEST(BoundaryText, RefusesATextAboveSixtyFourKilobytes)
{
    NarrowText t{};
    t.length = 65537;
    t.capacity = 70000;
    t.data.heapText = reinterpret_cast<char*>(8);  // never read: the length is refused first
    std::string out, why;
    EXPECT_FALSE(mirel::readText(t, out, why));
    EXPECT_EQ(why, "it is longer than 65536 bytes");
}

TEST(BoundaryText, TakesAnEmptyListOfNullPointers)
{
    mirel::TakenList taken = mirel::takeList(NarrowTextList{});
    EXPECT_TRUE(taken.valid);
    EXPECT_TRUE(taken.items.empty());
    EXPECT_EQ(taken.released, 0u);
}

TEST(BoundaryText, CopiesTheItemsAndFreesEveryHeapBlock)
{
    const std::string longUrl = "https://localhost:8443/packages/agent-8.12.0.msi";
    NarrowTextList list = heapList({heapText(longUrl), inlineText("short"), heapText("https://mirror.example/x.msi")});
    const void* array = list.first;
    const void* first = list.first[0].data.heapText;
    const void* third = list.first[2].data.heapText;

    mirel::TakenList taken = mirel::takeList(list);

    EXPECT_FALSE(stillAllocated(array));
    EXPECT_FALSE(stillAllocated(first));
    EXPECT_FALSE(stillAllocated(third));
    ASSERT_TRUE(taken.valid);
    ASSERT_EQ(taken.items.size(), 3u);
    EXPECT_EQ(taken.items[0], longUrl);
    EXPECT_EQ(taken.items[1], "short");
    EXPECT_EQ(taken.items[2], "https://mirror.example/x.msi");
    EXPECT_EQ(taken.released, 3u);
    EXPECT_EQ(taken.notReleased, 0u);
}

TEST(BoundaryText, LeavesAnArrayThatIsNotTheHeapsAlone)
{
    // An array on the stack: freeing it would corrupt the heap, so it is
    // neither read nor freed.
    NarrowText items[1] = {inlineText("x")};
    NarrowTextList list{items, items + 1, items + 1};
    mirel::TakenList taken = mirel::takeList(list);
    EXPECT_FALSE(taken.valid);
    EXPECT_EQ(taken.why, "its array is not a block of the process heap");
    EXPECT_TRUE(taken.items.empty());
    EXPECT_EQ(taken.notReleased, 1u);
    EXPECT_EQ(std::string(items[0].data.inlineText), "x");
}

TEST(BoundaryText, KeepsAHeapTextThatIsNotTheHeapsButFreesTheRest)
{
    char foreign[64] = "https://localhost/not/from/the/heap.msi";
    NarrowText odd{};
    odd.data.heapText = foreign;
    odd.length = std::strlen(foreign);
    odd.capacity = 63;
    NarrowTextList list = heapList({odd});
    const void* array = list.first;
    mirel::TakenList taken = mirel::takeList(list);
    EXPECT_TRUE(taken.valid);
    ASSERT_EQ(taken.items.size(), 1u);
    EXPECT_EQ(taken.items[0], "https://localhost/not/from/the/heap.msi");
    EXPECT_EQ(taken.notReleased, 1u);
    EXPECT_FALSE(stillAllocated(array));
}

TEST(BoundaryText, RefusesAListWhosePointersAreOutOfOrder)
{
    NarrowText items[2] = {inlineText("a"), inlineText("b")};
    NarrowTextList list{items + 2, items, items + 2};
    mirel::TakenList taken = mirel::takeList(list);
    EXPECT_FALSE(taken.valid);
    EXPECT_EQ(taken.why, "its pointers are out of order");
}

TEST(BoundaryText, RefusesANullFirstWithOtherPointersSet)
{
    NarrowText items[1] = {inlineText("a")};
    NarrowTextList list{nullptr, items + 1, items + 1};
    mirel::TakenList taken = mirel::takeList(list);
    EXPECT_FALSE(taken.valid);
    EXPECT_EQ(taken.why, "its first pointer is null but its others aren't");
}

TEST(BoundaryText, NamesTheMalformedItemAndStillFreesTheList)
{
    NarrowText bad = inlineText("a");
    bad.capacity = 2;
    NarrowTextList list = heapList({inlineText("ok"), bad});
    const void* array = list.first;
    mirel::TakenList taken = mirel::takeList(list);
    EXPECT_FALSE(taken.valid);
    EXPECT_EQ(taken.why, "item 2: its capacity is below 15");
    EXPECT_FALSE(stillAllocated(array));
}

TEST(BoundaryText, ReadsTheHandlesOfARun)
{
    int a = 0, b = 0;
    void* handles[2] = {&a, &b};
    DownloadHandleList list{handles, handles + 2, handles + 2};
    std::vector<void*> out;
    std::string why;
    ASSERT_TRUE(mirel::readHandles(list, out, why));
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0], &a);
    EXPECT_EQ(out[1], &b);
}

TEST(BoundaryText, RefusesHandlesOutOfOrder)
{
    void* handles[2] = {nullptr, nullptr};
    DownloadHandleList list{handles + 2, handles, handles + 2};
    std::vector<void*> out;
    std::string why;
    EXPECT_FALSE(mirel::readHandles(list, out, why));
    EXPECT_EQ(why, "its pointers are out of order");
}

}  // namespace
