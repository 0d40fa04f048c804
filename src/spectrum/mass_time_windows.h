// Masses turned into ranges of sample positions on a spectrum's mass axis.
#pragma once

#include <cstdint>
#include <vector>

#include "frame/routine.h"
#include "korvane/mass_time.h"

namespace korvane {

/// Sample positions of a window's edges; -1 where an edge lies off the mass axis.
struct IndexRange {
    double start = 0;
    double end = 0;
};

class MassTimeWindows {
public:
    explicit MassTimeWindows(const Trace& trace) : trace_(trace) {}

    /// Rebuilds the table: +-`percentT` percent of each mass's flight time, or +-`deltaMass` amu where `percentT` is
    /// not above 0. Error -1 where neither is usable.
    void CalculateTimeIndex(const VariantArray<double>& vMassData, const CalibrationObject& mtDLL,
                            const VariantArray<double>& mList, double deltaMass, float percentT);
    /// Nearest sample of a mass (the lower one of a tie), by bisection; -1 where the mass is neither bracketed by two
    /// samples nor equal to the last midpoint.
    std::int32_t GetMassArrayIndexForThisMass(const VariantArray<double>& vMassData, double mass);

    /// Range of a position in the mass list; error 9 outside the table.
    const IndexRange& range(std::int32_t position) const;

private:
    std::vector<double> percentage_bounds(TraceObj& record, const MassTimeCalibration& calibration,
                                          const VariantArray<double>& masses, double percent) const;

    const Trace& trace_;
    std::vector<IndexRange> table_;
};

}  // namespace korvane
