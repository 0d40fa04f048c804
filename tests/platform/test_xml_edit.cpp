#include <gtest/gtest.h>

#include <map>
#include <random>

#include "korvane/error.h"
#include "platform/xml_document.h"
#include "platform/xml_samples.h"

namespace korvane {
namespace {

const std::vector<std::string> texts{"0",         "",       "1.5", " ",     "  two  words ",      "a\nb",
                                     "a\r\nb\tc", "<&>\"'", "]]>", "&amp;", "gr\xC3\xBC\xC3\x9F", "5 \xE2\x82\xAC"};

TEST(XmlSetText, ChangesTheElementsBytesAndNoOther) {
    for (const XmlFileForm& form : xml_file_forms())
        for (const XmlSample& sample : xml_samples())
            for (const std::string& before : texts)
                for (const std::string& after : texts) {
                    SCOPED_TRACE(form.name + ", " + sample.name + ", [" + before + "] to [" + after + "]");
                    const std::string old_bytes =
                        file_bytes(form, replaced(sample.source, "@", written_text(form, before)));
                    const std::string new_bytes =
                        file_bytes(form, replaced(sample.source, "@", written_text(form, after)));
                    XmlDocument document;
                    const XmlParseError error = document.parse(old_bytes, true);
                    ASSERT_FALSE(error) << error.reason;
                    ASSERT_EQ(document.bytes(), old_bytes);
                    const auto target = document.select(sample.query);
                    ASSERT_TRUE(target);
                    ASSERT_EQ(target->text(), before);
                    document.set_text(*target, after);
                    ASSERT_EQ(document.bytes(), new_bytes);
                    ASSERT_EQ(document.select(sample.query)->text(), after);
                }
}

TEST(XmlSetText, KeepsTheSpellingOfAnUnchangedText) {
    for (const std::string spelling : {"&#48;", "<![CDATA[0]]>", "<!-- c -->0", "0<?p?>", "<x/>0"}) {
        const std::string bytes = "<r><target>" + spelling + "</target></r>";
        XmlDocument document;
        ASSERT_FALSE(document.parse(bytes, true));
        document.set_text(*document.select("//target"), "0");
        EXPECT_EQ(document.bytes(), bytes);
        document.set_text(*document.select("//target"), "1");
        EXPECT_EQ(document.bytes(), "<r><target>1</target></r>");
    }
}

TEST(XmlSetText, OpensASelfClosingElementOnlyForAText) {
    for (const std::string start : {"<target", "<target a='/>'", "<target\n a = \"'\""})
        for (const std::string end : {"/>", " />", "\r\n\t/>"}) {
            const std::string before = "<r>\n  " + start, after = "<x/>\n</r>";
            XmlDocument document;
            ASSERT_FALSE(document.parse(before + end + after, true));
            document.set_text(*document.select("//target"), "");
            EXPECT_EQ(document.bytes(), before + end + after);
            document.set_text(*document.select("//target"), "t");
            EXPECT_EQ(document.bytes(), before + ">t</target>" + after);
        }
}

TEST(XmlSetText, RefusesCharactersThatNoXmlFileCanHoldAndKeepsTheDocument) {
    for (const std::string& text :
         {std::string("a\0b", 3), std::string("\x01"), std::string("\x1F"), std::string("\xFF"), std::string("\xC3"),
          std::string("\xED\xA0\x80"), std::string("\xEF\xBF\xBF"), std::string("\xC0\x80")}) {
        XmlDocument document;
        ASSERT_FALSE(document.parse("<r>1</r>", true));
        try {
            document.set_text(*document.select("/r"), text);
            ADD_FAILURE() << "accepted";
        } catch (const Error& error) {
            EXPECT_EQ(error.number(), error_number::invalid_call);
        }
        EXPECT_EQ(document.bytes(), "<r>1</r>");
        EXPECT_EQ(document.select("/r")->text(), "1");
    }
}

TEST(XmlSetText, KeepsCharactersBeyondTheFirstPlane) {
    const std::string clef = "\xF0\x9D\x84\x9E";
    const std::string utf16("\xFF\xFE<\0r\0>\0\x34\xD8\x1E\xDD<\0/\0r\0>\0", 20);
    XmlDocument document;
    ASSERT_FALSE(document.parse(utf16, true));
    EXPECT_EQ(document.select("/r")->text(), clef);
    EXPECT_EQ(document.bytes(), utf16);
    document.set_text(*document.select("/r"), "x");
    document.set_text(*document.select("/r"), clef);
    EXPECT_EQ(document.bytes(), utf16);
}

TEST(XmlSetText, AgreesWithAMapOverManyRandomEdits) {
    std::mt19937 random(7);
    const auto pick = [&](std::size_t count) {
        return std::uniform_int_distribution<std::size_t>(0, count - 1)(random);
    };
    std::map<std::string, std::string> values;
    for (int i = 0; i < 25; ++i) values[std::string(1, 'e').append(std::to_string(i))] = texts[pick(texts.size())];
    const XmlFileForm utf8 = xml_file_forms().front();
    const auto rendered = [&] {
        std::string text = "<r>\r\n";
        for (const auto& [name, value] : values)
            text += "\t<" + name + " k='>'>" + written_text(utf8, value) + "</" + name + "><!-- " + name + " -->\r\n";
        return text + "</r>";
    };
    XmlDocument document;
    ASSERT_FALSE(document.parse(rendered(), true));
    for (int step = 0; step < 500; ++step) {
        const std::string name = "e" + std::to_string(pick(values.size()));
        values[name] = texts[pick(texts.size())];
        document.set_text(*document.select("/r/" + name), values[name]);
        ASSERT_EQ(document.bytes(), rendered()) << "step " << step;
    }
    for (const auto& [name, value] : values) EXPECT_EQ(document.select("/r")->child(name)->text(), value);
}

XmlNewElement mass_list() {
    XmlNewElement list{"MassList", {}, "", {}};
    list.children.push_back({"mass", {{"Used", "1"}}, "622.03", {}});
    list.children.push_back({"mass", {{"Used", "a\"<\n"}}, "", {}});
    return list;
}

struct ReplaceCase {
    std::string before;
    std::string after;
};

TEST(XmlReplaceChild, MovesTheNewOneToTheEndInTheLayoutOfItsSiblings) {
    const std::string first = "<mass Used=\"1\">622.03</mass>", second = "<mass Used=\"a&quot;&lt;&#10;\"/>";
    const std::vector<ReplaceCase> cases{
        {"<r><c a='1'><MassList><mass>5</mass></MassList></c></r>",
         "<r><c a='1'><MassList>" + first + second + "</MassList></c></r>"},
        {"<r>\n  <c>\n    <MassList/>\n    <note/>\n  </c>\n</r>\n", "<r>\n  <c>\n    <note/>\n    <MassList>\n      " +
                                                                         first + "\n      " + second +
                                                                         "\n    </MassList>\n  </c>\n</r>\n"},
        {"<r>\n  <c>\n    <!-- kept -->\n    <MassList/>\n  </c>\n</r>\n",
         "<r>\n  <c>\n    <!-- kept -->\n    <MassList>\n      " + first + "\n      " + second +
             "\n    </MassList>\n  </c>\n</r>\n"},
        {"<r>\n  <c>\n    <MassList/>\n    <!-- kept -->\n  </c>\n</r>\n",
         "<r>\n  <c>\n    <!-- kept -->\n    <MassList>\n      " + first + "\n      " + second +
             "\n    </MassList>\n  </c>\n</r>\n"},
        {"<r>\n\t<c>\n\t\t<MassList/>\n\t</c>\n</r>\n",
         "<r>\n\t<c>\n\t\t<MassList>\n\t\t\t" + first + "\n\t\t\t" + second + "\n\t\t</MassList>\n\t</c>\n</r>\n"},
        {"<r><c>some <MassList/>text</c></r>", "<r><c>some text<MassList>" + first + second + "</MassList></c></r>"},
        {"<r><c><MassList/> <b/> </c></r>", "<r><c> <b/> <MassList>" + first + second + "</MassList></c></r>"}};
    for (const ReplaceCase& example : cases)
        for (const bool with_returns : {false, true}) {
            const std::string before = with_returns ? replaced(example.before, "\n", "\r\n") : example.before;
            const std::string after = with_returns ? replaced(example.after, "\n", "\r\n") : example.after;
            XmlDocument document;
            ASSERT_FALSE(document.parse(before, true));
            const auto parent = document.select("//c");
            document.replace_child(*parent, *parent->child("MassList"), mass_list());
            EXPECT_EQ(document.bytes(), after);
            EXPECT_EQ(document.select("//mass[2]")->attribute("Used"), "a\"<\n");
            EXPECT_EQ(document.select_all("//MassList").size(), 1U);
        }
}

TEST(XmlAppendChild, FitsIntoTheLayoutOfParentsWithAndWithoutChildren) {
    const std::vector<ReplaceCase> cases{
        {"<r/>", "<r><n>1</n></r>"},
        {"<r></r>", "<r><n>1</n></r>"},
        {"<r>text</r>", "<r>text<n>1</n></r>"},
        {"<r>\n <a/>\n</r>", "<r>\n <a/>\n <n>1</n>\n</r>"},
        {"<r>\n <a/></r>", "<r>\n <a/>\n <n>1</n></r>"},
        {"<?xml version='1.0'?>\n<r />\n", "<?xml version='1.0'?>\n<r>\n  <n>1</n>\n</r>\n"},
        {"<?xml version='1.0'?>\n<r></r>\n", "<?xml version='1.0'?>\n<r>\n  <n>1</n>\n</r>\n"},
        {"<?xml version='1.0'?>\n<r>\n</r>\n", "<?xml version='1.0'?>\n<r>\n  <n>1</n>\n</r>\n"},
        {"<r><![CDATA[ ]]></r>", "<r><![CDATA[ ]]><n>1</n></r>"}};
    for (const ReplaceCase& example : cases) {
        XmlDocument document;
        ASSERT_FALSE(document.parse(example.before, true));
        document.append_child(*document.select("/r"), {"n", {}, "1", {}});
        EXPECT_EQ(document.bytes(), example.after);
    }
}

TEST(XmlAppendChild, RefusesNamesThatWouldBreakTheFile) {
    for (const std::string name : {"", "a b", "a>", "<a", "1a", "-a", "a/", "a=", "a\"", "a&b", "gr\xC3\xBC"}) {
        XmlDocument document;
        const std::string bytes = "<?xml version='1.0' encoding='us-ascii'?><r/>";
        ASSERT_FALSE(document.parse(bytes, true));
        EXPECT_THROW(document.append_child(*document.select("/r"), {name, {}, "", {}}), Error) << name;
        EXPECT_THROW(document.append_child(*document.select("/r"), {"n", {{name, "v"}}, "", {}}), Error) << name;
        EXPECT_EQ(document.bytes(), bytes);
    }
}

TEST(XmlEdit, IsRefusedWhereItCouldNotBeSavedOrHitsAnotherDocument) {
    XmlDocument reading, editing, other;
    ASSERT_FALSE(reading.parse("<r><a/></r>"));
    ASSERT_FALSE(editing.parse("<r><a/><b><a/></b></r>", true));
    ASSERT_FALSE(other.parse("<r><a/></r>", true));
    const auto expect_refused = [](const auto& edit) {
        try {
            edit();
            ADD_FAILURE() << "accepted";
        } catch (const Error& error) {
            EXPECT_EQ(error.number(), error_number::invalid_call);
        }
    };
    expect_refused([&] { reading.set_text(*reading.select("/r"), "x"); });
    expect_refused([&] { reading.append_child(*reading.select("/r"), {"n", {}, "", {}}); });
    expect_refused([&] { (void)reading.bytes(); });
    expect_refused([&] { editing.set_text(*other.select("/r"), "x"); });
    expect_refused([&] { editing.replace_child(*editing.select("/r"), *other.select("/r/a"), mass_list()); });
    expect_refused([&] { editing.replace_child(*editing.select("/r"), *editing.select("/r/b/a"), mass_list()); });
    EXPECT_EQ(editing.bytes(), "<r><a/><b><a/></b></r>");
}

}  // namespace
}  // namespace korvane
