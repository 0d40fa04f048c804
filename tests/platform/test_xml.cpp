// XML documents: edits that change what they edit and nothing else, and reading.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "korvane/error.h"
#include "platform/cases.h"
#include "platform/xml_document.h"
#include "support/memory_disk.h"
#include "support/raised.h"

namespace korvane {
namespace {

std::string replaced(std::string_view text, std::string_view from, std::string_view to) {
    std::string result;
    for (std::size_t at = text.find(from); at != std::string_view::npos; at = text.find(from)) {
        result.append(text.substr(0, at)).append(to);
        text.remove_prefix(at + from.size());
    }
    return result.append(text);
}

/// Documents; "@" stands for the text of the element that `sample_query` selects, and nowhere else.
constexpr const char* sample_query = "//target[not(*)][1]";
std::vector<std::string> xml_samples() {
    std::vector<std::string> samples{
        "<target>@</target>",
        "<?xml version=\"1.0\"?>\n<r>\n  <a>1</a>\n  <target>@</target>\n  <b/>\n</r>\n\n",
        "<r>\n\t<g  a = \"1\"  >\n\t\t<target b='2'\n >@</target \t>\n\t</g>\n</r >",
        "<r><!--> <target>no</target> it's \"odd --><x><![CDATA[<target>no</target>]]></x><?p <target> ?>"
        "<target>@</target><?q </r> ?><!-- ' --><x><![CDATA[</r>]]></x></r><?z end?>",
        "<r><x a='\"' b=\"'\"/><target c='it is > that' d=\"/>\">@</target></r>",
        "<r><n><n><n/></n></n><targets>x</targets><target>@</target><target>second</target></r>",
        "<target><target>@</target></target>",
        "<r a='&amp;&#65;'>&lt;target&gt;<x>&amp;amp;</x><target b='&lt;/target>'>@</target>&apos;</r>",
        "<!DOCTYPE r [ <!ENTITY e \"<target>no</target>\"> <!-- ]> --> ]>\n<r><target>@</target></r>",
        "<!DOCTYPE r SYSTEM \"file:///etc/hostname\">\n<r><target>@</target></r>",
        "<!-- one -->\n<n:r xmlns:n='u'><n:target>no</n:target>text <target xmlns=''>@</target> more &amp; more</n:r>\n"
        "<!-- two -->\n"};
    for (std::size_t i = samples.size(); i-- > 0;)
        if (samples[i].find('\n') != std::string::npos) samples.push_back(replaced(samples[i], "\n", "\r\n"));
    return samples;
}

TEST(XmlSetText, ChangesTheElementsBytesAndNoOther) {
    // Texts, each with its form between tags.
    const auto texts = cases_in(
        "0|0|||1.5|1.5|  two  words |  two  words |a\r\nb\tc|a&#13;\nb\tc|"
        "<&>\"']]>&amp;|&lt;&amp;&gt;\"']]&gt;&amp;amp;|gr\xC3\xBC\xC3\x9F|gr\xC3\xBC\xC3\x9F");
    for (const std::string& sample : xml_samples())
        for (std::size_t i = 0; i < texts.size(); i += 2) {
            const std::size_t next = (i + 2) % texts.size();
            XmlDocument document;
            ASSERT_FALSE(document.parse(replaced(sample, "@", texts[i + 1]))) << sample;
            const auto target = document.select(sample_query);
            ASSERT_EQ(target.value().text(), texts[i]);
            document.set_text(*target, texts[next]);
            ASSERT_EQ(document.bytes(), replaced(sample, "@", texts[next + 1])) << sample;
        }
}

std::string utf16(std::string_view text, bool big_endian) {
    std::string bytes;
    for (const char16_t character : std::filesystem::path(std::u8string(text.begin(), text.end())).u16string()) {
        const char low = static_cast<char>(character & 0xFF), high = static_cast<char>(character >> 8);
        (bytes += big_endian ? high : low) += big_endian ? low : high;
    }
    return bytes;
}

TEST(XmlSetText, StaysInTheEncodingOfTheFile) {
    const std::string text = "\xC3\xA4 \xE2\x82\xAC", mark = "\xEF\xBB\xBF";
    const auto named = [](const std::string& name) { return "<?xml version='1.0' encoding=" + name + "?>"; };
    const auto plain = [](const std::string& bytes) { return bytes; };
    const auto little = [](const std::string& bytes) { return utf16(bytes, false); };
    const auto big = [](const std::string& bytes) { return utf16(bytes, true); };
    // What stands before the root, how the text is written, and how both become bytes.
    const std::tuple<std::string, std::string, std::function<std::string(const std::string&)>> rows[] = {
        {"", text, plain},
        {mark + named("'UTF-8'"), text, plain},
        {mark + named("'ISO-8859-1'"), text, plain},
        {named("'utf8'"), text, plain},
        {mark + named("\"UTF-16\""), text, little},
        {mark, text, big},
        {"<?xml version='1.0'?>", text, little},
        {named("'utf-8'"), text, big},
        {named("\"ISO-8859-1\""), "\xE4 &#8364;", plain},
        {named("'Windows-1252'"), "\xE4 \x80", plain},
        {named(" \"us-ascii\" "), "&#228; &#8364;", plain},
        {named("'ASCII'"), "&#228; &#8364;", plain}};
    for (const auto& [start, written, encoded] : rows) {
        const auto bytes_of = [&](const std::string& content) { return encoded(start + "<r>" + content + "</r>"); };
        XmlDocument document;
        ASSERT_FALSE(document.parse(bytes_of("0"))) << start;
        EXPECT_EQ(document.bytes(), bytes_of("0")) << start;
        document.set_text(*document.select("/r"), text);
        EXPECT_EQ(document.bytes(), bytes_of(written)) << start;
        EXPECT_EQ(document.select("/r")->text(), text) << start;
    }
}

/// Edits every document, with line feeds and with carriage returns before them; each with what comes of it.
void expect_edits(const std::vector<std::pair<std::string, std::string>>& cases,
                  const std::function<void(XmlDocument&)>& edit) {
    for (const auto& [before, after] : cases)
        for (const std::string line_break : {"\n", "\r\n"}) {
            XmlDocument document;
            ASSERT_FALSE(document.parse(replaced(before, "\n", line_break))) << before;
            edit(document);
            EXPECT_EQ(document.bytes(), replaced(after, "\n", line_break));
        }
}

TEST(XmlSetText, KeepsTheSpellingOfAnUnchangedTextAndOpensAnElementOnlyForAText) {
    const auto set = [](const std::string& text) {
        return [text](XmlDocument& document) { document.set_text(*document.select("//target"), text); };
    };
    for (const std::string spelling :
         {"&#48;", "<![CDATA[0]]>", "<!-- c -->0", "0<?p?>", "<x/>0", "<x a='>'><y/></x>0"}) {
        const std::string before = "<r><target>" + spelling + "</target></r>";
        expect_edits({{before, before}}, set("0"));
        expect_edits({{before, "<r><target>1</target></r>"}}, set("1"));
    }
    for (const std::string start : {"<target", "<target a='/>'", "<target\n a = \"'\""})
        for (const std::string end : {"/>", " />", "\n\t/>"}) {
            const std::string before = "<r>\n  " + start, after = "<x/>\n</r>";
            expect_edits({{before + end + after, before + end + after}}, set(""));
            expect_edits({{before + end + after, before + ">t</target>" + after}}, set("t"));
        }
    const std::string clef = "\xF0\x9D\x84\x9E", utf16("\xFF\xFE<\0r\0>\0\x34\xD8\x1E\xDD<\0/\0r\0>\0", 20);
    XmlDocument document;
    ASSERT_FALSE(document.parse(utf16));
    EXPECT_EQ(document.select("/r")->text(), clef);
    document.set_text(*document.select("/r"), "x");
    document.set_text(*document.select("/r"), clef);
    EXPECT_EQ(document.bytes(), utf16);
}

TEST(XmlNewElement, FitsIntoTheLayoutOfItsSiblingsAndMovesToTheEnd) {
    const std::string first = "<mass Used=\"1\">622.03</mass>", second = "<mass Used=\"a&quot;&lt;&#10;\"/>";
    const std::string in_line = "<MassList>" + first + second + "</MassList>";
    const auto laid_out = [&](const std::string& indent, const std::string& unit) {
        const std::string line = "\n" + indent, inner = line + unit;
        return line + "<MassList>" + inner + first + inner + second + line + "</MassList>";
    };
    const XmlNewElement list{
        "MassList", {}, "", {{"mass", {{"Used", "1"}}, "622.03", {}}, {"mass", {{"Used", "a\"<\n"}}, "", {}}}};
    const std::string open = "<r>\n  <c>", note = "\n    <note/>", remark = "\n    <!-- kept -->",
                      close = "\n  </c>\n</r>\n";
    const std::string old = "\n    <MassList/>", two = laid_out("    ", "  ");
    expect_edits(
        {{"<r><c a='1'><MassList><mass>5</mass></MassList></c></r>", "<r><c a='1'>" + in_line + "</c></r>"},
         {open + old + note + close, open + note + two + close},
         {open + remark + old + close, open + remark + two + close},
         {open + old + remark + close, open + remark + two + close},
         {"<r>\n\t<c>\n\t\t<MassList/>\n\t</c>\n</r>\n", "<r>\n\t<c>" + laid_out("\t\t", "\t") + "\n\t</c>\n</r>\n"},
         {"<r><c>some <MassList/>text</c></r>", "<r><c>some text" + in_line + "</c></r>"},
         {"<r><c><MassList/> <b/> </c></r>", "<r><c> <b/> " + in_line + "</c></r>"}},
        [&](XmlDocument& document) {
            const auto parent = document.select("//c");
            document.append_child(*parent, list, parent->select("MassList"));
            EXPECT_EQ(document.select("//mass[2]")->attribute("Used"), "a\"<\n");
        });
    const std::string declaration = "<?xml version='1.0'?>\n", laid = declaration + "<r>\n  <n>1</n>\n</r>\n";
    expect_edits({{"<r/>", "<r><n>1</n></r>"},
                  {"<r></r>", "<r><n>1</n></r>"},
                  {"<r>text</r>", "<r>text<n>1</n></r>"},
                  {"<r>\n <a/>\n</r>", "<r>\n <a/>\n <n>1</n>\n</r>"},
                  {"<r>\n <a/></r>", "<r>\n <a/>\n <n>1</n></r>"},
                  {declaration + "<r />\n", laid},
                  {declaration + "<r></r>\n", laid},
                  {declaration + "<r>\n</r>\n", laid},
                  {"<r><![CDATA[ ]]></r>", "<r><![CDATA[ ]]><n>1</n></r>"}},
                 [](XmlDocument& document) {
                     document.append_child(*document.select("/r"), {"n", {}, "1", {}});
                 });
}

TEST(XmlEdit, IsRefusedForAnotherDocumentOrParentAndForWhatNoXmlFileCanHold) {
    XmlDocument other;
    ASSERT_FALSE(other.parse("<r><a/></r>"));
    for (const std::string declaration : {"", "<?xml version='1.0' encoding='us-ascii'?>"}) {
        const std::string bytes = declaration + "<r><a/><b><a/></b></r>";
        XmlDocument document;
        ASSERT_FALSE(document.parse(bytes));
        const XmlElement root = *document.select("/r");
        const XmlNewElement plain{"n", {}, "", {}};
        std::vector<std::function<void()>> edits{
            [&] { document.set_text(*other.select("/r"), "x"); },
            [&] { document.append_child(root, plain, other.select("/r/a")); },
            [&] { document.append_child(root, plain, document.select("/r/b/a")); }};
        for (const std::string& text :
             {std::string("a\0b", 3), std::string("\x01"), std::string("\x1F"), std::string("\xFF"),
              std::string("\xC3"), std::string("\xED\xA0\x80"), std::string("\xEF\xBF\xBF"), std::string("\xC0\x80")}) {
            edits.push_back([&document, root, text] { document.set_text(root, text); });
            edits.push_back([&document, root, text] { document.append_child(root, {"n", {{"a", text}}, "", {}}); });
        }
        for (const auto& edit : edits) {
            EXPECT_TRUE(raised(edit).starts_with("5|Korvane|Invalid procedure call")) << raised(edit);
            EXPECT_EQ(document.bytes(), bytes);
            EXPECT_EQ(root.select("a")->text(), "");
        }
    }
}

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
