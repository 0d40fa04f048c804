#include "abundance/averaged_abundance.h"

namespace korvane {

std::int32_t AveragedAbundance::GetAveragedPeakAbundance(double mz, std::int32_t spectra) {
    return routine(session_.trace, {"GetAveragedPeakAbundance"}, no_line, [&] {
        double sum = 0;
        for (std::int32_t i = 0; i < spectra; ++i) sum += calibrants_.GetPeakAbForThisMass(mz);
        return to_int32(checked_quotient(sum, spectra));
    });
}

}  // namespace korvane
