// Getting a populated spectrum of the right polarity from the running instrument.
#pragma once

#include <string_view>

#include "korvane/records.h"
#include "spectrum/session.h"

namespace korvane {

/// A spectrum as the measuring routines hand it about.
struct SpectrumTriple {
    VariantArray<double> vMassData;           ///< amu of every sample
    VariantArray<double> vYData;              ///< counts of every sample
    VariantArray<InstrumentValue> vMetaData;  ///< in the order of the metadata description
    double dSpectrumStartTimeInNS = 0;
};

/// A caller's variables, overwritten in place, also where the routine then fails.
struct SpectrumReference {
    SpectrumReference(SpectrumTriple& triple)  // NOLINT: meant to convert
        : SpectrumReference(triple.vMassData, triple.vYData, triple.vMetaData, triple.dSpectrumStartTimeInNS) {}
    SpectrumReference(VariantArray<double>& mass_data, VariantArray<double>& y_data,
                      VariantArray<InstrumentValue>& meta_data, double& start_time_ns)
        : vMassData(mass_data), vYData(y_data), vMetaData(meta_data), dSpectrumStartTimeInNS(start_time_ns) {}

    VariantArray<double>& vMassData;
    VariantArray<double>& vYData;
    VariantArray<InstrumentValue>& vMetaData;
    double& dSpectrumStartTimeInNS;
};

/// Outcome of the wait for a spectrum; anything but `arrived` is raised by the measuring routines as error number.
namespace wait_status {
inline constexpr std::int32_t arrived = 0;
inline constexpr std::int32_t cancelled = 2;
inline constexpr std::int32_t timed_out = error_number::polarity_timeout;
}  // namespace wait_status

class SpectrumAcquisition {
public:
    explicit SpectrumAcquisition(Session& session) : session_(session) {}

    /// Asks for spectra, in pairs, until one is populated. The arrays are emptied before every request. Errors: 1 on
    /// the user's abort, 5 after 15 s.
    void GetNewSpectrumAndVerifyDataIsPopulated(SpectrumReference spectrum, bool& bUserHasCancelledRampInGUI);
    /// One of `wait_status`; waits 45 s at most.
    std::int32_t WaitForSpectrumWithProperPolarityAndExperimentIndex(SpectrumReference spectrum,
                                                                     VariantArray<std::string>& vMetaDesc,
                                                                     bool& bUserHasCancelledRampInGUI);

private:
    struct Request;
    bool poll_for_populated_spectrum(TraceObj& record, Request& request, SpectrumReference spectrum);
    bool IsDataReturnedFromGetNextSpectrumPopulated(const SpectrumReference& spectrum);
    void GetMetaDataIndexesForExperimentIdxAndPolarity(const VariantArray<std::string>& vMetaDesc);
    bool ReturnedSpectrumIsOfSoughtPolarity(const VariantArray<InstrumentValue>& vMetaData);
    std::int32_t checked_polarity(const VariantArray<InstrumentValue>& vMetaData);
    void log_polarity_timeout(const VariantArray<InstrumentValue>& vMetaData);

    Session& session_;
    META_INDEX positions_;  // kept between calls; a description that lacks an entry leaves its position alone
};

/// Error of a measuring routine whose wait for a spectrum ended with `status`.
[[noreturn]] void raise_wait_status(std::int32_t status, std::string_view routine_name);

}  // namespace korvane
