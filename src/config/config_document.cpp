#include "config/config_document.h"

#include <algorithm>

#include "frame/lazy_instrument.h"
#include "frame/routine.h"
#include "platform/safe_save.h"

namespace korvane {

namespace {

constexpr int attempts = 3;
constexpr int retry_pause_milliseconds = 200;

bool is_letter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

bool is_plain_name(std::string_view query) {
    if (query.empty() || !is_letter(query.front())) return false;
    return std::all_of(query.begin(), query.end(), [](char c) { return is_letter(c) || (c >= '0' && c <= '9'); });
}

std::optional<XmlElement> found_by_name(const XmlElement& parent, const std::string& name) {
    if (is_plain_name(name)) return parent.child(name);
    try {
        return parent.select(name);
    } catch (const Error&) {
        return std::nullopt;  // "my pref", "160cm": no step of a path, so nothing has that name
    }
}

}  // namespace

XmlElement required_child(const XmlElement& parent, const std::string& query, std::string_view item,
                          std::string_view place) {
    if (const auto found = found_by_name(parent, query)) return *found;
    throw Error(error_number::file_or_element, std::string(config_reader_source),
                text_of("Item[", item, "] not found in Tune XML config file", place));
}

std::string ConfigDocument::path() const {
    return join_path(base_folder(*platform_.instrument), std::string(file_.name));
}

void ConfigDocument::load(TraceObj& record, const std::string& path) {
    opened_ = true;
    loaded_ = false;
    for (int attempt = 1;; ++attempt) {
        parse_error_ = document_.load(*platform_.files, path);
        loaded_ = !parse_error_;
        if (loaded_) return;
        if (attempt == attempts) give_up(record, file_.load_failed_trace, path, parse_error_.reason);
        before_next_attempt(record);
    }
}

std::unique_ptr<FileLock> ConfigDocument::load_to_edit(TraceObj& record) {
    const std::string file_path = path();
    auto lock = wait_for_edit_lock(*platform_.files, *platform_.clock, file_path);
    if (!lock) record.TR_PRINT("Edit without lock of ", file_path);
    load(record, file_path);
    return lock;
}

void ConfigDocument::write(TraceObj& record, const XmlElement& element, const std::string& text) {
    document_.set_text(element, text);
    const std::string file_path = path();
    const FileStatus status = platform_.files->status(file_path);
    if (status.exists && status.read_only) {
        if (!file_.cleared_read_only_trace.empty()) record.TR_PRINT(file_.cleared_read_only_trace);
        platform_.files->clear_read_only(file_path);
    }
    for (int attempt = 1;; ++attempt) {
        try {
            return document_.save(*platform_.files, file_path);
        } catch (const FileError& fault) {
            if (attempt == attempts) give_up(record, file_.save_failed_trace, file_path, fault.what());
        }
        before_next_attempt(record);
    }
}

void ConfigDocument::before_next_attempt(TraceObj& record) const {
    record.TR_PRINT("XML load failed; parseError[", parse_error_.code, "]");
    platform_.clock->sleep_milliseconds(retry_pause_milliseconds);
}

void ConfigDocument::give_up(TraceObj& record, std::string_view trace, const std::string& path,
                             const std::string& cause) const {
    record.TR_PRINT(trace, path, "; parseError[", parse_error_.code, "]");
    throw Error(error_number::file_or_element, std::string(config_reader_source),
                text_of(file_.failed_description, path, "; parseError[", parse_error_.code, "]"))
        .caused_by(cause);
}

std::optional<XmlElement> ConfigDocument::select(const std::string& xpath) const {
    static const XmlDocument empty;
    return (loaded_ ? document_ : empty).select(xpath);
}

XmlElement ConfigDocument::required(const std::string& xpath, std::string_view source,
                                    const std::string& description) const {
    if (const auto found = select(xpath)) return *found;
    throw Error(error_number::group_node, std::string(source), description);
}

double ConfigDocument::number(const XmlElement& element, std::string_view item) const {
    return located_number(element.text(), [&] { return text_of("Item[", item, "] of ", path()); });
}

}  // namespace korvane
