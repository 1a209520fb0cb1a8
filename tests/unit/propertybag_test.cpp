#include "core/propertybag.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/FakePlatform.h"

using CORE::corestring;
using CORE::PropertyBag;
using fakes::FakePlatform;

namespace {

const int kTolerant = 0;
const int kStrict = 1;

// Parses `text` non-quietly, expects failure with an empty bag, and gives
// back the lines the failure wrote to the tool log.
std::vector<std::wstring> failureLines(const wchar_t* text, int strict)
{
    FakePlatform p;
    PropertyBag bag;
    EXPECT_FALSE(bag.Parse(text, false, strict));
    EXPECT_EQ(0u, bag.Count());
    return p.logLines();
}

std::vector<std::wstring> one(const std::wstring& message, unsigned line, unsigned column)
{
    return {L"PropertyBag Parse failed: " + message + L", line=" + std::to_wstring(line) + L", col=" +
            std::to_wstring(column)};
}

const PropertyBag::Item& itemAt(const PropertyBag& bag, size_t i) { return *bag.content().items.at(i); }
std::wstring nameAt(const PropertyBag& bag, size_t i) { return itemAt(bag, i).name.c_str(); }
std::wstring valueAt(const PropertyBag& bag, size_t i) { return itemAt(bag, i).value.c_str(); }

// The bytes of a BINARY item's value, or a marker when it isn't binary.
std::string bytesOf(const corestring& value)
{
    if (!value.isBinary())
        return "<not binary>";
    size_t n = value.byteLength() & ~CORE::kBinaryBit;
    return std::string(reinterpret_cast<const char*>(value.handle()), n);
}

std::string binaryOf(const wchar_t* base64)
{
    std::wstring text = L"<PROPERTYBAG><ITEM name=\"b\" type=\"BINARY\">";
    text += base64;
    text += L"</ITEM></PROPERTYBAG>";
    PropertyBag bag;
    if (!bag.Parse(text.c_str(), true, kTolerant) || bag.Count() != 1)
        return "<parse failed>";
    return bytesOf(itemAt(bag, 0).value);
}

std::wstring valueOfText(const wchar_t* inner, int strict = kTolerant)
{
    std::wstring text = L"<PROPERTYBAG><ITEM name=\"v\">";
    text += inner;
    text += L"</ITEM></PROPERTYBAG>";
    PropertyBag bag;
    if (!bag.Parse(text.c_str(), true, strict) || bag.Count() != 1)
        return L"<parse failed>";
    return valueAt(bag, 0);
}

}  // namespace

// ---- The edge cases of the format ------------------------------------------

TEST(PropertyBagParse, EmptyTextGivesAnEmptyBag)
{
    for (int strict : {kTolerant, kStrict}) {
        PropertyBag bag;
        EXPECT_TRUE(bag.Parse(L"", true, strict));
        EXPECT_EQ(0u, bag.Count());
    }
}

TEST(PropertyBagParse, NullTextGivesAnEmptyBag)
{
    PropertyBag bag;
    EXPECT_TRUE(bag.Parse(nullptr, false, kTolerant));
    EXPECT_EQ(0u, bag.Count());
}

TEST(PropertyBagParse, OpenAndCloseTagGiveAnEmptyBag)
{
    for (int strict : {kTolerant, kStrict}) {
        PropertyBag bag;
        EXPECT_TRUE(bag.Parse(L"<PROPERTYBAG></PROPERTYBAG>", true, strict));
        EXPECT_EQ(0u, bag.Count());
    }
}

TEST(PropertyBagParse, SelfClosedPropertyBagFailsAtTheEndOfTheText)
{
    EXPECT_EQ(one(L"expected end of property bag", 1, 15), failureLines(L"<PROPERTYBAG/>", kTolerant));
    EXPECT_EQ(one(L"expected end of property bag", 1, 15), failureLines(L"<PROPERTYBAG/>", kStrict));
}

TEST(PropertyBagParse, ItemWithoutNameFails)
{
    EXPECT_EQ(one(L"name attribute is mandatory", 1, 20),
              failureLines(L"<PROPERTYBAG><ITEM >v</ITEM></PROPERTYBAG>", kTolerant));
}

TEST(PropertyBagParse, EmptyNameValueFails)
{
    EXPECT_EQ(one(L"attribute value is mandatory", 1, 25),
              failureLines(L"<PROPERTYBAG><ITEM name=\"\">v</ITEM></PROPERTYBAG>", kTolerant));
}

TEST(PropertyBagParse, AmpersandEntityDecodesOnlyOnce)
{
    EXPECT_EQ(L"&lt;", valueOfText(L"&amp;lt;"));
    EXPECT_EQ(L"&lt;", valueOfText(L"&amp;lt;", kStrict));
}

TEST(PropertyBagParse, ItemsOfTheSameNameAreAllKeptAndGetWalksThemInOrder)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name=\"k\">1</ITEM><ITEM name=\"x\">no</ITEM>"
                          L"<ITEM name=\"K\">2</ITEM><ITEM name=\"k\">3</ITEM></PROPERTYBAG>",
                          true, kTolerant));
    EXPECT_EQ(4u, bag.Count());
    std::vector<std::wstring> seen;
    corestring value;
    for (std::uint64_t pos = bag.Get(L"k", value, 0); pos != 0; pos = bag.Get(L"k", value, pos))
        seen.push_back(value.c_str());
    EXPECT_EQ((std::vector<std::wstring>{L"1", L"2", L"3"}), seen);
}

