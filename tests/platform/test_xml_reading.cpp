#include <gtest/gtest.h>

#include <random>

#include "korvane/error.h"
#include "platform/cases.h"
#include "platform/xml_document.h"
#include "platform/xml_samples.h"
#include "support/memory_disk.h"
#include "support/raised.h"

namespace korvane {
namespace {

using namespace std::string_literals;

void expect_refused(const std::string& bytes) {
    XmlDocument document;
    ASSERT_FALSE(document.parse("<r>old</r>"));
    const XmlParseError error = document.parse(bytes);
    EXPECT_GE(error.code, 100) << "accepted: " << bytes.substr(0, 200);
    EXPECT_FALSE(error.reason.empty());
    EXPECT_FALSE(document.select("/r")) << "the document is not empty after a failure";
    EXPECT_EQ(document.bytes(), "");
}

TEST(XmlParse, RefusesEveryTruncatedDocument) {
    for (const XmlFileForm& form : xml_file_forms())
        for (const XmlSample& sample : xml_samples()) {
            SCOPED_TRACE(form.name + ", " + sample.name);
            const std::string whole = file_bytes(form, replaced(sample.source, "@", "1"));
            // Up to, but not with, the end of the root element.
            const std::string root_end = file_bytes({"", "", "", form.unit, form.big_endian, form.single}, "</");
            for (std::size_t length = 0; length < whole.rfind(root_end); length += length < 40 ? 1 : 7)
                expect_refused(whole.substr(0, length));
        }
}

TEST(XmlParse, RefusesWhatIsNoSingleWellFormedDocumentInAKnownEncoding) {
    const std::string entities = "<!DOCTYPE r [<!ENTITY e '15'><!ENTITY loop '&loop;'><!ENTITY out SYSTEM 'f'>]>";
    for (const std::string& document : cases_in(
             "| |text|<r/>trailing|leading<r/>|<r/></r>|<r></r>ld>|<r/><r/>|<a><b></a></b>|<!-- <r/>|<r><![CDATA[x</r>|"
             "<?xml version='1.0'?>|<>x</>|<1/>|<r><?p</r>|<r/><!DOCTYPE|<r><?xml version='1.0'?></r>|"
             " <?xml version='1.0'?><r/>|<?xml encoding='utf-8'?><r/>|<r><!-- a -- b --></r>|<r>]]></r>|"
             // attributes and references
             "<r a=1/>|<r a='1/>|<r a/>|<r a='1' a='2'/>|<r a='<'/>|<r a='1'b='2'/>|<A>15&#0;0</A>|<r>&#xFFFE;</r>|"
             "<r>&#xD800;</r>|<r>a & b</r>|<r a='a & b'/>|<r>&no;</r>|<r a='&no;'/>|<r>&amp</r>|"
             // characters and encodings
             "\xEF\xBB\xBF|\xFF\xFE|<r>\x01</r>|<r>\xE4</r>|<r>\xED\xA0\x80</r>|<r>\xE0\x80\xBC</r>|"
             "<r>\xF0\x80\x80\xBC</r>|<r>\xF4\x90\x80\x80</r>|<r>\xC0\xBC</r>|<r>\xC3</r>|<r>\xEF\xBF\xBF</r>|"
             "<?xml version='1.0' encoding='us-ascii'?><r>\xE4</r>|<?xml version='1.0' encoding='ascii'?><r>\xE4</r>|"
             "<?xml version='1.0' encoding='utf8'?><r>\xE4</r>|<?xml version='1.0' encoding='utf-16'?><r/>|"
             "<?xml version='1.0' encoding='ebcdic'?><r/>|"
             // an external document type hides which entities there are
             "<!DOCTYPE r SYSTEM 'f'><r>&e;</r>|<!DOCTYPE r SYSTEM 'f'><r a='&e;'/>"))
        expect_refused(document);
    // Entities must not be read as their own names.
    for (const std::string& root : cases_in("<r>&e;</r>|<r a='1&e;'/>|<r a='&#65;&amp;&e;'/>|<r>&loop;</r>|<r "
                                            "a='&loop;'/>|<r>&out;</r>|<r a='&out;'/>"))
        expect_refused(entities + root);
    for (const std::string& bytes :
         {"<r>0\0</r>"s, "<r/>\0<r/>"s, "\xFF\xFE<\0r\0/\0>"s, "\xFF\xFE\0\0<\0\0\0r\0\0\0/\0\0\0>\0\0\0"s})
        expect_refused(bytes);
    for (const std::string& surrogates :
         {"\x00\xD8"s, "\x00\xDC"s, "\x00\xDC\x00\xD8"s, "\x00\xDC\x00\xDC"s, "\x00\xD8\x41\x00"s})
        expect_refused("\xFF\xFE<\0r\0>\0"s + surrogates + "<\0/\0r\0>\0"s);
    EXPECT_EQ(XmlDocument().parse("<r>\n<!-- -- -->").reason, "not well-formed (invalid token) (line 2)");
    EXPECT_EQ(XmlDocument().parse(entities + "<r a='&e;'/>").code, 106);
    EXPECT_EQ(XmlDocument().parse(entities + "\n<r>&e;</r>").reason, "The entity [e] is none of XML's own (line 2)");
}

TEST(XmlParse, SurvivesRandomDamageAndGivesUnharmedBytesBack) {
    std::mt19937 random(11);
    const auto pick = [&](std::size_t count) {
        return std::uniform_int_distribution<std::size_t>(0, count - 1)(random);
    };
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
                if (document.parse(bytes)) continue;
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

TEST(XmlText, IsAllCharacterDataUnchangedUpToTheElementsEnd) {
    // Each with its text.
    const auto cases = cases_in(
        " | |\n\t|\n\t|||1 |1 | 1| 1|a\r\nb|a\nb|a&#13;&#10;b|a\r\nb|&lt;&gt;&amp;&quot;&apos;&#x41;|<>&\"'A|"
        "<![CDATA[<&amp;>]]>|<&amp;>|a<![CDATA[ b ]]>c|a b c|a<!-- x -->b<?p y?>c|abc|"
        "a<b>c<d>e</d></b>f<g/>h|acefh|<b>1</b><c>2</c>|12");
    XmlDocument document;
    for (std::size_t i = 0; i < cases.size(); i += 2) {
        ASSERT_FALSE(document.parse("<o>x<r>" + cases[i] + "</r><r/>y</o>")) << cases[i];
        EXPECT_EQ(document.select("/o/r")->text(), cases[i + 1]) << cases[i];
        EXPECT_EQ(document.select("/o/r[2]")->text(), "");
    }
    ASSERT_FALSE(document.parse("<?xml version='1.0' encoding='windows-1252'?><r>\x80\xE4\x81</r>"));
    EXPECT_EQ(document.select("/r")->text(), "\xE2\x82\xAC\xC3\xA4\xC2\x81");
}

TEST(XmlLoad, KeepsTheTreeWhileTheBytesAreThoseOfItAndReadsNothingElse) {
    MemoryDisk disk;
    const std::string path = "/base/d.xml", secret = "SYSTEM \"/base/secret.xml\"";
    disk.put("/base/secret.xml", "<s>secret</s>");
    const std::string first =
        "<!DOCTYPE r " + secret + " [<!ENTITY % p " + secret + "> %p;<!ENTITY s " + secret + ">]><r>1</r>";
    XmlDocument document;
    const auto text = [&] { return document.select("/r") ? document.select("/r")->text() : "none"; };
    disk.put(path, first);
    ASSERT_FALSE(document.load(disk, path));
    const XmlElement kept = *document.select("/r");
    ASSERT_FALSE(document.load(disk, path));
    EXPECT_EQ(disk.operations, 2);
    EXPECT_EQ(kept.text(), "1") << "the tree was built anew";
    // An edit that was not saved must not answer for the file; one that was, may.
    document.set_text(kept, "2");
    ASSERT_FALSE(document.load(disk, path));
    EXPECT_EQ(text(), "1");
    document.set_text(*document.select("/r"), "3");
    document.save(disk, path);
    ASSERT_FALSE(document.load(disk, path));
    EXPECT_EQ(text(), "3");
    // Longer and shorter ones, malformed ones and none in between.
    for (const std::string& content :
         {"<r>" + std::string(5000, 'x') + "</r>", "<r>4</r>"s, "<r>4</r "s, "<r>4</r>"s, ""s}) {
        disk.put(path, content);
        EXPECT_EQ(document.load(disk, path).code == 0, content.ends_with("</r>")) << content;
        EXPECT_EQ(text(), content.ends_with("</r>") ? content.substr(3, content.size() - 7) : "none");
    }
    disk.put(path, "<r>4</r>");
    for (int again = 0; again < 2; ++again) {
        const XmlParseError error = document.load(disk, "/base/none.xml");
        EXPECT_LT(error.code, 0);
        EXPECT_NE(error.reason.find("/base/none.xml"), std::string::npos);
        EXPECT_EQ(text(), "none");
        ASSERT_FALSE(document.load(disk, path)) << "a failure spoils the next load";
        EXPECT_EQ(text(), "4");
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

TEST(XmlLimits, NestingAndSizeAreRefusedFromTheFirstTooMany) {
    XmlDocument document;
    // What is no tag must neither count nor take from the count.
    const std::string between = "\n <!--</e></e><e>--><![CDATA[</e></e>]]><?p </e></e>?><x/><x a='/>'/><x></x>text >";
    for (const std::string& start : {""s, "<!DOCTYPE r [<!ENTITY a '</e></e>'>]><!-- </e> -->"s}) {
        ASSERT_FALSE(document.parse(start + "<r>" + nested(8191, between) + "</r>"));
        EXPECT_EQ(document.select_all("//e").size(), 8191U);
        EXPECT_EQ(document.parse(start + "<r>" + nested(8192, between) + "</r>").code, 105);
        EXPECT_FALSE(document.select("//e"));
    }
    EXPECT_EQ(XmlDocument().parse(nested(300'000)).reason,
              "The element [e] is nested deeper than 8192 levels (line 1)");
    const XmlParseError error = XmlDocument().parse("<r>" + std::string(257U << 20, 'x') + "</r>");
    EXPECT_EQ(error.code, 100);
    EXPECT_NE(error.reason.find("268435456"), std::string::npos);
    const std::string bytes = nested(8192);
    ASSERT_FALSE(document.parse(bytes));
    EXPECT_TRUE(raised([&] {
                    document.append_child(document.select_all("//e").back(), {"n", {}, "", {}});
                }).starts_with("5|Korvane|Invalid procedure call"));
    EXPECT_EQ(document.bytes(), bytes);
    document.append_child(document.select_all("//e")[8190], {"n", {}, "y", {}});
    EXPECT_EQ(document.select("/e")->text(), "y");
}

TEST(XmlQuery, RefusesBombsAndMalformedQueriesNamingThem) {
    std::vector<std::string> queries = cases_in(
        "|//|[|/r[|/r[@a='x]|/r[@a='it's']|count(/r)|1+1|'x'|/r/@a|//@*|/r/text()|/|$v|f(/r)|/r/a[x()]|no:pe()|/r//|/r/"
        "123");
    queries.push_back("/r/a|//@a");
    for (const std::size_t count : {65U, 5000U, 200'000U}) {
        queries.push_back(repeated("(", count) + "/r" + repeated(")", count));
        queries.push_back("/r" + repeated("[r", count) + repeated("]", count));
        queries.push_back("/r[" + repeated("not(", count) + "a" + repeated(")", count) + "]");
        if (count < 5000) continue;
        for (const auto& [start, piece, end] : std::vector<std::array<std::string, 3>>{
                 {"/r[", "-", "1]"}, {"/r", "/r", ""}, {"/r", "|/r", ""}, {"/r[", "1+", "1]"}, {"/r", "[1]", ""}})
            queries.push_back(start + repeated(piece, count) + end);
    }
    queries.push_back("/r[@a='" + std::string(70'000, 'x') + "']");
    XmlDocument document;
    ASSERT_FALSE(document.parse("<r a='1'>text<a a='2'/></r>"));
    for (const std::string& query : queries)
        for (const bool all : {false, true}) {
            const std::string error =
                raised([&] { all ? (void)document.select_all(query) : (void)document.select(query); });
            EXPECT_TRUE(error.starts_with("-2147467259|XPath|Query[" + query.substr(0, 200))) << error;
            EXPECT_EQ(error.find("pugi"), std::string::npos);
        }
    const std::string brackets = "'" + repeated("(", 100) + "'";
    EXPECT_FALSE(document.select("/r[" + repeated("(", 63) + brackets + "=\"" + repeated("]", 9) + "\"" +
                                 repeated(")", 63) + "]"));
    EXPECT_TRUE(document.select_all("/r" + repeated("[1]", 60) + "[@a!='" + std::string(60'000, 'x') + "']").size() ==
                1);
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
    EXPECT_EQ(document.select("//*[@n='2']")->name(), "a");
    EXPECT_FALSE(document.select("/r/c"));
    EXPECT_TRUE(document.select_all("/r/c").empty());
    EXPECT_FALSE(document.select("/r")->child("c"));
    EXPECT_EQ(document.select("/r")->child("b")->attribute("n") + document.select("/r")->attribute("none"), "1");
    EXPECT_FALSE(XmlDocument().select("/r"));
}

}  // namespace
}  // namespace korvane
