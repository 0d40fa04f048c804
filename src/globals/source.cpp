// What depends on the ion source, the polarity and the sampling rate.
#include <algorithm>
#include <array>

#include "globals/tune_globals_state.h"

namespace korvane {

namespace {

using contract::setpoint;

struct Source {
    const char* name;
    const char* trace;  // of the capillary voltage; none where the source has no setpoint of its own
    std::int32_t capillary_voltage;
};
// By source type code.
constexpr Source sources[] = {{"ESI", "Selecting ESI", setpoint.vcap_esi},
                              {"HPLC-Tile", "Selecting HPLC-Tile", setpoint.vcap_hplc_tile},
                              {"nanoESI", "Selecting nanoESI", setpoint.vcap_nano_esi},
                              {"MALDI", nullptr, setpoint.vcap_esi},
                              {"Multimode", "Selecting MultiMode", setpoint.vcap_multimode},
                              {"ESI", "Selecting ESI", setpoint.vcap_esi},
                              {"nanoESI", "Selecting nanoESI", setpoint.vcap_nano_esi},
                              {"APCI", "Selecting APCI", setpoint.vcap_apci},
                              {"APPI", "Selecting APPI", setpoint.vcap_appi},
                              {"ESI", "Selecting SGF", setpoint.vcap_sgf},
                              {"GC-APCI", "Selecting APCI", setpoint.vcap_apci},
                              {"ESI", "Selecting SGF", setpoint.vcap_sgf}};

Source source_of(std::int32_t code) {
    const bool known = code >= 0 && code < static_cast<std::int32_t>(std::size(sources));
    return known ? sources[code] : Source{"", nullptr, setpoint.vcap_esi};
}

constexpr std::pair<std::string_view, std::int32_t> vaporizers[] = {
    {"APPI", setpoint.vaporizer_apci}, {"APCI", setpoint.vaporizer_apci}, {"Multimode", setpoint.vaporizer_multimode}};

constexpr std::pair<std::int32_t, std::int32_t> transients_by_rate[] = {
    {contract::sampling_rate.at_1_ghz, setpoint.transients_1_ghz},
    {contract::sampling_rate.at_2_ghz, setpoint.transients_2_ghz},
    {contract::sampling_rate.at_4_ghz, setpoint.transients_4_ghz}};

template <class Table, class Key>
auto find_in(const Table& table, const Key& key) {
    const auto* found = std::ranges::find(table, key, [](const auto& row) { return row.first; });
    return found == std::end(table) ? nullptr : found;
}

constexpr std::string_view esi_like[] = {"Unknown", "SGF ESI", "Dual SGF ESI", "Dual ESI"};

}  // namespace

std::string TuneGlobals::GetPolarityStr() {
    return routine(impl_->trace, [&] { return std::string(impl_->setpoints.is_positive() ? "Positive" : "Negative"); });
}

std::string TuneGlobals::GetPolarity3LetterAbbreviation() {
    return routine(impl_->trace, [&] { return std::string(impl_->setpoints.is_positive() ? "pos" : "neg"); });
}

PolaritySetpoint TuneGlobals::GetPolarityTuneSetpointValue() {
    return routine(impl_->trace, [&] {
        return impl_->setpoints.is_positive() ? PolaritySetpoint::Positive : PolaritySetpoint::Negative;
    });
}

std::int32_t TuneGlobals::GetPolaritySpecificCoronaSetpointIndex() {
    return routine(impl_->trace, [&]() -> std::int32_t {
        return GetPolarityStr() == "Positive" ? setpoint.corona_positive : setpoint.corona_negative;
    });
}

std::string TuneGlobals::GetSourceTypeStr() {
    return routine(impl_->trace,
                   [&] { return std::string(source_of(impl_->setpoints.code(setpoint.source_type)).name); });
}

std::string TuneGlobals::GetMassListTypeFromSourceTypeString(const std::string& sourceType) {
    return routine(impl_->trace, [&]() -> std::string {
        if (std::ranges::find(esi_like, sourceType) != std::end(esi_like)) return "ESI";
        return sourceType == "Dual nanoESI" ? "nanoESI" : sourceType;
    });
}

std::int32_t TuneGlobals::GetSourceSpecificVaporizerSetpointIndex() {
    return routine(impl_->trace, [&](TraceObj& record) -> std::int32_t {
        const std::string name = GetSourceTypeStr();
        if (const auto* own = find_in(vaporizers, name)) {
            record.TR_PRINT("Selecting ", name);
            return own->second;
        }
        record.TR_PRINT("Vaporizer-less Source Type selected [", name, "]; defaulting to MultiMode Vaporizer");
        return setpoint.vaporizer_multimode;
    });
}

std::int32_t TuneGlobals::GetSourceSpecificVCapSetpointIndex() {
    return routine(impl_->trace, [&](TraceObj& record) {
        const std::int32_t code = impl_->setpoints.code(setpoint.source_type);
        const Source source = source_of(code);
        if (source.trace)
            record.TR_PRINT(source.trace);
        else
            record.TR_PRINT("Unrecognized Source Type selected [", code, "]; defaulting VCap actual to ESI VCap");
        return source.capillary_voltage;
    });
}

std::int32_t TuneGlobals::GetNumTransTuneSPForCurrentSamplingRate() {
    return routine(impl_->trace, [&](TraceObj& record) -> std::int32_t {
        if (const auto* known = find_in(transients_by_rate, impl_->setpoints.code(setpoint.sampling_rate)))
            return known->second;
        record.TR_PRINT("Error: invalid Sample Rate; defaulting to 1GHz");
        return setpoint.transients_1_ghz;
    });
}

enumQuadType TuneGlobals::QuadType() {
    return routine(impl_->trace, [&] {
        const double max_mass = impl_->parameters.GetTuneParamByXMLPath("/QTOFTuneParams/Misc", "QuadMaxMass");
        if (max_mass == 4000) return enumQuadType::MaxMass4k;
        return max_mass == 8000 ? enumQuadType::MaxMass8k : enumQuadType{};
    });
}

}  // namespace korvane