TEST(PropertyBagParse, GetSkipsAnItemWithASubBagOfTheSameName)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name=\"THUMBPRINT\" type=\"BAG\"><ITEM name=\"THUMBPRINT\">in</ITEM>"
                          L"</ITEM><ITEM name=\"THUMBPRINT\">AB12</ITEM></PROPERTYBAG>",
                          true, kTolerant));
    ASSERT_EQ(2u, bag.Count());
    corestring value;
    EXPECT_EQ(2u, bag.Get(L"THUMBPRINT", value, 0));
    EXPECT_STREQ(L"AB12", value.c_str());
    EXPECT_EQ(0u, bag.Get(L"THUMBPRINT", value, 2));
}

TEST(PropertyBagParse, StrictModeRequiresABlankBetweenAttributes)
{
    const wchar_t* text = L"<PROPERTYBAG><ITEM name=\"a\"type=\"BAG\"/></PROPERTYBAG>";
    PropertyBag tolerant;
    EXPECT_TRUE(tolerant.Parse(text, true, kTolerant));
    EXPECT_EQ(1u, tolerant.Count());
    EXPECT_EQ(one(L"unknown attribute name (may be missing equal sign or quote's)", 1, 28),
              failureLines(text, kStrict));

    PropertyBag strict;
    EXPECT_TRUE(strict.Parse(L"<PROPERTYBAG><ITEM name=\"a\" type=\"BAG\"/></PROPERTYBAG>", true, kStrict));
    EXPECT_EQ(1u, strict.Count());
}

TEST(PropertyBagParse, StrictModeDoesNotMatchTagsInSmallLetters)
{
    EXPECT_EQ(one(L"expected end of property bag", 1, 14),
              failureLines(L"<PROPERTYBAG><item name=\"a\">v</item></PROPERTYBAG>", kStrict));
    EXPECT_EQ(one(L"expected start of property bag", 1, 1),
              failureLines(L"<propertybag></propertybag>", kStrict));
    // Any non-zero value is strict.
    EXPECT_EQ(one(L"expected end of property bag", 1, 14),
              failureLines(L"<PROPERTYBAG><item name=\"a\">v</item></PROPERTYBAG>", 7));
}

TEST(PropertyBagParse, TolerantModeMatchesTagAndAttributeWordsInAnyCase)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<propertyBag><Item NAME='a' Type='bag'><iTeM name='b'>v</item></ITEM></PROPERTYBAG>",
                          true, kTolerant));
    ASSERT_EQ(1u, bag.Count());
    const PropertyBag::Item& sub = itemAt(bag, 0);
    ASSERT_NE(nullptr, sub.subBag);
    ASSERT_EQ(1u, sub.subBag->items.size());
    EXPECT_STREQ(L"b", sub.subBag->items[0]->name.c_str());
    EXPECT_STREQ(L"v", sub.subBag->items[0]->value.c_str());
}

// ---- Values, names and entities ---------------------------------------------

TEST(PropertyBagParse, ValueTextIsTakenExactlyWithWhiteSpaceAndStrayLessThan)
{
    EXPECT_EQ(L"  a <b> < /ITEM>\r\n\t", valueOfText(L"  a <b> < /ITEM>\r\n\t"));
    EXPECT_EQ(L"<ITEM", valueOfText(L"<ITEM", kStrict));
    EXPECT_EQ(L"<!-- kept -->", valueOfText(L"<!-- kept -->"));
}

TEST(PropertyBagParse, ValueEndsAtTheFirstClosingItemTag)
{
    // The inner item is text of the outer one, and its closing tag ends it.
    EXPECT_EQ(one(L"expected end of property bag", 1, 53),
              failureLines(L"<PROPERTYBAG><ITEM name=\"a\">x<ITEM name=\"b\">y</ITEM></ITEM></PROPERTYBAG>",
                           kTolerant));
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name=\"a\">x<ITEM name=\"b\">y</ITEM></PROPERTYBAG>", true, 0));
    EXPECT_EQ(L"x<ITEM name=\"b\">y", valueAt(bag, 0));
}

TEST(PropertyBagParse, ClosingItemTagOfAValueIgnoresCaseOnlyInTolerantMode)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name=\"a\">v</item>w</ITEM></PROPERTYBAG>", true, kStrict));
    EXPECT_EQ(L"v</item>w", valueAt(bag, 0));
    EXPECT_EQ(one(L"expected end of property bag", 1, 37),
              failureLines(L"<PROPERTYBAG><ITEM name=\"a\">v</item>w</ITEM></PROPERTYBAG>", kTolerant));
}

TEST(PropertyBagParse, NamedEntitiesDecodeInValues)
{
    EXPECT_EQ(L"<&>\"'", valueOfText(L"&lt;&amp;&gt;&quot;&apos;"));
    EXPECT_EQ(L"a<b", valueOfText(L"a&lt;b", kStrict));
}

TEST(PropertyBagParse, EntitiesAreCaseSensitive)
{
    EXPECT_EQ(L"&LT;&Amp;&#X41;", valueOfText(L"&LT;&Amp;&#X41;"));
}

TEST(PropertyBagParse, HexadecimalEntityGivesThatCharacter)
{
    EXPECT_EQ(L"A\u00e9Z", valueOfText(L"&#x41;&#xe9;&#x5A;"));
    EXPECT_EQ(L"\u20ac", valueOfText(L"&#x000020AC;"));
    // Beyond 16 bits: a surrogate pair.
    EXPECT_EQ(std::wstring(L"\xD83D\xDE00"), valueOfText(L"&#x1F600;"));
}

TEST(PropertyBagParse, AnythingElseAfterAmpersandStaysAsItStands)
{
    EXPECT_EQ(L"&foo; & &amp &#x; &#x41 &#xG1; &#x0; &#x110000; &#65; &", valueOfText(
        L"&foo; & &amp &#x; &#x41 &#xG1; &#x0; &#x110000; &#65; &"));
    // Scanning goes on behind a '&' that stays.
    EXPECT_EQ(L"&&<", valueOfText(L"&&&lt;"));
    EXPECT_EQ(L"&#x&", valueOfText(L"&#x&amp;"));
}

