// Gives the instrument back as it was found: remembers what was moved, and puts it back on every way out.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "korvane/platform.h"

namespace korvane {

/// One setpoint, firmware channel or calibration that was moved.
struct PutBack {
    std::string name;     ///< of the setpoint (internal), "firmware channel" and its number, or "calibration" and what
                          ///< its values are: the m/z at 70000 ns
    double before = 0;    ///< in its own unit, when it was first moved
    double now = 0;       ///< after putting back
    std::string failure;  ///< why it was not put back; empty where it was
    double found = 0;     ///< when it was to be put back; equal to `before` where there was nothing to do
};

/// Classes that are made on `platform()` act on the same instrument as ever; every first write of a setpoint, of a
/// firmware channel or of a calibration notes what was there. Nothing else is touched: what other programs move
/// meanwhile stays as they want it, and so does what was moved once more by somebody else. Threads may share a guard.
class KORVANE_API Restoring {
public:
    /// Makes nothing and asks the instrument nothing.
    explicit Restoring(const Platform& platform);
    /// Puts back what has not been; never raises.
    ~Restoring() { restore(); }
    Restoring(const Restoring&) = delete;
    Restoring& operator=(const Restoring&) = delete;

    const Platform& platform() const { return platform_; }
    /// From now on this setpoint is not put back, or only as far as later writes move it.
    void keep(std::int32_t setpoint);
    void keep_everything();
    /// Puts back, the last one moved first, and tells what was moved, in that order; goes on where one fails. What it
    /// has put back is forgotten. Does not raise.
    std::vector<PutBack> restore() noexcept;

private:
    struct Journal;
    class Layer;
    std::shared_ptr<Journal> journal_;
    Platform platform_;
};

}  // namespace korvane
