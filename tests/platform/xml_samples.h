// Documents with one marked place, in several encodings, for tests that compare bytes.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

/// A document; "@" stands for the text of the element that the query selects, and nowhere else.
struct XmlSample {
    std::string name;
    std::string source;
    std::string query = "//target";
};

inline std::string replaced(std::string_view text, std::string_view from, std::string_view to) {
    std::string result;
    for (std::size_t at = text.find(from); at != std::string_view::npos; at = text.find(from)) {
        result.append(text.substr(0, at)).append(to);
        text.remove_prefix(at + from.size());
    }
    return result.append(text);
}

inline std::vector<XmlSample> xml_samples() {
    std::vector<XmlSample> samples{
        {"leaf alone", "<target>@</target>"},
        {"declaration", "<?xml version=\"1.0\"?>\n<r><target>@</target></r>\n"},
        {"pretty", "<r>\n  <a>1</a>\n  <target>@</target>\n  <b/>\n</r>\n\n"},
        {"tabs", "<r>\n\t<g>\n\t\t<target>@</target>\n\t</g>\n</r>"},
        {"blanks in tags", "<r  a = \"1\"  ><target  b='2'\n >@</target \t>\n</r >"},
        {"comments like tags", "<r><!--> <target>no</target> it's \"odd --><target>@</target><!-- ' --></r>"},
        {"CDATA like tags", "<r><x><![CDATA[<target>no</target>]]></x><target>@</target><x><![CDATA[</r>]]></x></r>"},
        {"processing instructions", "<?p <target> ?><r><?q </r> ?><target>@</target></r><?z end?>"},
        {"quotes of both kinds", "<r><x a='\"' b=\"'\"/><target c='it is > that' d=\"/>\">@</target></r>"},
        {"same name nested before", "<r><n><n><n/></n></n><target>@</target></r>"},
        {"same name behind", "<r><target>@</target><target>second</target></r>", "/r/target[1]"},
        {"same name around", "<target><target>@</target></target>", "/target/target"},
        {"longer name with the same start", "<r><targets>x</targets><target>@</target><target2/></r>"},
        {"references", "<r a='&amp;&#65;'>&lt;target&gt;<x>&amp;amp;</x><target b='&lt;/target>'>@</target>&apos;</r>"},
        {"document type",
         "<!DOCTYPE r [ <!ENTITY e \"<target>no</target>\"> <!-- ]> --> ]>\n<r><target>@</target></r>"},
        {"external document type", "<!DOCTYPE r SYSTEM \"file:///etc/hostname\">\n<r><target>@</target></r>"},
        {"namespaces", "<n:r xmlns:n='u'><n:target>no</n:target><target xmlns=''>@</target></n:r>"},
        {"mixed content", "<!-- one -->\n<r>text <target>@</target> more &amp; more</r>\n<!-- two -->\n"},
    };
    const std::size_t count = samples.size();
    for (std::size_t i = 0; i < count; ++i)
        if (samples[i].source.find('\n') != std::string::npos)
            samples.push_back(
                {samples[i].name + ", carriage returns", replaced(samples[i].source, "\n", "\r\n"), samples[i].query});
    return samples;
}

inline constexpr char16_t euro = 0x20AC;

/// Text in UTF-8 to the bytes of a file; written apart from the product's own conversion, for characters up to U+FFFF.
struct XmlFileForm {
    std::string name;
    std::string mark;         // byte order mark
    std::string declaration;  // put before the document
    int unit = 1;             // bytes a character, 2 for UTF-16; 1 with `single`: one byte a character
    bool big_endian = false;
    bool single = false;
    char16_t largest = 0xFFFF;  // last character that the form can hold
    bool has_euro = false;      // and the euro sign, as byte 0x80
};

inline std::vector<XmlFileForm> xml_file_forms() {
    return {{"UTF-8", "", ""},
            {"UTF-8 with mark", "\xEF\xBB\xBF", "<?xml version='1.0' encoding='UTF-8'?>"},
            {"UTF-8, a wrong declaration", "\xEF\xBB\xBF", "<?xml version='1.0' encoding='ISO-8859-1'?>"},
            {"UTF-8 by another name", "", "<?xml version='1.0' encoding='utf8'?>"},
            {"UTF-16 little-endian", "\xFF\xFE", "<?xml version=\"1.0\" encoding=\"UTF-16\"?>", 2},
            {"UTF-16 big-endian", "\xFE\xFF", "", 2, true},
            {"UTF-16 without mark", "", "<?xml version=\"1.0\"?>", 2},
            {"UTF-16 big-endian without mark", "", "<?xml version=\"1.0\" encoding='utf-8'?>", 2, true},
            {"ISO-8859-1", "", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>", 1, false, true, 0xFF},
            {"windows-1252", "", "<?xml version='1.0' encoding='Windows-1252'?>", 1, false, true, 0xFF, true},
            {"US-ASCII", "", "<?xml version='1.0' encoding = \"us-ascii\" ?>", 1, false, true, 0x7F},
            {"ASCII by another name", "", "<?xml version='1.0' encoding='ASCII'?>", 1, false, true, 0x7F}};
}

/// The library's own conversions of paths: texts without backslashes pass through them.
inline std::u16string characters_of(std::string_view utf8) {
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end())).u16string();
}

inline std::string file_bytes(const XmlFileForm& form, const std::string& document) {
    const bool has_declaration = document.starts_with("<?xml");
    const std::string body = has_declaration ? document.substr(document.find("?>") + 2) : document;
    const std::string text = form.declaration + body;
    if (form.unit == 1 && !form.single) return form.mark + text;
    std::string bytes = form.mark;
    for (const char16_t character : characters_of(text)) {
        const char low = character == euro && form.single ? '\x80' : static_cast<char>(character & 0xFF);
        const char high = static_cast<char>(character >> 8);
        if (form.single)
            bytes += low;
        else
            (bytes += form.big_endian ? high : low) += form.big_endian ? low : high;
    }
    return bytes;
}

/// `text` as it must stand between tags in that form.
inline std::string written_text(const XmlFileForm& form, const std::string& text) {
    std::string written;
    for (const char16_t character : characters_of(text)) {
        const bool fits = character <= form.largest || (form.has_euro && character == euro);
        const std::u8string utf8 = std::filesystem::path(std::u16string(1, character)).u8string();
        written += character == '&'             ? "&amp;"
                   : character == '<'           ? "&lt;"
                   : character == '>'           ? "&gt;"
                   : character == '\r' || !fits ? "&#" + std::to_string(character) + ";"
                                                : std::string(utf8.begin(), utf8.end());
    }
    return written;
}

}  // namespace korvane
