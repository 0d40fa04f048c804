// Whether the instrument is ready for the next measurement, and a peak's abundance over several of them.
#include "abundance/checked_quotient.h"
#include "frame/routine.h"
#include "spectrum/parser_state.h"

namespace korvane {

namespace {

/// A register's value as the 16-bit integer that it has to be.
std::int16_t whole(double value, const std::string& instrument_register) {
    return located([&] { return text_of("register[", instrument_register, "]"); }, [&] { return to_int16(value); });
}

}  // namespace

bool SpectrumParser::Impl::CheckInstrumentReadyState() {
    return routine(trace, {"CheckInstrumentReadyState"}, no_line, [&](TraceObj& record) {
        if (prefs.GetTunePreference("WaitForReady_SkipAll") == "Yes") return true;
        const double not_ready_state = to_double(
            instrument->actual_value(contract::instrument_register.not_ready_state, contract::not_ready_state_type));
        if (prefs.GetTunePreference("WaitDialogHandlesRunStateAlso") != "Yes") {
            record.TR_PRINT("NrdyState is ", not_ready_state);
            return whole(not_ready_state, contract::instrument_register.not_ready_state) >= 0;
        }
        const double run_state =
            to_double(instrument->actual_value(contract::instrument_register.run_state, contract::run_state_type));
        const std::int16_t not_ready = whole(not_ready_state, contract::instrument_register.not_ready_state);
        if (not_ready >= 0) return true;
        const std::int16_t running = whole(run_state, contract::instrument_register.run_state);
        record.TR_PRINT("Waiting: NReady[", not_ready, "], RunState[", running, "]");
        return false;
    });
}

std::int32_t SpectrumParser::Impl::GetAveragedPeakAbundance(SpectrumParser& parser, double mz, std::int32_t spectra) {
    return routine(trace, {"GetAveragedPeakAbundance"}, no_line, [&] {
        double sum = 0;
        for (std::int32_t i = 0; i < spectra; ++i) sum += GetPeakAbForThisMass(parser, mz);
        return to_int32(checked_quotient(sum, spectra));
    });
}

}  // namespace korvane