TEST(PropertyBagParse, EntityFloodDecodesEveryEntity)
{
    std::wstring inner, expected;
    for (int i = 0; i < 20000; ++i) {
        inner += L"&amp;&#x41;";
        expected += L"&A";
    }
    EXPECT_EQ(expected, valueOfText(inner.c_str()));
}

TEST(PropertyBagParse, EntitiesDecodeInNamesButNotInStrictModeOne)
{
    const wchar_t* text = L"<PROPERTYBAG><ITEM name=\"a&amp;b&#x43;\">v</ITEM></PROPERTYBAG>";
    PropertyBag tolerant, strict1, strict2;
    ASSERT_TRUE(tolerant.Parse(text, true, 0));
    ASSERT_TRUE(strict1.Parse(text, true, 1));
    ASSERT_TRUE(strict2.Parse(text, true, 2));
    EXPECT_EQ(L"a&bC", nameAt(tolerant, 0));
    EXPECT_EQ(L"a&amp;b&#x43;", nameAt(strict1, 0));
    EXPECT_EQ(L"a&bC", nameAt(strict2, 0));
    // Values decode in every mode.
    corestring value;
    EXPECT_EQ(1u, strict1.Get(L"a&amp;b&#x43;", value, 0));
}

TEST(PropertyBagParse, AttributesTakeEitherQuoteKind)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name='say \"hi\"'>1</ITEM><ITEM name=\"it's\" type='BAG'/>"
                          L"</PROPERTYBAG>",
                          true, kStrict));
    ASSERT_EQ(2u, bag.Count());
    EXPECT_EQ(L"say \"hi\"", nameAt(bag, 0));
    EXPECT_EQ(L"it's", nameAt(bag, 1));
    EXPECT_NE(nullptr, itemAt(bag, 1).subBag);
}

TEST(PropertyBagParse, AttributesMayComeInAnyOrder)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM type=\"BINARY\" name=\"b\">QUJD</ITEM></PROPERTYBAG>", true, 1));
    EXPECT_EQ(L"b", nameAt(bag, 0));
    EXPECT_EQ("ABC", bytesOf(itemAt(bag, 0).value));
}

TEST(PropertyBagParse, TolerantModeAllowsWhiteSpaceBetweenAllTokens)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"\r\n <PROPERTYBAG version=\"2\">\n\t<ITEM\tname \t=\r\n 'a'\n type = \"BAG\" >\n"
                          L"\t\t<ITEM\nname='b'\n/>\n\t</ITEM>\n\t<ITEM name='c'>v</ITEM>\n</PROPERTYBAG>\r\n\t ",
                          true, kTolerant));
    ASSERT_EQ(2u, bag.Count());
    EXPECT_EQ(L"a", nameAt(bag, 0));
    ASSERT_NE(nullptr, itemAt(bag, 0).subBag);
    EXPECT_EQ(1u, itemAt(bag, 0).subBag->items.size());
    EXPECT_EQ(L"c", nameAt(bag, 1));
    EXPECT_EQ(L"v", valueAt(bag, 1));
}

TEST(PropertyBagParse, StrictModeAllowsOneBlankAfterTheLastAttributeAndWhiteSpaceAfterTheBag)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name=\"a\" >v</ITEM><ITEM name=\"b\" /></PROPERTYBAG>\r\n", true, 1));
    EXPECT_EQ(2u, bag.Count());
    EXPECT_EQ(L"", valueAt(bag, 1));
}

TEST(PropertyBagParse, OpeningTagMayCarryAnythingUpToItsBracket)
{
    PropertyBag bag;
    EXPECT_TRUE(bag.Parse(L"<PROPERTYBAGS whatever=1 ><ITEM name='a'/></PROPERTYBAG>", true, kStrict));
    EXPECT_EQ(1u, bag.Count());
}

TEST(PropertyBagParse, SelfClosedItemHasAnEmptyValue)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name=\"a\"/><ITEM name=\"b\"></ITEM></PROPERTYBAG>", true, 0));
    ASSERT_EQ(2u, bag.Count());
    EXPECT_EQ(nullptr, itemAt(bag, 0).value.handle());
    EXPECT_EQ(nullptr, itemAt(bag, 0).subBag);
    EXPECT_EQ(nullptr, itemAt(bag, 1).value.handle());
}

TEST(PropertyBagParse, BareSelfClosedItemIsIgnoredAtEveryLevel)
{
    for (int strict : {kTolerant, kStrict}) {
        PropertyBag bag;
        ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM/><ITEM name=\"s\" type=\"BAG\"><ITEM/></ITEM><ITEM/></PROPERTYBAG>",
                              true, strict));
        ASSERT_EQ(1u, bag.Count());
        ASSERT_NE(nullptr, itemAt(bag, 0).subBag);
        EXPECT_EQ(0u, itemAt(bag, 0).subBag->items.size());
    }
}

// ---- Sub bags ----------------------------------------------------------------

TEST(PropertyBagParse, AnyTypeButBinaryMakesASubBag)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name=\"s\" type=\"x\"><ITEM name=\"a\">1</ITEM>"
                          L"<ITEM name=\"t\" type=\"BINARYX\"><ITEM name=\"b\">2</ITEM></ITEM></ITEM>"
                          L"<ITEM name=\"e\" type=\"BAG\"/></PROPERTYBAG>",
                          true, kTolerant));
    ASSERT_EQ(2u, bag.Count());
    const PropertyBag::Content* s = itemAt(bag, 0).subBag;
    ASSERT_NE(nullptr, s);
    EXPECT_EQ(nullptr, itemAt(bag, 0).value.handle());
    ASSERT_EQ(2u, s->items.size());
    EXPECT_STREQ(L"1", s->items[0]->value.c_str());
    const PropertyBag::Content* t = s->items[1]->subBag;
    ASSERT_NE(nullptr, t);
    ASSERT_EQ(1u, t->items.size());
    EXPECT_STREQ(L"b", t->items[0]->name.c_str());
    // "/>" gives an empty sub bag, not a value.
    ASSERT_NE(nullptr, itemAt(bag, 1).subBag);
    EXPECT_EQ(0u, itemAt(bag, 1).subBag->items.size());
}

