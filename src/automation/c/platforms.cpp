#include <chrono>
#include <filesystem>

#include "automation/c/values.h"
#include "automation/late_bound_instrument.h"
#include "automation/layer_objects.h"
#include "automation/native_types.h"
#include "korvane/conformance.h"
#include "korvane/embedded.h"
#include "korvane/embedded_parts.h"
#include "korvane/korvane_c_layer.h"
#include "korvane/system.h"
#include "platform/files.h"

namespace korvane::automation::c {

namespace {

constexpr std::chrono::milliseconds between_events{20};

/// Watches for the hook of a host and for tokens.
class Watch {
public:
    explicit Watch(const korvane_options& options) : events_(options.events), context_(options.context) {}

    Platform over(Platform platform, std::function<void(const AcquiredSpectrum&)> seen = {}) const {
        return watched(
            std::move(platform), [*this](bool) { look(); }, std::move(seen));
    }

private:
    void look() const {
        static thread_local std::chrono::steady_clock::time_point asked;
        if (const auto now = std::chrono::steady_clock::now(); events_ && now - asked >= between_events) {
            asked = now;
            if (events_(context_) != 0) CallScope::abort();
        }
        AbortScope::look();
    }

    int32_t (*events_)(void* context);
    void* context_;
};

Platform bare_platform(const korvane_options& options, const Watch& watch) {
    if (options.layer) {
        const Object layer = object_of(options.layer);
        return make_platform(make_late_bound_layer([layer] { return layer; }));
    }
    if (options.instrument) return make_outside_platform(options.instrument);
    if (!options.base_folder && !options.scene && !options.replay && options.seed == 0) return process_platform();
    EmbeddedOptions embedded;
    if (options.base_folder) embedded.base_folder = path_from_utf8(options.base_folder);
    if (options.scene) embedded.scene = path_from_utf8(options.scene);
    if (options.replay) embedded.replay = path_from_utf8(options.replay);
    if (options.seed != 0) embedded.seed = options.seed;
    // The embedded instrument waits by the watched clock, too.
    return make_embedded_platform(embedded, watch.over(with_system_tracer(make_platform(nullptr))));
}

std::shared_ptr<OpenPlatform> platform_behind(korvane_handle handle) {
    return handles().get<std::shared_ptr<OpenPlatform>>(handle, "a platform");
}

Object created(const Platform& platform, const std::string& class_name) {
    if (class_name == "InstrumentLayer") return make_object(platform.instrument);
    if (class_name == "PeakFinder") return make_object(keeping_samples(make_peak_finder()));
    if (class_name == "MassTimeCalibration") return make_object(make_square_law_calibration({}));
    return create_object(class_name, platform);
}

}  // namespace

}  // namespace korvane::automation::c

using namespace korvane;
using namespace korvane::automation;
using namespace korvane::automation::c;

extern "C" {

int32_t korvane_open(const korvane_options* options, korvane_handle* platform) {
    return guarded([&] {
        if (options && options->size != sizeof(korvane_options))
            raise_runtime_fault(error_number::invalid_call,
                                "size of the options [" + std::to_string(options->size) + "]");
        const korvane_options chosen = options ? *options : korvane_options{};
        const Watch watch(chosen);
        const auto last = std::make_shared<LastSpectrum>();
        const Platform watched = watch.over(bare_platform(chosen, watch), [last](const AcquiredSpectrum& spectrum) {
            const std::lock_guard lock(last->mutex);
            last->spectrum = spectrum;
        });
        given(platform, "platform") = handles().add(std::make_shared<OpenPlatform>(watched, last, nullptr));
    });
}

int32_t korvane_create_base_folder(const char* folder) {
    return guarded([&] { create_base_folder(path_from_utf8(&given(folder, "folder"))); });
}

int32_t korvane_guard(korvane_handle platform, korvane_handle* guarded_platform) {
    return guarded([&] {
        const auto behind = platform_behind(platform);
        const auto guard = std::make_shared<Restoring>(behind->platform);
        given(guarded_platform, "guarded") =
            handles().add(std::make_shared<OpenPlatform>(guard->platform(), behind->last, guard));
    });
}

int32_t korvane_give_back(korvane_handle guarded_platform, int32_t keep, korvane_value* moves) {
    return guarded([&] {
        const auto opened = platform_behind(guarded_platform);
        given(opened->guard.get(), "the platform's guard");
        if (keep) opened->guard->keep_everything();
        std::vector<Value> cells;
        for (const PutBack& move : opened->guard->restore())
            cells.insert(cells.end(), {move.name, move.before, move.now, move.failure});
        if (moves) give(*moves, table_of(std::move(cells), 4));
    });
}

int32_t korvane_last_spectrum(korvane_handle platform, korvane_value* masses, korvane_value* counts,
                              korvane_value* start_time_ns) {
    return guarded([&] {
        const auto last = platform_behind(platform)->last;
        const std::lock_guard lock(last->mutex);
        give(given(masses, "masses"), Native<VariantArray<double>>::to(last->spectrum.mass_data));
        give(given(counts, "counts"), Native<VariantArray<double>>::to(last->spectrum.y_data));
        give(given(start_time_ns, "start_time_ns"), last->spectrum.start_time_ns);
    });
}

int32_t korvane_create(korvane_handle platform, const char* class_name, korvane_handle* object) {
    return guarded([&] {
        given(object, "object");
        *object = handles().add(created(platform_behind(platform)->platform, &given(class_name, "class_name")));
    });
}

int32_t korvane_check_layer(korvane_handle layer, korvane_value* rows) {
    return guarded([&] {
        const Object object = object_of(layer);
        std::vector<Value> cells;
        const auto checked = make_late_bound_layer([object] { return object; });
        for (ConformanceResult& result : check_instrument_layer(*checked))
            cells.insert(cells.end(), {std::move(result.operation), std::move(result.check),
                                       result.passed ? "passed" : "failed", std::move(result.detail)});
        give(given(rows, "rows"), table_of(std::move(cells), 4));
    });
}

}  // extern "C"
