#include "instrument/conformance/checks.h"

namespace korvane::contract {

namespace {

template <class Each, class Entries>
std::string contract_table(const Entries& all) {
    const Group& group = Entries::group;
    const std::string refusal = text_of("; error ", group.error_number, " naming an unknown one");
    std::string text =
        text_of("\n## ", group.title, "\n\nAsked by `", group.operation, "`", group.error_number == 0 ? "" : refusal,
                ".\n\n| Key | Name | Unit | Meaning | Needed by |\n|---|---|---|---|---|\n");
    for (const Each& entry : entries<Each>(all))
        append_text(text, "| ", entry.key, " | ", entry.name, " | ", entry.unit, " | ", entry.meaning, " | ",
                    entry.routine, " |\n");
    return text;
}

}  // namespace

std::string contract_text() {
    return "# The contract of an instrument\n" + contract_table<Number>(setpoint) + contract_table<Text>(slicer) +
           contract_table<Number>(firmware_channel) + contract_table<Number>(option) +
           contract_table<Number>(parameter) + contract_table<Text>(dictionary_item) +
           contract_table<Text>(instrument_register) + contract_table<Text>(metadata_name) +
           contract_table<Number>(run_state) + contract_table<Number>(sampling_rate) +
           contract_table<Number>(preamp_gain_mode) + contract_table<Number>(polarity) +
           contract_table<Number>(source_type) + contract_table<Number>(variable_type) +
           contract_table<Number>(logbook) + contract_table<Number>(peak_finder);
}

}  // namespace korvane::contract
