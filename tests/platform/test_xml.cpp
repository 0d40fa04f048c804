#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "platform/cases.h"
#include "platform/xml_document.h"
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

}  // namespace
}  // namespace korvane
