// A whole tune by a recipe: verified, adjusted, calibrated, measured, judged.
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "korvane/platform.h"
#include "korvane/tune_record.h"

namespace korvane {

/// One setpoint to be brought to an abundance; `SecantRequest` tells the rest.
struct RecipeSearch {
    std::string setpoint;                  ///< internal name
    double mz = 0;                         ///< amu
    double target = 0;                     ///< counts at the full number of transients
    std::optional<double> min, max;        ///< of the setpoint's values; its limits
    std::optional<double> around_percent;  ///< of the present value, to either side; narrows the two
    std::optional<double> resolution;      ///< smallest step; the setpoint's
    double tolerance_percent = 5;          ///< of the target, to either side
    bool raise_to_reduce = false;          ///< raising the setpoint lowers the abundance
};

struct TuneRecipe {
    std::int64_t schema = 1;
    std::vector<RecipeSearch> searches;
    std::int64_t fit_spectra = 10;  ///< of the calibration fit
    std::vector<double> masses;     ///< measured and judged in the end, amu; none: the default list
};

/// Reads a recipe (docs/tune.md) from a file, UTF-8; empty: "TuneRecipe.json" of the base folder. Error -904 naming the
/// file, and the place in it, where something is unknown or means nothing to this instrument: a key, a setpoint, a
/// value beyond its limits, a mass out of range. Reads the instrument, moves nothing.
KORVANE_API TuneRecipe read_tune_recipe(const Platform& platform, const std::string& path = {});

/// What a search asks for on the instrument as it is: bounds and resolution given, narrowed to what lies around the
/// present value. Errors as `SetpointTable`.
KORVANE_API SecantRequest secant_request(SetpointTable& table, const RecipeSearch& search);

/// In their order.
enum class TuneStep { ready, verify, adjust, fit, measure };
inline constexpr const char* tune_step_names[] = {"ready", "verify", "adjust", "fit", "measure"};

struct TuneProgress {
    TuneStep step = TuneStep::ready;
    std::string text;
    bool is_done = false;  ///< the step's result, which the tune log has, too; else how far it has come
};

/// Runs the steps, in their order, and fills in what the record is to keep; `begin_record` has made it. What is moved
/// stays. Returns why the tune is not good: a search that did not reach its target ends it, a calibrant that is not ok
/// is its verdict; empty when all is well. A fitted calibration is written where it is better than the one before.
/// Errors as the members of the classes raise them; -1 "the instrument is not ready".
KORVANE_API std::string run_tune(const Platform& platform, const TuneRecipe& recipe, std::span<const TuneStep> steps,
                                 TuneRecord& record, const std::function<void(const TuneProgress&)>& tell = {});

}  // namespace korvane
