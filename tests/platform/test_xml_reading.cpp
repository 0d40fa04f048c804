#include <gtest/gtest.h>

#include <random>

#include "korvane/error.h"
#include "platform/xml_document.h"
#include "platform/xml_samples.h"
#include "support/memory_disk.h"
#include "support/raised.h"

namespace korvane {
namespace {

void expect_refused(const std::string& bytes) {
    for (const bool for_editing : {false, true}) {
        XmlDocument document;
        ASSERT_FALSE(document.parse("<r>old</r>"));
        const XmlParseError error = document.parse(bytes, for_editing);
        EXPECT_GT(error.code, 0) << "accepted: " << bytes.substr(0, 200);
        EXPECT_FALSE(error.reason.empty());
        EXPECT_EQ(error.reason.find("pugi"), std::string::npos);
        EXPECT_FALSE(document.select("/r")) << "the document is not empty after a failure";
        EXPECT_THROW((void)document.bytes(), Error);
    }
}

TEST(XmlParse, RefusesEveryTruncatedDocument) {
    for (const XmlFileForm& form : xml_file_forms())
        for (const XmlSample& sample : xml_samples()) {
            SCOPED_TRACE(form.name + ", " + sample.name);
            const std::string whole = file_bytes(form, replaced(sample.source, "@", "1"));
            // Up to, but not with, the end of the root element.
            const std::string root_end = file_bytes({"", "", "", form.unit, form.big_endian, form.single}, "</");
            for (std::size_t length = 0; length < whole.rfind(root_end); length += length < 40 ? 1 : 3)
                expect_refused(whole.substr(0, length));
        }
}

TEST(XmlParse, RefusesWhatIsNoSingleWellFormedDocument) {
    for (const std::string bytes : {"",
                                    " ",
                                    "\n",
                                    "text",
                                    "<r/>trailing",
                                    "leading<r/>",
                                    "<r/></r>",
                                    "<r></r>ld>",
                                    "<r/><r/>",
                                    "<a><b></a></b>",
                                    "<r a=1/>",
                                    "<r a='1/>",
                                    "<r a/>",
                                    "<!-- <r/>",
                                    "<r><![CDATA[x</r>",
                                    "<?xml version='1.0'?>",
                                    "<>x</>",
                                    "<r><?p</r>",
                                    "<r/><!DOCTYPE",
                                    "\xEF\xBB\xBF",
                                    "\xFF\xFE"})
        expect_refused(bytes);
}

TEST(XmlParse, RefusesBytesThatAreNoTextInTheirEncoding) {
    using namespace std::string_literals;
    expect_refused("<r>\xE4</r>");  // ISO-8859-1 without a declaration
    expect_refused("<?xml version='1.0' encoding='utf-8'?><r>\xC3</r>");
    for (const std::string malformed :
         {"\xED\xA0\x80", "\xE0\x80\xBC", "\xF0\x80\x80\xBC", "\xF4\x90\x80\x80", "\xC0\xBC"})
        expect_refused("<r>" + malformed + "</r>");
    expect_refused("<?xml version='1.0' encoding='us-ascii'?><r>\xE4</r>");
    expect_refused("<?xml version='1.0' encoding='utf-16'?><r/>");
    expect_refused("<?xml version='1.0' encoding='ebcdic'?><r/>");
    expect_refused("<r>0\0</r>"s);
    expect_refused("<r/>\0<r/>"s);
    expect_refused("\xFF\xFE<\0r\0/\0>"s);  // half a character
    for (const std::string& surrogates :
         {"\x00\xD8"s, "\x00\xDC"s, "\x00\xDC\x00\xD8"s, "\x00\xDC\x00\xDC"s, "\x00\xD8\x41\x00"s})
        expect_refused("\xFF\xFE<\0r\0>\0"s + surrogates + "<\0/\0r\0>\0"s);
    expect_refused("\xFF\xFE\0\0<\0\0\0r\0\0\0/\0\0\0>\0\0\0"s);
}

TEST(XmlParse, SurvivesRandomDamageAndGivesUnharmedBytesBack) {
    std::mt19937 random(11);
    const auto pick = [&](std::size_t count) {
        return std::uniform_int_distribution<std::size_t>(0, count - 1)(random);
    };
    using namespace std::string_literals;
    const std::string favourites = "<>/!?-[]&;'\"= \r\nx\0\xFF\xC3"s;
    int loaded = 0;
    for (const XmlFileForm& form : xml_file_forms())
        for (const XmlSample& sample : xml_samples())
            for (int trial = 0; trial < 40; ++trial) {
                std::string bytes = file_bytes(form, replaced(sample.source, "@", "1"));
                for (std::size_t damage = pick(3) + 1; damage > 0; --damage) {
                    const std::size_t at = pick(bytes.size());
                    const std::size_t way = pick(3);
                    if (way == 0) bytes[at] = favourites[pick(favourites.size())];
                    if (way == 1) bytes.erase(at, pick(4) + 1);
                    if (way == 2) bytes.insert(at, 1, favourites[pick(favourites.size())]);
                    if (bytes.empty()) bytes.assign(1, ' ');
                }
                XmlDocument document;
                if (document.parse(bytes, true)) continue;
                ++loaded;
                ASSERT_EQ(document.bytes(), bytes);
                // Whatever element is edited, its new text is what is read, and the document stays one.
                const auto elements = document.select_all("//*");
                const std::size_t index = pick(elements.size());
                const std::size_t before = elements.size(), inside = elements[index].select_all(".//*").size();
                document.set_text(elements[index], "a<b");
                const auto after = document.select_all("//*");
                ASSERT_EQ(after[index].text(), "a<b") << bytes;
                ASSERT_EQ(after.size(), before - inside) << bytes;
            }
    EXPECT_GT(loaded, 500);
}

TEST(XmlText, IsAllCharacterDataUnchanged) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"<r> </r>", " "},
        {"<r>\n\t</r>", "\n\t"},
        {"<r></r>", ""},
        {"<r/>", ""},
        {"<r>1 </r>", "1 "},
        {"<r> 1</r>", " 1"},
        {"<r>a\r\nb</r>", "a\nb"},
        {"<r>a&#13;&#10;b</r>", "a\r\nb"},
        {"<r>&lt;&gt;&amp;&quot;&apos;&#x41;</r>", "<>&\"'A"},
        {"<r><![CDATA[<&amp;>]]></r>", "<&amp;>"},
        {"<r>a<![CDATA[ b ]]>c</r>", "a b c"},
        {"<r>a<!-- x -->b<?p y?>c</r>", "abc"},
        {"<r>a<b>c<d>e</d></b>f<g/>h</r>", "acefh"},
        {"<r><b>1</b><c>2</c></r>", "12"},
        {"<?xml version='1.0' encoding='windows-1252'?><r>\x80\xE4\x81</r>", "\xE2\x82\xAC\xC3\xA4\xC2\x81"}};
    for (const auto& [bytes, text] : cases) {
        XmlDocument document;
        ASSERT_FALSE(document.parse(bytes)) << bytes;
        EXPECT_EQ(document.select("/r")->text(), text) << bytes;
    }
}

