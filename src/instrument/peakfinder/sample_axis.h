// Flight time of the samples of a spectrum.
#pragma once

namespace korvane {

struct SampleAxis {
    double start_ns = 0;  ///< flight time of sample 0
    double interval_ns = 1;

    double time_ns(double sample) const { return start_ns + sample * interval_ns; }
    double sample(double time_ns) const { return (time_ns - start_ns) / interval_ns; }
};

}  // namespace korvane
