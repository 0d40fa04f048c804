// The parameters of an mzML element: its own, and those of the groups that it refers to.
#pragma once

#include <optional>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "instrument/replay/mzml_terms.h"
#include "instrument/replay/recording.h"

namespace korvane::replay {

/// A whole number made of digits alone; fails naming `what`.
std::size_t parse_count(const pugi::xml_attribute& attribute, const std::string& what, const RecordingPlace& place);
/// A finite number that makes up the whole of `text`; fails naming `what`.
double parse_number(std::string_view text, const std::string& what, const RecordingPlace& place);

/// The document's groups, each looked through once, however often it is referred to.
class ParameterGroups {
public:
    /// The first parameter of each accession or, for user parameters, name.
    using Group = std::unordered_map<std::string_view, pugi::xml_node>;

    ParameterGroups() = default;
    explicit ParameterGroups(const pugi::xml_node& list);
    /// Null where there is none.
    const Group* find(std::string_view id) const;

private:
    std::unordered_map<std::string_view, Group> groups_;
};

class Parameters {
public:
    Parameters(const pugi::xml_node& element, const ParameterGroups& groups, const RecordingPlace& place);

    const pugi::xml_node& element() const { return element_; }
    /// The cvParam of a term; an empty node where there is none.
    pugi::xml_node find(const Term& sought) const { return parameter("cvParam", "accession", sought.accession); }
    bool has(const Term& sought) const { return !find(sought).empty(); }
    /// Fails where the value is no number.
    std::optional<double> number(const Term& sought) const;
    std::string unit(const Term& sought) const { return find(sought).attribute("unitAccession").value(); }
    std::optional<std::string> user_text(const char* name) const;
    std::optional<double> user_number(const char* name) const;

private:
    pugi::xml_node parameter(const char* element, const char* key, std::string_view value) const;

    pugi::xml_node element_;
    const RecordingPlace& place_;
    std::vector<const ParameterGroups::Group*> groups_;
};

}  // namespace korvane::replay