TEST(PropertyBagParse, SubBagItemsDoNotCountAtTopLevel)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name=\"s\" type=\"BAG\"><ITEM name=\"a\"/><ITEM name=\"b\"/></ITEM>"
                          L"</PROPERTYBAG>",
                          true, kTolerant));
    EXPECT_EQ(1u, bag.Count());
    corestring value;
    EXPECT_EQ(0u, bag.Get(L"a", value, 0));
}

// ---- Base64 --------------------------------------------------------------------

TEST(PropertyBagBinary, FourCharactersGiveThreeBytes)
{
    EXPECT_EQ("ABC", binaryOf(L"QUJD"));
    EXPECT_EQ("ABCDEF", binaryOf(L"QUJDREVG"));
    EXPECT_EQ(std::string("\x00\x01\xff", 3), binaryOf(L"AAH/"));
    EXPECT_EQ(std::string("\xfb\xff", 2), binaryOf(L"+/8="));
}

TEST(PropertyBagBinary, PaddingEndsTheData)
{
    EXPECT_EQ("AB", binaryOf(L"QUI="));
    EXPECT_EQ("A", binaryOf(L"QQ=="));
    EXPECT_EQ("A", binaryOf(L"QQ==QUJD"));
    EXPECT_EQ("", binaryOf(L"=QUJD"));
}

TEST(PropertyBagBinary, LeftOverCharactersAtTheEndGiveWhatTheyHold)
{
    EXPECT_EQ("AB", binaryOf(L"QUI"));
    EXPECT_EQ("A", binaryOf(L"QQ"));
    EXPECT_EQ("ABC", binaryOf(L"QUJDR"));
}

TEST(PropertyBagBinary, CharactersOutsideTheAlphabetArePassedOver)
{
    EXPECT_EQ("ABC", binaryOf(L"Q U\r\n\tJ!D"));
    EXPECT_EQ("ABC", binaryOf(L"QU\u00e9J\u20acD-_"));
    EXPECT_EQ("", binaryOf(L"!!!!***"));
    EXPECT_EQ("ABC", binaryOf(L"\xD800QUJD\xDC00"));
}

TEST(PropertyBagBinary, EntitiesAreDecodedBeforeBase64)
{
    EXPECT_EQ("ABC", binaryOf(L"&#x51;UJD"));
}

TEST(PropertyBagBinary, EmptyBinaryItemIsEmptyBinaryContent)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name=\"a\" type=\"BINARY\"/><ITEM name=\"b\" type=\"BINARY\"></ITEM>"
                          L"</PROPERTYBAG>",
                          true, kTolerant));
    ASSERT_EQ(2u, bag.Count());
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_TRUE(itemAt(bag, i).value.isBinary());
        EXPECT_EQ(CORE::kBinaryBit, itemAt(bag, i).value.byteLength());
        EXPECT_EQ(nullptr, itemAt(bag, i).subBag);
    }
}

TEST(PropertyBagBinary, OddByteCountIsKeptExactly)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name=\"b\" type=\"BINARY\">QUJD</ITEM></PROPERTYBAG>", true, 0));
    const corestring& v = itemAt(bag, 0).value;
    EXPECT_EQ(CORE::kBinaryBit | 3u, v.byteLength());
    EXPECT_EQ(2u, v.length());
}

TEST(PropertyBagBinary, TypeIsComparedIgnoringCase)
{
    for (const wchar_t* type : {L"binary", L"Binary", L"bInArY"}) {
        std::wstring text = std::wstring(L"<PROPERTYBAG><ITEM name=\"b\" type=\"") + type +
                            L"\">QUJD</ITEM></PROPERTYBAG>";
        PropertyBag bag;
        ASSERT_TRUE(bag.Parse(text.c_str(), true, kStrict)) << type;
        EXPECT_EQ("ABC", bytesOf(itemAt(bag, 0).value)) << type;
        EXPECT_EQ(nullptr, itemAt(bag, 0).subBag);
    }
}

TEST(PropertyBagBinary, GetCopiesBinaryContent)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name=\"b\" type=\"BINARY\">AAEC</ITEM></PROPERTYBAG>", true, 0));
    corestring value;
    EXPECT_EQ(1u, bag.Get(L"B", value, 0));
    EXPECT_EQ(std::string("\x00\x01\x02", 3), bytesOf(value));
}

// ---- Comments and processing instructions -----------------------------------

TEST(PropertyBagParse, CommentsAndInstructionsAreSkippedInTolerantMode)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<?xml version=\"1.0\"?>\n<!-- head -->\n<PROPERTYBAG><!-- <ITEM name='x'/> -->"
                          L"<ITEM <!--c--> name='a'<?p?>>v</ITEM><?pi x?><ITEM name='s' type='BAG'><!-- in -->"
                          L"</ITEM></PROPERTYBAG><!-- tail --><?end?>",
                          true, kTolerant));
    ASSERT_EQ(2u, bag.Count());
    EXPECT_EQ(L"a", nameAt(bag, 0));
    EXPECT_EQ(L"v", valueAt(bag, 0));
}

