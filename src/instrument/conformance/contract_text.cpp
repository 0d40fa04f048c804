#include "instrument/conformance/checks.h"

namespace korvane::contract {

namespace {

template <class Entry, class Entries>
void add_table(std::string& text, const Entries& all) {
    const Group& group = Entries::group;
    append_text(text, "\n## ", group.title, "\n\nAsked by `", group.operation, "`");
    if (group.error_number != 0) append_text(text, "; error ", group.error_number, " naming an unknown one");
    append_text(text, ".\n\n| Key | Name | Unit | Meaning | Needed by |\n|---|---|---|---|---|\n");
    for (const auto& [key, name, unit, meaning, routine] : entries<Entry>(all))
        append_text(text, "| ", key, " | ", name, " | ", unit, " | ", meaning, " | ", routine, " |\n");
}

template <class Entry, class... Entries>
void add_tables(std::string& text, const Entries&... groups) {
    (add_table<Entry>(text, groups), ...);
}

}  // namespace

std::string contract_text() {
    std::string text = "# The contract of an instrument\n";
    add_table<Number>(text, setpoint);
    add_table<Text>(text, slicer);
    add_tables<Number>(text, firmware_channel, option, parameter);
    add_tables<Text>(text, dictionary_item, instrument_register, metadata_name);
    add_tables<Number>(text, run_state, sampling_rate, preamp_gain_mode, polarity, source_type, variable_type, logbook,
                       peak_finder);
    return text;
}

}  // namespace korvane::contract
