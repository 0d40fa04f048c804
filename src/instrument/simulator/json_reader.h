// Strict reading of the simulator's JSON files: every fault is error -904 naming the item and the file; a key that
// nobody asked for, a key given twice and a value of the wrong type or size are faults.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::simulation {

/// One value of a document. Valid as long as the document.
class JsonReader {
public:
    JsonReader(const nlohmann::json& value, std::string item, const std::string& file)
        : value_(&value), item_(std::move(item)), file_(&file) {}

    // The value itself. Bounds are inclusive.
    double as_number(double low = -std::numeric_limits<double>::max(),
                     double high = std::numeric_limits<double>::max()) const;
    std::int64_t as_integer(std::int64_t low, std::int64_t high) const;
    bool as_flag() const;
    std::string as_text() const;
    std::vector<JsonReader> as_array(std::size_t most_elements) const;

    // Members of an object; each marks the key as known.
    bool has(const char* key) const;
    std::optional<JsonReader> member(const char* key);
    /// Error where the key is missing.
    JsonReader required(const char* key);
    /// All members, ascending by key; marks all of them.
    std::vector<std::pair<std::string, JsonReader>> members();
    /// Error naming the first key of the object that was never asked for.
    void finish() const;

    // Replaces `target` where the key is given.
    void read(const char* key, double& target, double low, double high);
    void read(const char* key, std::int64_t& target, std::int64_t low, std::int64_t high);
    void read(const char* key, std::int32_t& target, std::int64_t low, std::int64_t high);
    void read(const char* key, bool& target);
    void read(const char* key, std::string& target);

    [[noreturn]] void refuse(const std::string& reason) const;
    const std::string& item() const { return item_; }

private:
    JsonReader child(const std::string& key, const nlohmann::json& value) const;
    void require_object() const;

    const nlohmann::json* value_;
    std::string item_;
    const std::string* file_;
    std::set<std::string, std::less<>> known_keys_;
};

class JsonDocument {
public:
    /// `file` is the name that errors state. Bounds: `most_bytes` and a nesting of 16.
    JsonDocument(std::string_view text, std::size_t most_bytes, std::string file);
    ~JsonDocument();

    JsonReader root() const;

private:
    std::unique_ptr<nlohmann::json> value_;
    std::string file_;
};

}  // namespace korvane::simulation
