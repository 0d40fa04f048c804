// The functions of the interface on platforms and objects, and objects whose members are functions in C.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>

#include "automation/c/values.h"
#include "automation/class_description.h"
#include "automation/native_types.h"
#include "korvane/conformance.h"
#include "korvane/embedded.h"
#include "korvane/embedded_parts.h"
#include "korvane/korvane_c_layer.h"
#include "korvane/spectrum_parser.h"
#include "korvane/system.h"
#include "platform/files.h"
#include "platform/text.h"

namespace korvane::automation::c {

namespace {

constexpr std::chrono::milliseconds between_events{20};

/// A platform whose waits ask the host's hook and look at the tokens.
Platform watched_for(const korvane_options& options, Platform platform,
                     std::function<void(const AcquiredSpectrum&)> seen = {}) {
    const auto look = [events = options.events, context = options.context](bool) {
        static thread_local std::chrono::steady_clock::time_point asked;
        if (const auto now = std::chrono::steady_clock::now(); events && now - asked >= between_events) {
            asked = now;
            if (events(context) != 0) AbortScope::abort_innermost();
        }
        AbortScope::look();
    };
    return watched(std::move(platform), look, std::move(seen));
}

Platform bare_platform(const korvane_options& options) {
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
    return make_embedded_platform(embedded, watched_for(options, with_system_tracer(make_platform(nullptr))));
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

void call(const Object& object, int32_t member, int32_t access, std::span<korvane_value> places,
          std::span<const char* const> names, korvane_handle token, korvane_value* result) {
    if (access < KORVANE_CALL || access > KORVANE_PUT || names.size() > places.size())
        raise_runtime_fault(error_number::invalid_call, "access or name_count");
    if (result) korvane_clear(result);
    std::vector<Value> before;
    for (const korvane_value& place : places) before.push_back(value_from(place));
    const std::size_t positional = places.size() - names.size();
    Arguments arguments{{before.begin(), before.begin() + static_cast<std::ptrdiff_t>(positional)}, {}};
    for (std::size_t place = 0; place < names.size(); ++place)
        arguments.named.emplace_back(&given(names[place], "a name"), before[positional + place]);
    const auto hand_back = [&] {
        for (std::size_t place = 0; place < places.size(); ++place) {
            Value& now = place < positional ? arguments.positional[place] : arguments.named[place - positional].second;
            if (!(now == before[place])) give(places[place], std::move(now));
        }
    };
    // By the second one the events hook and a probe end this call alone.
    const AbortScope asked(token == 0 ? AbortToken() : handles().get<AbortToken>(token, "an abort token"));
    const AbortScope own{AbortToken()};
    Value value;
    try {
        value = object->invoke(member, arguments, static_cast<Access>(access));
    } catch (...) {
        hand_back();
        throw;
    }
    hand_back();
    // What ran on without regard to it was aborted all the same.
    AbortScope::look();
    if (result) give(*result, std::move(value));
}

std::shared_ptr<SpectrumParser> parser_behind(korvane_handle handle) {
    return native_from<SpectrumParser>(object_of(handle));
}

/// Where a number belongs, NaN is none.
const Value& of_numbers(const Value& value) {
    const auto* const number = value.get_if<double>();
    const auto* const array = value.get_if<Array>();
    const auto* const numbers = array ? std::get_if<Array::Elements<double>>(&array->storage()) : nullptr;
    const auto is_nan = [](double each) { return std::isnan(each); };
    if ((number && is_nan(*number)) || (numbers && std::ranges::any_of(**numbers, is_nan)))
        raise_runtime_fault(error_number::type_mismatch, "not a number");
    return value;
}

class ForeignObject final : public LateBound {
public:
    ForeignObject(const korvane_class& table, void* context)
        : name_(table.name), destroy_(table.destroy), context_(context) {
        for (const korvane_entry& entry : std::span(table.entries, table.count)) {
            if (!entry.member || !entry.function)
                raise_runtime_fault(error_number::invalid_call, name_, ": entry ", members_.size(),
                                    " lacks name or function");
            members_.emplace_back(entry.member, entry.function);
        }
    }
    ~ForeignObject() override {
        if (destroy_) destroy_(context_);
    }

    std::string class_name() const override { return name_; }
    std::int32_t dispid_of(std::string_view member) const override {
        const auto known =
            std::ranges::find_if(members_, [&](const auto& each) { return equal_but_for_case(each.first, member); });
        if (known == members_.end()) raise_runtime_fault(no_such_member, name_ + "." + std::string(member));
        return 1 + static_cast<std::int32_t>(known - members_.begin());
    }
    Value invoke(std::int32_t dispid, Arguments& arguments, Access) override {
        if (dispid < 1 || dispid > static_cast<std::int32_t>(members_.size()))
            raise_runtime_fault(no_such_member, name_ + ", member number " + std::to_string(dispid));
        if (!arguments.named.empty()) raise_runtime_fault(no_such_argument, arguments.named.front().first);
        const auto& [member, function] = members_[static_cast<std::size_t>(dispid - 1)];
        Owned lent, before, result;
        for (const Value& argument : arguments.positional) give(lent.values.emplace_back(), argument);
        before.values = lent.values;
        result.values.emplace_back();
        korvane_error error{};
        if (const int32_t status =
                function(context_, lent.values.data(), lent.values.size(), result.values.data(), &error))
            throw error_of(error, status);
        for (std::size_t place = 0; place < lent.values.size(); ++place)
            if (std::memcmp(&lent.values[place], &before.values[place], sizeof(korvane_value)) != 0)
                arguments.positional[place] = of_numbers(value_from(lent.values[place]));
        const Value value = of_numbers(value_from(result.values.front()));
        return value.holds<Empty>() ? Value(Null{}) : value;  // who wants a number is not to take nothing for 0
    }

private:
    /// Frees what the values own; some may own the same.
    struct Owned {
        ~Owned() {
            for (const korvane_value& value : values) handles().free(value.owner);
        }
        std::vector<korvane_value> values;
    };

    Error error_of(const korvane_error& error, int32_t status) const {
        const std::int32_t number = error.number != 0 ? error.number : error_number::routine_detected;
        const bool has_kind = error.kind >= KORVANE_USAGE && error.kind <= KORVANE_INTERNAL;
        return Error(number, error.source ? error.source : name_,
                     error.description ? error.description : "failed with " + std::to_string(status),
                     has_kind ? static_cast<ErrorKind>(error.kind - 1) : usual_error_kind(number));
    }

    std::string name_;
    std::vector<std::pair<std::string, korvane_function>> members_;
    void (*destroy_)(void* context);
    void* context_;
};

}  // namespace

}  // namespace korvane::automation::c

using namespace korvane;
using namespace korvane::automation;
using namespace korvane::automation::c;

extern "C" {

int32_t korvane_open(const korvane_options* options, korvane_handle* platform) {
    return guarded([&] {
        if (options && options->size != sizeof(korvane_options))
            raise_runtime_fault(error_number::invalid_call, "size of the options [", options->size, "]");
        const korvane_options chosen = options ? *options : korvane_options{};
        const auto last = std::make_shared<LastSpectrum>();
        const Platform watched = watched_for(chosen, bare_platform(chosen), [last](const AcquiredSpectrum& spectrum) {
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

int32_t korvane_implement(const korvane_class* table, void* context, korvane_handle* object) {
    return guarded([&] {
        const korvane_class& known = given(table, "table");
        if (known.version != KORVANE_C_VERSION)
            raise_runtime_fault(error_number::invalid_call, "a table of version ", known.version, " where ",
                                KORVANE_C_VERSION, " is known");
        given(known.name, "the name of the class");
        if (known.count > 0) given(known.entries, "entries");
        given(object, "object") = handles().add(std::make_shared<ForeignObject>(known, context));
    });
}

int32_t korvane_member(korvane_handle object, const char* name, int32_t* member) {
    return guarded([&] { given(member, "member") = object_of(object)->dispid_of(&given(name, "name")); });
}

int32_t korvane_call(korvane_handle object, int32_t member, int32_t access, korvane_value* arguments, size_t count,
                     const char* const* names, size_t name_count, korvane_handle token, korvane_value* result) {
    return guarded([&] {
        if (count > 0) given(arguments, "arguments");
        if (name_count > 0) given(names, "names");
        call(object_of(object), member, access, {arguments, count}, {names, name_count}, token, result);
    });
}

int32_t korvane_call_named(korvane_handle object, const char* member, korvane_value* arguments, size_t count,
                           korvane_value* result) {
    int32_t number = 0;
    if (const int32_t status = korvane_member(object, member, &number)) return status;
    return korvane_call(object, number, KORVANE_CALL, arguments, count, nullptr, 0, 0, result);
}

int32_t korvane_class_name(korvane_handle object, korvane_value* name) {
    return guarded([&] {
        const Object known = object_of(object);
        give(given(name, "name"), given(known.get(), "the object").class_name());
    });
}

int32_t korvane_on_probe(korvane_handle parser, korvane_probe probe, void* context) {
    return guarded([&] {
        const auto observer = [=](const AdjustProbe& made) {
            if (probe(context, made.number, made.value, made.abundance, made.low, made.high) != 0)
                AbortScope::abort_innermost();
        };
        parser_behind(parser)->on_adjust_probe(probe ? std::function<void(const AdjustProbe&)>(observer) : nullptr);
    });
}

int32_t korvane_last_search(korvane_handle parser, korvane_value* outcome) {
    return guarded([&] {
        const AdjustOutcome& last = parser_behind(parser)->last_adjustment();
        give(given(outcome, "outcome"),
             Array(std::vector<double>{static_cast<double>(last.end), last.value, last.abundance, last.scaled_target,
                                       last.speed_up_factor, static_cast<double>(last.probes.size())}));
    });
}

int32_t korvane_last_errors(korvane_handle parser, korvane_value* rows) {
    return guarded([&] {
        constexpr double unknown = std::numeric_limits<double>::quiet_NaN();
        const SpectrumParser& measured = *parser_behind(parser);
        std::vector<double> cells;
        for (std::size_t i = 0; i < measured.last_uncertainties().size(); ++i) {
            const auto row =
                measured.last_uncertainties()[i].value_or(PeakUncertainty{unknown, unknown, unknown, unknown, unknown});
            cells.insert(cells.end(), {row.centroid, row.height, row.width, row.area, row.ions});
            const auto& quality = measured.last_qualities()[i];
            for (const double told : {quality ? quality->clipped : unknown, quality ? quality->overlapped : unknown,
                                      quality ? quality->few_ions : unknown, quality ? quality->misfit : unknown})
                cells.push_back(told);
        }
        give(given(rows, "rows"), table_of(std::move(cells), 9));
    });
}

const char* korvane_version() {
    return KORVANE_VERSION;
}

int32_t korvane_c_version() {
    return KORVANE_C_VERSION;
}

int32_t korvane_tables(korvane_value* json) {
    return guarded([&] { give(given(json, "json"), tables_text()); });
}

}  // extern "C"
