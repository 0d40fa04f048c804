// Documents with one marked place, in several encodings, for tests that compare bytes.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

inline std::string replaced(std::string_view text, std::string_view from, std::string_view to) {
    std::string result;
    for (std::size_t at = text.find(from); at != std::string_view::npos; at = text.find(from)) {
        result.append(text.substr(0, at)).append(to);
        text.remove_prefix(at + from.size());
    }
    return result.append(text);
}

/// Documents; "@" stands for the text of the element that `sample_query` selects, and nowhere else.
inline constexpr const char* sample_query = "//target[not(*)][1]";
inline std::vector<std::string> xml_samples() {
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

inline constexpr char16_t euro = 0x20AC;

/// Text in UTF-8 to the bytes of a file; written apart from the product's own conversion, for characters up to U+FFFF.
struct XmlFileForm {
    std::string mark;         // byte order mark
    std::string declaration;  // put before the document
    int unit = 1;             // bytes a character, 2 for UTF-16; 1 with `single`: one byte a character
    bool big_endian = false;
    bool single = false;
    char16_t largest = 0xFFFF;  // last character that the form can hold
    bool has_euro = false;      // and the euro sign, as byte 0x80
};

inline std::vector<XmlFileForm> xml_file_forms() {
    return {{"", ""},
            {"\xEF\xBB\xBF", "<?xml version='1.0' encoding='UTF-8'?>"},
            {"\xEF\xBB\xBF", "<?xml version='1.0' encoding='ISO-8859-1'?>"},
            {"", "<?xml version='1.0' encoding='utf8'?>"},
            {"\xFF\xFE", "<?xml version=\"1.0\" encoding=\"UTF-16\"?>", 2},
            {"\xFE\xFF", "", 2, true},
            {"", "<?xml version=\"1.0\"?>", 2},
            {"", "<?xml version=\"1.0\" encoding='utf-8'?>", 2, true},
            {"", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>", 1, false, true, 0xFF},
            {"", "<?xml version='1.0' encoding='Windows-1252'?>", 1, false, true, 0xFF, true},
            {"", "<?xml version='1.0' encoding = \"us-ascii\" ?>", 1, false, true, 0x7F},
            {"", "<?xml version='1.0' encoding='ASCII'?>", 1, false, true, 0x7F}};
}

/// The library's own conversions of paths: texts without backslashes pass through them.
inline std::u16string characters_of(std::string_view utf8) {
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end())).u16string();
}

inline std::string file_bytes(const XmlFileForm& form, const std::string& document) {
    const std::string text =
        form.declaration + (document.starts_with("<?xml") ? document.substr(document.find("?>") + 2) : document);
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
