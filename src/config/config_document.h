// The document behind a configuration store: where it lies, how often its load and save are tried, what is said then.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "frame/routine.h"
#include "korvane/platform.h"
#include "platform/xml_document.h"

namespace korvane {

inline constexpr std::string_view config_reader_source = "AutotuneParameterXMLConfigFileReader";

/// Reaction of the stores' routines: "name: error[number, description] doing[item]".
struct StoreLine {
    std::string_view doing;
    std::string_view item;
    void operator()(TraceObj& record, RoutineName name, const Error& error) const {
        record.error_line(name.name, ": error[", error.number(), ", ", error.description(), "] ", doing, "[", item,
                          "]");
    }
};

/// What tells the stores' files apart.
struct ConfigFile {
    std::string_view name;
    std::string_view load_failed_trace;
    std::string_view save_failed_trace;
    std::string_view failed_description;
    std::string_view cleared_read_only_trace;  ///< empty: nothing is traced
};

class ConfigDocument {
public:
    ConfigDocument(const Platform& platform, const ConfigFile& file) : platform_(platform), file_(file) {}

    /// Whether a load was ever tried. After a failed one the document is there, and empty.
    bool is_open() const { return opened_; }

    /// Raises what a layer says that cannot be had. To be called before a handler that would take its error for a
    /// failed opening.
    void require_layer() const { platform_.instrument->create_path_information(); }
    /// Reads the file, three times at most; then -904, caused by what the system or the parser says. Memory is kept
    /// between loads.
    void load(TraceObj& record) { load(record, path()); }
    /// The same for an edit, which is to hold the lock until its file is saved.
    std::unique_ptr<FileLock> load_to_edit(TraceObj& record);
    /// Sets an element's text and saves, three times at most; then -904. A read-only attribute is cleared first, once;
    /// where it cannot be, the system's error is raised as it is.
    void write(TraceObj& record, const XmlElement& element, const std::string& text);

    /// First element of an XPath query.
    std::optional<XmlElement> select(const std::string& xpath) const;
    /// The same; error -905 of `source` where there is none.
    XmlElement required(const std::string& xpath, std::string_view source, const std::string& description) const;
    /// The element's number; a text that is none is an error that names item and file.
    double number(const XmlElement& element, std::string_view item) const;

private:
    std::string path() const;
    void load(TraceObj& record, const std::string& path);
    void before_next_attempt(TraceObj& record) const;
    [[noreturn]] void give_up(TraceObj& record, std::string_view trace, const std::string& path,
                              const std::string& cause) const;

    Platform platform_;
    ConfigFile file_;
    XmlDocument document_;
    XmlParseError parse_error_;
    bool opened_ = false;
    bool loaded_ = false;
};

/// First node of a relative query; error -904 naming `item`, and `place` behind the text, where there is none or the
/// query is none. A plain name is looked up without the XPath engine, which would find the same.
XmlElement required_child(const XmlElement& parent, const std::string& query, std::string_view item,
                          std::string_view place = {});

}  // namespace korvane