TEST(XmlText, StopsAtTheElementsEnd) {
    XmlDocument document;
    ASSERT_FALSE(document.parse("<r><a>1</a><b/><c><d>2</d></c>3</r>"));
    EXPECT_EQ(document.select("//a")->text(), "1");
    EXPECT_EQ(document.select("//b")->text(), "");
    EXPECT_EQ(document.select("//c")->text(), "2");
}

TEST(XmlLoad, ReadsTheFileAndNothingElse) {
    auto disk = std::make_shared<MemoryDisk>();
    disk->put("/base/d.xml",
              "<!DOCTYPE r SYSTEM \"/base/secret.xml\" [<!ENTITY s SYSTEM \"/base/secret.xml\">]><r>&s;</r>");
    disk->put("/base/secret.xml", "<s>secret</s>");
    XmlDocument document;
    ASSERT_FALSE(document.load(*disk, "/base/d.xml"));
    EXPECT_EQ(disk->operations, 1);
    EXPECT_EQ(document.select("/r")->text().find("secret"), std::string::npos);
}

TEST(XmlLoad, TellsFileFaultsAndLeavesTheDocumentEmpty) {
    auto disk = std::make_shared<MemoryDisk>();
    disk->put("/base/d.xml", "<r/>");
    XmlDocument document;
    ASSERT_FALSE(document.load(*disk, "/base/d.xml"));
    const XmlParseError error = document.load(*disk, "/base/none.xml");
    EXPECT_LT(error.code, 0);
    EXPECT_NE(error.reason.find("/base/none.xml"), std::string::npos);
    EXPECT_FALSE(document.select("/r"));
    ASSERT_FALSE(document.load(*disk, "/base/d.xml")) << "a failure spoils the next load";
}