TEST(PropertyBagParse, CommentsAreNotSkippedInStrictMode)
{
    EXPECT_EQ(one(L"expected start of property bag", 1, 1),
              failureLines(L"<!-- c --><PROPERTYBAG></PROPERTYBAG>", kStrict));
    EXPECT_EQ(one(L"expected end of property bag", 1, 14),
              failureLines(L"<PROPERTYBAG><!-- c --></PROPERTYBAG>", kStrict));
}

TEST(PropertyBagParse, UnterminatedCommentOrInstructionRunsToTheEnd)
{
    PropertyBag bag;
    EXPECT_TRUE(bag.Parse(L"  <!-- never closed <PROPERTYBAG></PROPERTYBAG>", true, kTolerant));
    EXPECT_EQ(0u, bag.Count());
    EXPECT_TRUE(bag.Parse(L"<? never closed", true, kTolerant));
    EXPECT_EQ(one(L"expected end of property bag", 1, 56),
              failureLines(L"<PROPERTYBAG><ITEM name='a'/><!-- no end </PROPERTYBAG>", kTolerant));
    EXPECT_EQ(one(L"expected end of property bag", 2, 26),
              failureLines(L"<PROPERTYBAG>\n<? no end ?</PROPERTYBAG>", kTolerant));
    PropertyBag after;
    EXPECT_TRUE(after.Parse(L"<PROPERTYBAG></PROPERTYBAG><!-- no end", true, kTolerant));
}

// ---- Every error with its place -----------------------------------------------

TEST(PropertyBagErrors, ExpectedStartOfPropertyBag)
{
    EXPECT_EQ(one(L"expected start of property bag", 3, 5),
              failureLines(L"\r\n\t<!-- c -->\n  \t<BAG></BAG>", kTolerant));
    EXPECT_EQ(one(L"expected start of property bag", 1, 1),
              failureLines(L" <PROPERTYBAG></PROPERTYBAG>", kStrict));
    EXPECT_EQ(one(L"expected start of property bag", 1, 1), failureLines(L"   ", kStrict));
    EXPECT_EQ(one(L"expected start of property bag", 1, 1), failureLines(L"x", kTolerant));
}

TEST(PropertyBagErrors, OpeningTagWithoutBracketIsExpectedStartOfPropertyBag)
{
    EXPECT_EQ(one(L"expected start of property bag", 2, 2),
              failureLines(L"\n <PROPERTYBAG", kTolerant));
    EXPECT_EQ(one(L"expected start of property bag", 1, 1), failureLines(L"<PROPERTYBAG/", kStrict));
}

TEST(PropertyBagErrors, ExpectedEndOfPropertyBag)
{
    EXPECT_EQ(one(L"expected end of property bag", 3, 9),
              failureLines(L"<PROPERTYBAG>\n\t<ITEM name=\"a\"/>\n\t\t<FOO/>\n</PROPERTYBAG>", kTolerant));
    EXPECT_EQ(one(L"expected end of property bag", 1, 30),
              failureLines(L"<PROPERTYBAG><ITEM name=\"a\"/> <ITEM name=\"b\"/></PROPERTYBAG>", kStrict));
    EXPECT_EQ(one(L"expected end of property bag", 1, 14), failureLines(L"<PROPERTYBAG>", kTolerant));
}

TEST(PropertyBagErrors, UnexpectedDataAfterPropertyBag)
{
    EXPECT_EQ(one(L"un-expected data after property bag", 3, 2),
              failureLines(L"<PROPERTYBAG></PROPERTYBAG>\r\n\t<!-- fine -->\n x", kTolerant));
    EXPECT_EQ(one(L"un-expected data after property bag", 2, 1),
              failureLines(L"<PROPERTYBAG></PROPERTYBAG>\n<!-- no -->", kStrict));
    EXPECT_EQ(one(L"un-expected data after property bag", 1, 28),
              failureLines(L"<PROPERTYBAG></PROPERTYBAG><PROPERTYBAG></PROPERTYBAG>", kTolerant));
}

TEST(PropertyBagErrors, ColumnsFollowTabStopsOfFour)
{
    // Two blanks put the tab at column 30: it moves on to 33.
    EXPECT_EQ(one(L"un-expected data after property bag", 1, 34),
              failureLines(L"<PROPERTYBAG></PROPERTYBAG>  \t x", kTolerant));
    // A tab standing on a stop (29) moves a whole step.
    EXPECT_EQ(one(L"un-expected data after property bag", 1, 33),
              failureLines(L"<PROPERTYBAG></PROPERTYBAG> \tx", kTolerant));
    // CR is a character like any other; only LF starts a line.
    EXPECT_EQ(one(L"un-expected data after property bag", 2, 3),
              failureLines(L"<PROPERTYBAG></PROPERTYBAG>\r\r\n\r x", kTolerant));
}

TEST(PropertyBagErrors, LinesOfValuesCountBeforeTheError)
{
    EXPECT_EQ(one(L"expected end of property bag", 4, 25),
              failureLines(L"<PROPERTYBAG><ITEM name=\"a\">one\ntwo\n\tthree</ITEM>\n"
                           L"\t<ITEM name=\"b\"/>\tx</PROPERTYBAG>",
                           kTolerant));
}

TEST(PropertyBagErrors, ExpectedEndOfSubBag)
{
    EXPECT_EQ(one(L"expected end of sub bag", 4, 5),
              failureLines(L"<PROPERTYBAG>\n<ITEM name=\"s\" type=\"BAG\">\n\t<ITEM name=\"a\"/>\n\ttext</ITEM>"
                           L"</PROPERTYBAG>",
                           kTolerant));
    EXPECT_EQ(one(L"expected end of sub bag", 1, 40),
              failureLines(L"<PROPERTYBAG><ITEM name=\"s\" type=\"BAG\">", kTolerant));
    EXPECT_EQ(one(L"expected end of sub bag", 1, 40),
              failureLines(L"<PROPERTYBAG><ITEM name=\"s\" type=\"BAG\"></PROPERTYBAG>", kStrict));
}

