// The parameters of an mzML element: its own cvParam and userParam children and those of the groups it refers to.
#pragma once

#include <map>
#include <optional>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "instrument/replay/mzml_terms.h"
#include "instrument/replay/recording_fault.h"

namespace korvane::replay {

class MzmlParameters {
public:
    /// `groups` is the document's referenceableParamGroupList, which may be missing. Fails at `place` for a reference
    /// to a group that is not there.
    MzmlParameters(const pugi::xml_node& element, const pugi::xml_node& groups, const RecordingPlace& place);

    bool has(const Term& sought) const { return !find(sought).empty(); }
    /// The cvParam of a term; an empty node where there is none.
    pugi::xml_node find(const Term& sought) const;
    /// Value of a term as a number; fails where it is not one. Nothing where there is no such term.
    std::optional<double> number(const Term& sought) const;
    /// Text of a user parameter; nothing where there is none.
    std::optional<std::string> user_text(std::string_view name) const;
    /// Numbers of all user parameters whose name begins so, by the rest of the name.
    std::map<std::string, double> user_numbers(std::string_view prefix) const;
    std::optional<double> user_number(std::string_view name) const;

    const std::vector<pugi::xml_node>& controlled() const { return controlled_; }

    /// A finite number that makes up the whole of `text`; fails naming `what`.
    double parse_number(std::string_view text, const std::string& what) const;

private:
    void collect(const pugi::xml_node& element);

    RecordingPlace place_;
    std::vector<pugi::xml_node> controlled_;
    std::vector<pugi::xml_node> user_;
};

}  // namespace korvane::replay