TEST(XmlLoad, HoldsNothingOfAnEarlierLongerDocument) {
    XmlDocument document;
    for (const int count : {1000, 1, 50, 0}) {
        std::string bytes = "<r>";
        for (int i = 0; i < count; ++i) bytes += "<e>" + std::to_string(i) + "</e>";
        ASSERT_FALSE(document.parse(bytes + "</r>"));
        EXPECT_EQ(document.select_all("/r/e").size(), static_cast<std::size_t>(count));
    }
}

std::string repeated(const std::string& text, std::size_t count) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i) result += text;
    return result;
}

std::string nested(std::size_t depth, const std::string& before_each = "", const std::string& innermost = "") {
    return repeated(before_each + "<e>", depth) + innermost + repeated("</e>", depth);
}

TEST(XmlLimits, NestingIsRefusedFromTheFirstLevelTooManyWhateverStandsBetween) {
    // What is no tag must neither count nor take from the count.
    for (const std::string between : {"", "\n  ", "<!--</e></e><e>-->", "<![CDATA[</e></e>]]>", "<?p </e></e>?>",
                                      "<x/>", "<x a='/>'/>", "<x></x>", "text > /> ]]&gt;"})
        for (const std::string start : {"", "<!DOCTYPE r [<!ENTITY a '</e></e>'>]>", "<!-- </e> -->"}) {
            SCOPED_TRACE(start + between);
            XmlDocument document;
            ASSERT_FALSE(document.parse(start + "<r>" + nested(8191, between) + "</r>", true));
            EXPECT_EQ(document.select_all("//e").size(), 8191U);
            const XmlParseError error = document.parse(start + "<r>" + nested(8192, between) + "</r>");
            EXPECT_EQ(error.code, 105);
            EXPECT_TRUE(error.reason.ends_with(" is nested deeper than 8192 levels")) << error.reason;
            EXPECT_FALSE(document.select("//e"));
        }
    EXPECT_EQ(XmlDocument().parse("<r>" + nested(8192) + "</r>").reason,
              "The element [e] at byte 24577 is nested deeper than 8192 levels");
    EXPECT_EQ(XmlDocument().parse(nested(300'000)).code, 105);
    XmlDocument flat;
    ASSERT_FALSE(flat.parse("<r>" + repeated("<x/><y a='1'/>\n", 20'000) + nested(8000) + "</r>"))
        << "many empty elements are no deep ones";
    ASSERT_EQ(flat.parse("<r>" + repeated("<x/>", 20'000) + nested(8000, "", nested(192)) + "</r>").code, 105);
}

TEST(XmlLimits, AnEditThatNestsTooDeepIsRefusedAndChangesNothing) {
    XmlDocument document;
    const std::string bytes = nested(8192);
    ASSERT_FALSE(document.parse(bytes, true));
    const auto elements = document.select_all("//e");
    EXPECT_EQ(raised([&] {
                  document.append_child(elements.back(), {"n", {}, "", {}});
              }).substr(0, 25),
              "5|Korvane|Invalid procedu");
    EXPECT_EQ(document.bytes(), bytes);
    document.append_child(document.select_all("//e")[8190], {"n", {}, "y", {}});
    EXPECT_EQ(document.select("/e")->text(), "y");
}

TEST(XmlLimits, AnOversizedDocumentIsRefusedByName) {
    const XmlParseError error = XmlDocument().parse("<r>" + std::string(257U << 20, 'x') + "</r>");
    EXPECT_EQ(error.code, 100);
    EXPECT_NE(error.reason.find("268435456"), std::string::npos);
}

TEST(XmlQuery, RefusesBombsAndMalformedQueriesNamingThem) {
    std::vector<std::string> queries{
        "",     "//",        "[", "/r[", "/r[@a='x]", "/r[@a='it's']", "count(/r)", "1+1",     "'x'",  "/r/@a",
        "//@*", "/r/text()", "/", "$v",  "/r/a|//@a", "f(/r)",         "/r/a[x()]", "no:pe()", "/r//", "/r/123"};
    for (const std::size_t count : {200U, 5000U, 200'000U}) {
        queries.push_back(repeated("(", count) + "/r" + repeated(")", count));
        queries.push_back("/r" + repeated("[r", count) + repeated("]", count));
        queries.push_back("/r[" + repeated("not(", count) + "a" + repeated(")", count) + "]");
    }
    for (const std::size_t count : {5000U, 200'000U}) {
        queries.push_back("/r[" + repeated("-", count) + "1]");
        queries.push_back("/r" + repeated("/r", count));
        queries.push_back("/r" + repeated("|/r", count));
        queries.push_back("/r[" + repeated("1+", count) + "1]");
        queries.push_back("/r" + repeated("[1]", count));
    }
    queries.push_back("/r[@a='" + std::string(70'000, 'x') + "']");
    XmlDocument document;
    ASSERT_FALSE(document.parse("<r a='1'>text<a a='2'/></r>"));
    for (const std::string& query : queries) {
        SCOPED_TRACE(query.substr(0, 60));
        for (const bool all : {false, true}) try {
                all ? (void)document.select_all(query) : (void)document.select(query);
                ADD_FAILURE() << "accepted";
            } catch (const Error& error) {
                EXPECT_EQ(error.number(), -2147467259);
                EXPECT_EQ(error.source(), "XPath");
                EXPECT_NE(error.description().find(query.substr(0, 100)), std::string::npos);
                EXPECT_EQ(error.description().find("pugi"), std::string::npos);
            }
    }
}

TEST(XmlQuery, GivesElementsInDocumentOrderRelativeToTheirContext) {
    XmlDocument document;
    ASSERT_FALSE(document.parse("<r><b n='1'/><a n='2'><b n='3'/></a><b n='4'/></r>"));
    const auto numbers = [](const std::vector<XmlElement>& elements) {
        std::string text;
        for (const XmlElement& element : elements) text += element.attribute("n");
        return text;
    };
    EXPECT_EQ(numbers(document.select_all("//a | //b")), "1234");
    EXPECT_EQ(numbers(document.select_all("//b[@n='4'] | /r/b | //a/b")), "134");
    EXPECT_EQ(numbers(document.select("/r/a")->select_all("b")), "3");
    EXPECT_EQ(document.select("/r/a")->select("preceding-sibling::b")->attribute("n"), "1");
    EXPECT_EQ(document.select("//b")->attribute("n"), "1");
    EXPECT_FALSE(document.select("/r/c"));
    EXPECT_TRUE(document.select_all("/r/c").empty());
    EXPECT_FALSE(document.select("/r")->child("c"));
    EXPECT_EQ(document.select("/r")->attribute("none"), "");
    EXPECT_FALSE(XmlDocument().select("/r"));
}

}  // namespace
}  // namespace korvane
