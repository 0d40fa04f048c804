#include "globals/source_and_polarity.h"

#include <algorithm>
#include <array>

namespace korvane {

namespace {

struct CapillaryVoltage {
    const char* trace;
    std::int32_t index;
};
constexpr CapillaryVoltage vcap_esi{"Selecting ESI", contract::setpoint.vcap_esi};
constexpr CapillaryVoltage vcap_sgf{"Selecting SGF", contract::setpoint.vcap_sgf};
constexpr CapillaryVoltage vcap_nano{"Selecting nanoESI", contract::setpoint.vcap_nano_esi};
constexpr CapillaryVoltage vcap_tile{"Selecting HPLC-Tile", contract::setpoint.vcap_hplc_tile};
constexpr CapillaryVoltage vcap_multimode{"Selecting MultiMode", contract::setpoint.vcap_multimode};
constexpr CapillaryVoltage vcap_apci{"Selecting APCI", contract::setpoint.vcap_apci};
constexpr CapillaryVoltage vcap_appi{"Selecting APPI", contract::setpoint.vcap_appi};
constexpr CapillaryVoltage vcap_unknown{nullptr, vcap_esi.index};

struct Source {
    const char* name;
    CapillaryVoltage capillary_voltage;
};
// By source type code.
constexpr std::array<Source, 12> sources{{{"ESI", vcap_esi},
                                          {"HPLC-Tile", vcap_tile},
                                          {"nanoESI", vcap_nano},
                                          {"MALDI", vcap_unknown},
                                          {"Multimode", vcap_multimode},
                                          {"ESI", vcap_esi},
                                          {"nanoESI", vcap_nano},
                                          {"APCI", vcap_apci},
                                          {"APPI", vcap_appi},
                                          {"ESI", vcap_sgf},
                                          {"GC-APCI", vcap_apci},
                                          {"ESI", vcap_sgf}}};

Source source_of(std::int32_t code) {
    const bool known = code >= 0 && code < static_cast<std::int32_t>(sources.size());
    return known ? sources[static_cast<std::size_t>(code)] : Source{"", vcap_unknown};
}

std::int32_t traced(TraceObj& record, const char* text, std::int32_t index) {
    record.TR_PRINT(text);
    return index;
}

}  // namespace

std::string SourceAndPolarity::polarity() {
    return routine(trace_, {"GetPolarityStr"},
                   [&] { return std::string(setpoints_.is_positive() ? "Positive" : "Negative"); });
}

std::string SourceAndPolarity::polarity_abbreviation() {
    return routine(trace_, {"GetPolarity3LetterAbbreviation"},
                   [&] { return std::string(setpoints_.is_positive() ? "pos" : "neg"); });
}

PolaritySetpoint SourceAndPolarity::polarity_setpoint() {
    return routine(trace_, {"GetPolarityTuneSetpointValue"},
                   [&] { return setpoints_.is_positive() ? PolaritySetpoint::Positive : PolaritySetpoint::Negative; });
}

std::int32_t SourceAndPolarity::corona_setpoint() {
    return routine(trace_, {"GetPolaritySpecificCoronaSetpointIndex"}, [&] {
        return polarity() == "Positive" ? contract::setpoint.corona_positive : contract::setpoint.corona_negative;
    });
}

std::string SourceAndPolarity::source() {
    return routine(trace_, {"GetSourceTypeStr"},
                   [&] { return std::string(source_of(setpoints_.code(contract::setpoint.source_type)).name); });
}

std::string SourceAndPolarity::mass_list_type(const std::string& source_type) {
    static const std::array<std::string, 4> esi_like{"Unknown", "SGF ESI", "Dual SGF ESI", "Dual ESI"};
    return routine(trace_, {"GetMassListTypeFromSourceTypeString"}, [&]() -> std::string {
        if (std::find(esi_like.begin(), esi_like.end(), source_type) != esi_like.end()) return "ESI";
        return source_type == "Dual nanoESI" ? "nanoESI" : source_type;
    });
}

std::int32_t SourceAndPolarity::vaporizer_setpoint() {
    return routine(trace_, {"GetSourceSpecificVaporizerSetpointIndex"}, [&](TraceObj& record) -> std::int32_t {
        const std::string name = source();
        if (name == "APPI") return traced(record, "Selecting APPI", contract::setpoint.vaporizer_apci);
        if (name == "APCI") return traced(record, "Selecting APCI", contract::setpoint.vaporizer_apci);
        if (name == "Multimode") return traced(record, "Selecting Multimode", contract::setpoint.vaporizer_multimode);
        record.TR_PRINT("Vaporizer-less Source Type selected [", name, "]; defaulting to MultiMode Vaporizer");
        return contract::setpoint.vaporizer_multimode;
    });
}

std::int32_t SourceAndPolarity::capillary_voltage_setpoint() {
    return routine(trace_, {"GetSourceSpecificVCapSetpointIndex"}, [&](TraceObj& record) {
        const std::int32_t code = setpoints_.code(contract::setpoint.source_type);
        const CapillaryVoltage found = source_of(code).capillary_voltage;
        if (found.trace)
            record.TR_PRINT(found.trace);
        else
            record.TR_PRINT("Unrecognized Source Type selected [", code, "]; defaulting VCap actual to ESI VCap");
        return found.index;
    });
}

std::int32_t SourceAndPolarity::transients_setpoint() {
    return routine(trace_, {"GetNumTransTuneSPForCurrentSamplingRate"}, [&](TraceObj& record) -> std::int32_t {
        switch (setpoints_.code(contract::setpoint.sampling_rate)) {
            case contract::sampling_rate.at_1_ghz:
                return contract::setpoint.transients_1_ghz;
            case contract::sampling_rate.at_2_ghz:
                return contract::setpoint.transients_2_ghz;
            case contract::sampling_rate.at_4_ghz:
                return contract::setpoint.transients_4_ghz;
            default:
                record.TR_PRINT("Error: invalid Sample Rate; defaulting to 1GHz");
                return contract::setpoint.transients_1_ghz;
        }
    });
}

enumQuadType SourceAndPolarity::quadrupole_type() {
    return routine(trace_, {"QuadType"}, [&] {
        const double max_mass = parameters_.GetTuneParamByXMLPath("/QTOFTuneParams/Misc", "QuadMaxMass");
        if (max_mass == 4000) return enumQuadType::MaxMass4k;
        return max_mass == 8000 ? enumQuadType::MaxMass8k : enumQuadType{};
    });
}

std::string SourceAndPolarity::instrument_state() {
    return routine(trace_, {"GetCurrentInstrumentStateAsString"}, [&] {
        const std::int32_t rate = setpoints_.code(contract::setpoint.sampling_rate);
        return rate_text(rate) + mass_range_text(rate);
    });
}

std::string SourceAndPolarity::rate_text(std::int32_t rate) {
    switch (rate) {
        case contract::sampling_rate.at_1_ghz:
            return "Minimum Storage Size (1 GHz)";
        case contract::sampling_rate.at_2_ghz:
            return gain_text("2 GHz");
        case contract::sampling_rate.at_4_ghz:
            return setpoints_.value(contract::setpoint.high_resolution) != 0 ? "4 GHz, High Resolution" : "4 GHz";
        default:
            return {};
    }
}

std::string SourceAndPolarity::gain_text(std::string rate_text) {
    switch (setpoints_.code(contract::setpoint.preamp_gain_mode)) {
        case contract::preamp_gain_mode.standard:
            return rate_text + (instrument_->hardware().has_160cm_flight_tube() ? ", Extended Mass Range"
                                                                                : ", Extended Dynamic Range Disabled");
        case contract::preamp_gain_mode.extended:
            return "Extended Dynamic Range (2 GHz)";
        case contract::preamp_gain_mode.high:
            return rate_text + ", High Gain";
        case contract::preamp_gain_mode.low:
            return rate_text + ", Low Gain";
        default:
            return rate_text;
    }
}

std::string SourceAndPolarity::mass_range_text(std::int32_t rate) {
    switch (static_cast<MassRangeComboBoxSelection>(setpoints_.code(contract::setpoint.mass_range))) {
        case MassRangeComboBoxSelection::MassRangeComboBoxSelection_Low:
            return " in 1700 m/z Mass Range";
        case MassRangeComboBoxSelection::MassRangeComboBoxSelection_Standard:
            return " in 3200 m/z Mass Range";
        default:
            return instrument_->hardware().has_160cm_flight_tube() && rate == contract::sampling_rate.at_2_ghz
                       ? " in 10,000 m/z Mass Range"
                       : " in 20,000 m/z Mass Range";
    }
}

}  // namespace korvane