TEST(PropertyBagErrors, ExpectedStartOfItem)
{
    EXPECT_EQ(one(L"expected start of item", 2, 10),
              failureLines(L"<PROPERTYBAG>\n\t<ITEMS name=\"a\"/></PROPERTYBAG>", kTolerant));
    EXPECT_EQ(one(L"expected start of item", 1, 19),
              failureLines(L"<PROPERTYBAG><ITEM>v</ITEM></PROPERTYBAG>", kTolerant));
    EXPECT_EQ(one(L"expected start of item", 1, 19),
              failureLines(L"<PROPERTYBAG><ITEM\tname=\"a\"/></PROPERTYBAG>", kStrict));
    EXPECT_EQ(one(L"expected start of item", 1, 19), failureLines(L"<PROPERTYBAG><ITEM", kTolerant));
}

TEST(PropertyBagErrors, ExpectedEqualSignAfterAttributeName)
{
    EXPECT_EQ(one(L"expected equal sign after attribute name", 2, 13),
              failureLines(L"<PROPERTYBAG>\n<ITEM name \t'a'/></PROPERTYBAG>", kTolerant));
    EXPECT_EQ(one(L"expected equal sign after attribute name", 1, 24),
              failureLines(L"<PROPERTYBAG><ITEM name =\"a\"/></PROPERTYBAG>", kStrict));
    EXPECT_EQ(one(L"expected equal sign after attribute name", 1, 24),
              failureLines(L"<PROPERTYBAG><ITEM name>v</ITEM></PROPERTYBAG>", kTolerant));
    EXPECT_EQ(one(L"expected equal sign after attribute name", 1, 28),
              failureLines(L"<PROPERTYBAG><ITEM name=\"a\"", kTolerant));
}

TEST(PropertyBagErrors, EmptyAttributeName)
{
    EXPECT_EQ(one(L"empty attribute name", 2, 11),
              failureLines(L"<PROPERTYBAG>\n\t<ITEM =\"a\"/></PROPERTYBAG>", kTolerant));
}

TEST(PropertyBagErrors, ExpectedStartQuote)
{
    EXPECT_EQ(one(L"expected start quote", 2, 12),
              failureLines(L"<PROPERTYBAG>\n<ITEM name=a/></PROPERTYBAG>", kTolerant));
    EXPECT_EQ(one(L"expected start quote", 1, 25),
              failureLines(L"<PROPERTYBAG><ITEM name= \"a\"/></PROPERTYBAG>", kStrict));
}

TEST(PropertyBagErrors, ExpectedEndingQuote)
{
    EXPECT_EQ(one(L"expected ending quote", 3, 10),
              failureLines(L"<PROPERTYBAG>\n<ITEM type=\"BAG\"\n\tname='a/></PROPERTYBAG>", kTolerant));
    // The other quote kind doesn't close it.
    EXPECT_EQ(one(L"expected ending quote", 1, 25),
              failureLines(L"<PROPERTYBAG><ITEM name=\"a'/></PROPERTYBAG>", kStrict));
}

TEST(PropertyBagErrors, AttributeValueIsMandatory)
{
    EXPECT_EQ(one(L"attribute value is mandatory", 2, 12),
              failureLines(L"<PROPERTYBAG>\n<ITEM name=''/></PROPERTYBAG>", kTolerant));
    EXPECT_EQ(one(L"attribute value is mandatory", 2, 21),
              failureLines(L"<PROPERTYBAG>\n<ITEM name='a' type=\"\"/></PROPERTYBAG>", kTolerant));
}

TEST(PropertyBagErrors, UnknownAttributeName)
{
    const std::wstring message = L"unknown attribute name (may be missing equal sign or quote's)";
    EXPECT_EQ(one(message, 2, 16),
              failureLines(L"<PROPERTYBAG>\n<ITEM name=\"a\" value=\"b\"/></PROPERTYBAG>", kTolerant));
    // Matched over the whole length.
    EXPECT_EQ(one(message, 1, 20), failureLines(L"<PROPERTYBAG><ITEM names=\"a\"/></PROPERTYBAG>", kTolerant));
    EXPECT_EQ(one(message, 1, 20), failureLines(L"<PROPERTYBAG><ITEM nam=\"a\"/></PROPERTYBAG>", kTolerant));
    // Attribute words are exact in the strict mode.
    EXPECT_EQ(one(message, 1, 20), failureLines(L"<PROPERTYBAG><ITEM Name=\"a\"/></PROPERTYBAG>", kStrict));
}

TEST(PropertyBagErrors, NameAttributeIsMandatory)
{
    EXPECT_EQ(one(L"name attribute is mandatory", 2, 21),
              failureLines(L"<PROPERTYBAG>\n\t<ITEM type=\"BAG\">\n</ITEM></PROPERTYBAG>", kTolerant));
    EXPECT_EQ(one(L"name attribute is mandatory", 1, 33),
              failureLines(L"<PROPERTYBAG><ITEM type=\"BINARY\"/></PROPERTYBAG>", kStrict));
}

TEST(PropertyBagErrors, ExpectedEndOfItem)
{
    EXPECT_EQ(one(L"expected end of item", 2, 15),
              failureLines(L"<PROPERTYBAG>\n<ITEM name=\"a\">\n\tvalue</ITEM </PROPERTYBAG>", kTolerant));
    EXPECT_EQ(one(L"expected end of item", 1, 42),
              failureLines(L"<PROPERTYBAG><ITEM name=\"b\" type=\"BINARY\">QUJD", kTolerant));
}

