#include <gtest/gtest.h>

#include "korvane/error.h"
#include "platform/cases.h"
#include "platform/xml_document.h"
#include "support/memory_disk.h"
#include "support/raised.h"

namespace korvane {
namespace {

using namespace std::string_literals;

TEST(XmlParse, RefusesWhatIsNoSingleWellFormedDocumentInAKnownEncoding) {
    const std::string entities = "<!DOCTYPE r [<!ENTITY e '15'><!ENTITY loop '&loop;'><!ENTITY out SYSTEM 'f'>]>";
    std::vector<std::string> documents = cases_in(
        "|text|<r/>trailing|<r/><r/>|<a><b></a></b>|<r a='1' a='2'/>|<A>15&#0;0</A>|<r>a & b</r>|<r>&no;</r>|<r "
        "a='&no;'/>|"
        "\xEF\xBB\xBF|\xFF\xFE|<r>\xE4</r>|<?xml version='1.0' encoding='us-ascii'?><r>\xE4</r>|"
        "<?xml version='1.0' encoding='utf8'?><r>\xE4</r>|<?xml version='1.0' encoding='utf-16'?><r/>|"
        "<?xml version='1.0' encoding='ebcdic'?><r/>|"
        // an external document type hides which entities there are
        "<!DOCTYPE r SYSTEM 'f'><r>&e;</r>|<!DOCTYPE r SYSTEM 'f'><r a='&e;'/>");
    // Entities must not be read as their own names.
    for (const std::string& root :
         cases_in("<r>&e;</r>|<r a='1&e;'/>|<r a='&#65;&amp;&e;'/>|<r>&loop;</r>|<r>&out;</r>"))
        documents.push_back(entities + root);
    for (const std::string& bytes :
         {"<r>0\0</r>"s, "\xFF\xFE<\0r\0>\0\x00\xDC\x00\xD8<\0/\0r\0>\0"s, "\xFF\xFE<\0r\0/\0>"s})
        documents.push_back(bytes);
    for (const std::string& bytes : documents) {
        XmlDocument document;
        ASSERT_FALSE(document.parse("<r>old</r>"));
        const XmlParseError error = document.parse(bytes);
        EXPECT_TRUE(error.code >= 100 && !error.reason.empty()) << "accepted: " << bytes;
        EXPECT_FALSE(document.select("/r")) << "the document is not empty after a failure";
        EXPECT_EQ(document.bytes(), "");
    }
    EXPECT_EQ(XmlDocument().parse("<r>\n<!-- -- -->").reason, "not well-formed (invalid token) (line 2)");
    EXPECT_EQ(XmlDocument().parse(entities + "<r a='&e;'/>").code, 106);
    EXPECT_EQ(XmlDocument().parse(entities + "\n<r>&e;</r>").reason, "The entity [e] is none of XML's own (line 2)");
}

TEST(XmlText, IsAllCharacterDataUnchangedUpToTheElementsEnd) {
    // Each with its text.
    const auto cases = cases_in(
        " | |\n\t|\n\t|||1 |1 | 1| 1|a\r\nb|a\nb|a&#13;&#10;b|a\r\nb|&lt;&gt;&amp;&quot;&apos;&#x41;|<>&\"'A|"
        "<![CDATA[<&amp;>]]>|<&amp;>|a<![CDATA[ b ]]>c|a b c|a<!-- x -->b<?p y?>c|abc| <!-- x -->0<?p?>\n| 0\n|"
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
    XmlDocument document;
    const auto text = [&] { return document.select("/r") ? document.select("/r")->text() : "none"; };
    disk.put(path, "<!DOCTYPE r " + secret + " [<!ENTITY % p " + secret + "> %p;<!ENTITY s " + secret + ">]><r>1</r>");
    ASSERT_FALSE(document.load(disk, path));
    const XmlElement kept = *document.select("/r");
    ASSERT_FALSE(document.load(disk, path));
    EXPECT_EQ(disk.operations, 2);
    EXPECT_EQ(kept.text(), "1") << "the tree was built anew";
    // An edit that was not saved must not answer for the file; one that was, may.
    for (const bool saved : {false, true}) {
        document.set_text(*document.select("/r"), "3");
        if (saved) document.save(disk, path);
        ASSERT_FALSE(document.load(disk, path));
        EXPECT_EQ(text(), saved ? "3" : "1");
    }
    // Longer and shorter ones, malformed ones and none in between.
    for (const std::string& content : {"<r>" + std::string(5000, 'x') + "</r>", "<r>4</r>"s, "<r>4</r "s, "<r>4</r>"s,
                                       ""s, "<r>5</r>"s, "gone"s, "gone"s, "<r>5</r>"s}) {
        content == "gone" ? disk.remove(path) : disk.put(path, content);
        const XmlParseError error = document.load(disk, path);
        EXPECT_EQ(error.code == 0, content.ends_with("</r>")) << content;
        EXPECT_EQ(error.code < 0, content == "gone");
        EXPECT_EQ(error.reason.find(path) != std::string::npos, content == "gone");
        EXPECT_EQ(text(), content.ends_with("</r>") ? content.substr(3, content.size() - 7) : "none");
        if (content == "gone") disk.put(path, content);
    }
}

std::string repeated(const std::string& text, std::size_t count) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i) result += text;
    return result;
}

TEST(XmlLimits, NestingAndSizeAreRefusedFromTheFirstTooMany) {
    XmlDocument document;
    const auto nested = [](std::size_t depth, const std::string& before_each) {
        return repeated(before_each + "<e>", depth) + repeated("</e>", depth);
    };
    // What is no tag must neither count nor take from the count.
    const std::string between = "\n <!--</e></e><e>--><![CDATA[</e></e>]]><?p </e></e>?><x/><x a='/>'/><x></x>text >";
    for (const std::string& start : {""s, "<!DOCTYPE r [<!ENTITY a '</e></e>'>]><!-- </e> -->"s}) {
        ASSERT_FALSE(document.parse(start + "<r>" + nested(8191, between) + "</r>"));
        EXPECT_EQ(document.select_all("//e").size(), 8191U);
        EXPECT_EQ(document.parse(start + "<r>" + nested(8192, between) + "</r>").code, 105);
        EXPECT_FALSE(document.select("//e"));
    }
    EXPECT_EQ(document.parse(nested(300'000, "")).reason, "The element [e] is nested deeper than 8192 levels (line 1)");
    const XmlParseError error = document.parse("<r>" + std::string(257U << 20, 'x') + "</r>");
    EXPECT_EQ(error.code, 100);
    EXPECT_NE(error.reason.find("268435456"), std::string::npos);
    ASSERT_FALSE(document.parse(nested(8192, "")));
    const auto append = [&](std::size_t to) {
        document.append_child(document.select_all("//e")[to], {"n", {}, "y", {}});
    };
    EXPECT_TRUE(raised([&] { append(8191); }).starts_with("5|Korvane|Invalid procedure call"));
    EXPECT_EQ(document.bytes(), nested(8192, ""));
    append(8190);
    EXPECT_EQ(document.select("/e")->text(), "y");
}

TEST(XmlQuery, RefusesBombsAndMalformedQueriesNamingThem) {
    std::vector<std::string> queries =
        cases_in("|//|/r[@a='x]|/r[@a='it's']|count(/r)|1+1|'x'|$v|f(/r)|no:pe()|/r//|/r/123");
    queries.insert(queries.end(),
                   {"/r[@a='" + std::string(70'000, 'x') + "']", repeated("(", 65) + "/r" + repeated(")", 65)});
    for (const std::size_t count : {5000U, 200'000U})
        for (const auto& [start, piece, end] : std::vector<std::array<std::string, 3>>{
                 {"/r[", "-", "1]"}, {"/r", "/r", ""}, {"/r", "|/r", ""}, {"/r", "[1]", ""}, {"/r", "[r", "]"}})
            queries.push_back(start + repeated(piece, count) + end);
    XmlDocument document;
    ASSERT_FALSE(document.parse("<r a='1'>text<a a='2'/></r>"));
    for (const std::string& query : queries)
        for (const std::string& error :
             {raised([&] { (void)document.select_all(query); }), raised([&] { (void)document.select(query); })}) {
            EXPECT_TRUE(error.starts_with("-2147467259|XPath|Query[" + query.substr(0, 200))) << error;
            EXPECT_EQ(error.find("pugi"), std::string::npos);
        }
    EXPECT_FALSE(document.select("/r[" + repeated("(", 63) + "'x'='y'" + repeated(")", 63) + "]"));
    EXPECT_EQ(document.select_all("/r" + repeated("[1]", 60) + "[@a!='" + std::string(60'000, 'x') + "']").size(), 1U);
}

}  // namespace
}  // namespace korvane
