#include <cmath>
#include <limits>

#include "automation/c/values.h"
#include "automation/class_description.h"
#include "automation/native_object.h"
#include "korvane/spectrum_parser.h"

namespace korvane::automation::c {

namespace {

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
    const CallScope scope(token);
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
    auto target = target_of(object_of(handle), *find_class("SpectrumParser"));
    if (!target) raise_runtime_fault(error_number::type_mismatch, "the object is no SpectrumParser");
    return std::static_pointer_cast<SpectrumParser>(std::move(target));
}

}  // namespace

}  // namespace korvane::automation::c

using namespace korvane;
using namespace korvane::automation;
using namespace korvane::automation::c;

extern "C" {

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
            if (probe(context, made.number, made.value, made.abundance, made.low, made.high) != 0) CallScope::abort();
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
        std::vector<double> cells;
        for (const auto& stated : parser_behind(parser)->last_uncertainties()) {
            const PeakUncertainty none{unknown, unknown, unknown, unknown, unknown};
            const PeakUncertainty& row = stated ? *stated : none;
            cells.insert(cells.end(), {row.centroid, row.height, row.width, row.area, row.ions});
        }
        give(given(rows, "rows"), table_of(std::move(cells), 5));
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