TEST(PropertyBagErrors, ErrorInASubBagEmptiesTheWholeBag)
{
    EXPECT_EQ(one(L"expected start quote", 3, 16),
              failureLines(L"<PROPERTYBAG><ITEM name=\"a\">1</ITEM>\n<ITEM name=\"s\" type=\"BAG\">\n"
                           L"\t<ITEM name=x/></ITEM></PROPERTYBAG>",
                           kTolerant));
}

// ---- Logging -------------------------------------------------------------------

TEST(PropertyBagLog, QuietFailureWritesNothing)
{
    FakePlatform p;
    PropertyBag bag;
    EXPECT_FALSE(bag.Parse(L"<PROPERTYBAG/>", true, kTolerant));
    for (const std::wstring& line : p.logLines())
        EXPECT_EQ(std::wstring::npos, line.find(L"PropertyBag")) << line;
}

TEST(PropertyBagLog, LoudFailureWritesOneLine)
{
    FakePlatform p;
    PropertyBag bag;
    EXPECT_FALSE(bag.Parse(L"<PROPERTYBAG/>", false, kTolerant));
    EXPECT_EQ(one(L"expected end of property bag", 1, 15), p.logLines());
}

TEST(PropertyBagLog, SuccessWritesNothing)
{
    FakePlatform p;
    PropertyBag bag;
    EXPECT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name='a'>v</ITEM></PROPERTYBAG>", false, kTolerant));
    EXPECT_TRUE(p.logLines().empty());
}

// ---- Get -----------------------------------------------------------------------

TEST(PropertyBagGet, IgnoresCaseOverTheWholeName)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name='THUMBPRINTS'>x</ITEM><ITEM name='ThumbPrint'>y</ITEM>"
                          L"</PROPERTYBAG>",
                          true, kTolerant));
    corestring value;
    EXPECT_EQ(2u, bag.Get(L"thumbprint", value, 0));
    EXPECT_STREQ(L"y", value.c_str());
    EXPECT_EQ(0u, bag.Get(L"THUMB", value, 0));
    EXPECT_EQ(0u, bag.Get(L"THUMBPRINTSX", value, 0));
}

TEST(PropertyBagGet, StartsAtTheGivenPosition)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name='a'>0</ITEM><ITEM name='b'>1</ITEM><ITEM name='a'>2</ITEM>"
                          L"</PROPERTYBAG>",
                          true, kTolerant));
    corestring value;
    EXPECT_EQ(1u, bag.Get(L"a", value, 0));
    EXPECT_STREQ(L"0", value.c_str());
    EXPECT_EQ(3u, bag.Get(L"a", value, 1));
    EXPECT_STREQ(L"2", value.c_str());
    EXPECT_EQ(0u, bag.Get(L"a", value, 3));
    EXPECT_EQ(0u, bag.Get(L"a", value, 1000));
}

TEST(PropertyBagGet, MissingNameLeavesTheValueAlone)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name='a'>0</ITEM></PROPERTYBAG>", true, kTolerant));
    corestring value(L"before");
    EXPECT_EQ(0u, bag.Get(L"z", value, 0));
    EXPECT_EQ(0u, bag.Get(nullptr, value, 0));
    EXPECT_STREQ(L"before", value.c_str());
}

TEST(PropertyBagGet, EmptyValueIsFound)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name='a'/></PROPERTYBAG>", true, kTolerant));
    corestring value(L"before");
    EXPECT_EQ(1u, bag.Get(L"a", value, 0));
    EXPECT_EQ(0u, value.length());
}

// ---- Clearing and sharing ---------------------------------------------------------

TEST(PropertyBagContent, ParseReplacesEarlierContent)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name='a'/><ITEM name='b'/></PROPERTYBAG>", true, kTolerant));
    ASSERT_EQ(2u, bag.Count());
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name='c'/></PROPERTYBAG>", true, kTolerant));
    ASSERT_EQ(1u, bag.Count());
    EXPECT_EQ(L"c", nameAt(bag, 0));
    EXPECT_TRUE(bag.Parse(L"", true, kTolerant));
    EXPECT_EQ(0u, bag.Count());
}

TEST(PropertyBagContent, FailedParseLeavesNoItemsEvenFromEarlierInTheText)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name='old'/></PROPERTYBAG>", true, kTolerant));
    EXPECT_FALSE(bag.Parse(L"<PROPERTYBAG><ITEM name='a'>1</ITEM><ITEM name='s' type='BAG'><ITEM name='b'/>"
                           L"</ITEM><ITEM bad='x'/></PROPERTYBAG>",
                           true, kTolerant));
    EXPECT_EQ(0u, bag.Count());
    corestring value;
    EXPECT_EQ(0u, bag.Get(L"a", value, 0));
}

TEST(PropertyBagContent, ClearEmptiesTheBag)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name='a'/><ITEM name='s' type='b'><ITEM name='c'/></ITEM>"
                          L"</PROPERTYBAG>",
                          true, kTolerant));
    bag.Clear();
    EXPECT_EQ(0u, bag.Count());
    EXPECT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name='d'/></PROPERTYBAG>", true, kTolerant));
    EXPECT_EQ(1u, bag.Count());
}

TEST(PropertyBagCounting, NewBagHasCountOneAndContentOfItsOwn)
{
    PropertyBag a, b;
    EXPECT_EQ(1u, a.refCount());
    EXPECT_EQ(1u, a.content().count.load());
    EXPECT_NE(&a.content(), &b.content());
}

TEST(PropertyBagCounting, CopySharesTheContent)
{
    PropertyBag a;
    ASSERT_TRUE(a.Parse(L"<PROPERTYBAG><ITEM name='a'>1</ITEM></PROPERTYBAG>", true, kTolerant));
    {
        PropertyBag b(a);
        EXPECT_EQ(&a.content(), &b.content());
        EXPECT_EQ(2u, a.content().count.load());
        EXPECT_EQ(1u, b.refCount());
        corestring value;
        EXPECT_EQ(1u, b.Get(L"a", value, 0));
        EXPECT_STREQ(L"1", value.c_str());
        // The content is one: a parse through the copy shows in the original.
        ASSERT_TRUE(b.Parse(L"<PROPERTYBAG><ITEM name='x'/><ITEM name='y'/></PROPERTYBAG>", true, kTolerant));
        EXPECT_EQ(2u, a.Count());
    }
    EXPECT_EQ(1u, a.content().count.load());
    EXPECT_EQ(L"x", nameAt(a, 0));
}

TEST(PropertyBagCounting, AssignmentSharesAndReleasesTheOldContent)
{
    PropertyBag a, b;
    ASSERT_TRUE(a.Parse(L"<PROPERTYBAG><ITEM name='a'/></PROPERTYBAG>", true, kTolerant));
    ASSERT_TRUE(b.Parse(L"<PROPERTYBAG><ITEM name='b'/></PROPERTYBAG>", true, kTolerant));
    PropertyBag keepB(b);
    EXPECT_EQ(2u, keepB.content().count.load());
    b = a;
    EXPECT_EQ(&a.content(), &b.content());
    EXPECT_EQ(2u, a.content().count.load());
    EXPECT_EQ(1u, keepB.content().count.load());
    EXPECT_EQ(L"b", nameAt(keepB, 0));
    b = b;
    EXPECT_EQ(2u, a.content().count.load());
}

TEST(PropertyBagCounting, ReleaseDeletesAtZero)
{
    auto* bag = new PropertyBag;
    ASSERT_TRUE(bag->Parse(L"<PROPERTYBAG><ITEM name='a'/></PROPERTYBAG>", true, kTolerant));
    PropertyBag watcher(*bag);
    bag->addRef();
    EXPECT_EQ(2u, bag->refCount());
    bag->release();
    EXPECT_EQ(1u, bag->refCount());
    EXPECT_EQ(2u, watcher.content().count.load());
    bag->release();  // deletes the bag, which lets go of the content
    EXPECT_EQ(1u, watcher.content().count.load());
    EXPECT_EQ(1u, watcher.Count());
}

TEST(PropertyBagCounting, ItemsStartWithCountOne)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(L"<PROPERTYBAG><ITEM name='s' type='BAG'><ITEM name='a'/></ITEM></PROPERTYBAG>", true,
                          kTolerant));
    EXPECT_EQ(1u, itemAt(bag, 0).count.load());
    EXPECT_EQ(1u, itemAt(bag, 0).subBag->count.load());
    EXPECT_EQ(1u, itemAt(bag, 0).subBag->items[0]->count.load());
}

// ---- Size and depth -----------------------------------------------------------------

namespace {

std::wstring nested(int depth, bool closed)
{
    std::wstring text = L"<PROPERTYBAG>";
    for (int i = 0; i < depth; ++i)
        text += L"<ITEM name=\"l\" type=\"BAG\">";
    text += L"<ITEM name=\"leaf\">v</ITEM>";
    if (closed) {
        for (int i = 0; i < depth; ++i)
            text += L"</ITEM>";
        text += L"</PROPERTYBAG>";
    }
    return text;
}

int depthOf(const PropertyBag& bag)
{
    int depth = 0;
    const PropertyBag::Content* c = &bag.content();
    while (c->items.size() == 1 && c->items[0]->subBag) {
        c = c->items[0]->subBag;
        ++depth;
    }
    return c->items.size() == 1 && c->items[0]->name.equals(L"leaf", false) ? depth : -1;
}

}  // namespace

TEST(PropertyBagDepth, FiveThousandLevelsParse)
{
    for (int strict : {kTolerant, kStrict}) {
        PropertyBag bag;
        ASSERT_TRUE(bag.Parse(nested(5000, true).c_str(), true, strict));
        EXPECT_EQ(1u, bag.Count());
        EXPECT_EQ(5000, depthOf(bag));
    }
}

TEST(PropertyBagDepth, TwentyThousandLevelsParseAndRelease)
{
    auto* bag = new PropertyBag;
    ASSERT_TRUE(bag->Parse(nested(20000, true).c_str(), true, kTolerant));
    EXPECT_EQ(20000, depthOf(*bag));
    PropertyBag copy(*bag);
    bag->release();
    EXPECT_EQ(20000, depthOf(copy));
}

TEST(PropertyBagDepth, TwoHundredThousandLevelsParse)
{
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(nested(200000, true).c_str(), true, kTolerant));
    EXPECT_EQ(200000, depthOf(bag));
    bag.Clear();
    EXPECT_EQ(0u, bag.Count());
}

TEST(PropertyBagDepth, UnclosedDeepNestingFailsAtTheEnd)
{
    std::wstring text = nested(20000, false);
    EXPECT_EQ(one(L"expected end of sub bag", 1, static_cast<unsigned>(text.size() + 1)),
              failureLines(text.c_str(), kTolerant));
}

TEST(PropertyBagDepth, ManyItemsAtTopLevel)
{
    std::wstring text = L"<PROPERTYBAG>";
    for (int i = 0; i < 50000; ++i)
        text += L"<ITEM name=\"n" + std::to_wstring(i) + L"\">" + std::to_wstring(i) + L"</ITEM>";
    text += L"</PROPERTYBAG>";
    PropertyBag bag;
    ASSERT_TRUE(bag.Parse(text.c_str(), true, kStrict));
    EXPECT_EQ(50000u, bag.Count());
    corestring value;
    EXPECT_EQ(49000u, bag.Get(L"N48999", value, 0));
    EXPECT_STREQ(L"48999", value.c_str());
}
