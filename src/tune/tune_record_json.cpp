// Records and recipes as JSON. `fields` is the table of each part's names; writing and reading walk the same one.
#include <fmt/format.h>

#include <limits>
#include <nlohmann/json.hpp>

#include "korvane/error.h"
#include "korvane/tune_history.h"
#include "tune/recipe_json.h"

namespace korvane {

namespace {

using RecordJson = nlohmann::ordered_json;

constexpr int record_schema = 1;

template <class Io>
void fields(Io& io, RecordedSetpoint& part) {
    io("name", part.name)("before", part.before)("after", part.after);
}

template <class Io>
void fields(Io& io, CalibrationCoefficients& part) {
    io("A", part.A)("B", part.B)("C", part.C)("D", part.D)("E", part.E)("F", part.F)("G", part.G)("H", part.H);
}

template <class Io>
void fields(Io& io, TuneLimits& part) {
    io("mass_error_ppm", part.mass_error_ppm)("resolution", part.resolution)("height", part.height);
    io("part_of_reference", part.part_of_reference)("misfit", part.misfit)("reference_heights", part.reference_heights);
}

template <class Io>
void fields(Io& io, PeakInfo& part) {
    io("pkApexX", part.pkApexX)("pkStart", part.pkStart)("pkArea", part.pkArea)("pkCentroid", part.pkCentroid);
    io("pkWidth", part.pkWidth)("pkHeight", part.pkHeight)("pkResolution", part.pkResolution)("pkEnd", part.pkEnd);
}

template <class Io>
void fields(Io& io, PeakUncertainty& part) {
    io("centroid", part.centroid)("height", part.height)("width", part.width)("area", part.area)("ions", part.ions);
}

template <class Io>
void fields(Io& io, PeakQuality& part) {
    io("clipped", part.clipped)("overlapped", part.overlapped)("few_ions", part.few_ions)("misfit", part.misfit);
}

template <class Io>
void fields(Io& io, CalibrantVerdict& part) {
    io("state", part.state)("value", part.value)("limit", part.limit)("text", part.text);
}

template <class Io>
void fields(Io& io, PeakTrace& part) {
    io("start_ns", part.start_ns)("interval_ns", part.interval_ns)("counts", part.counts);
    io("window_start_ns", part.window_start_ns)("window_end_ns", part.window_end_ns)("baseline", part.baseline);
    io("fit_start_ns", part.fit_start_ns)("fit_interval_ns", part.fit_interval_ns)("fit", part.fit);
    io("fit_is_told", part.fit_is_told);
}

template <class Io>
void fields(Io& io, RecordedCalibrant& part) {
    MeasuredCalibrant& measured = part.measured;
    io("mass", measured.mass)("ns", measured.ns)("amu", measured.amu)("standard_errors", measured.standard_errors);
    io("ppm_per_ns", measured.ppm_per_ns)("quality", measured.quality)("verdict", part.verdict)("trace", part.trace);
}

template <class Io>
void fields(Io& io, CalibrantResidual& part) {
    io("mass", part.measured.mass)("time_ns", part.measured.time_ns)("error_ns", part.measured.error_ns);
    io("spectra", part.measured.spectra)("error_ppm", part.error_ppm)("before_ppm", part.before_ppm);
    io("after_ppm", part.after_ppm)("left_out_ppm", part.left_out_ppm)("law_error_ppm", part.law_error_ppm);
    io("not_used", part.not_used);
}

template <class Io>
void fields(Io& io, SecantProbe& part) {
    io("value", part.value)("transients", part.transients)("abundance", part.abundance);
    io("standard_error", part.standard_error);
}

template <class Io>
void fields(Io& io, RecordedSearch& part) {
    io("setpoint", part.setpoint)("mz", part.mz)("target", part.target)("before", part.before)("after", part.after);
    io("end", part.end)("probes", part.probes);
}

template <class Io>
void fields(Io& io, TuneRecord& part) {
    io("id", part.id)("time", part.time)("kind", part.kind)("note", part.note)("version", part.version);
    io("instrument", part.instrument)("serial", part.serial)("seed", part.seed)("source", part.source);
    io("polarity", part.polarity)("setpoints", part.setpoints)("calibration_before", part.calibration_before);
    io("calibration_after", part.calibration_after)("limits", part.limits)("calibrants", part.calibrants);
    io("residuals", part.residuals)("searches", part.searches)("verdict", part.verdict)("log", part.log);
    io("recording", part.recording);
}

template <class Io>
void fields(Io& io, RecipeSearch& part) {
    io("setpoint", part.setpoint)("mz", part.mz)("target", part.target)("min", part.min)("max", part.max);
    io("around_percent", part.around_percent)("resolution", part.resolution);
    io("tolerance_percent", part.tolerance_percent)("raise_to_reduce", part.raise_to_reduce);
}

template <class Io>
void fields(Io& io, TuneRecipe& part) {
    io("schema", part.schema)("adjust", part.searches)("fit_spectra", part.fit_spectra)("masses", part.masses);
}

struct Writer {
    RecordJson object = RecordJson::object();

    template <class Value>
    Writer& operator()(const char* name, Value& value) {
        object[name] = written(value);
        return *this;
    }

    template <class Value>
    static RecordJson written(Value& value) {
        if constexpr (std::is_arithmetic_v<Value> || std::is_same_v<Value, std::string>) {
            return value;
        } else {
            Writer part;
            fields(part, value);
            return std::move(part.object);
        }
    }
    static RecordJson written(CalibrantState& state) { return name_of(state); }
    static RecordJson written(std::map<double, double>& numbers) {
        RecordJson by_name = RecordJson::object();
        for (const auto& [key, value] : numbers) by_name[fmt::format("{}", key)] = value;
        return by_name;
    }
    template <class Value>
    static RecordJson written(std::optional<Value>& value) {
        return value ? written(*value) : RecordJson();
    }
    template <class Value>
    static RecordJson written(std::vector<Value>& values) {
        RecordJson array = RecordJson::array();
        for (Value& value : values) array.push_back(written(value));
        return array;
    }
};

class Reader {
public:
    Reader(const RecordJson& object, std::string path) : object_(object), path_(std::move(path)) {}

    template <class Value>
    Reader& operator()(const char* name, Value& value) {
        if (const auto found = object_.find(name); found != object_.end()) read(*found, path_ + "/" + name, value);
        return *this;
    }

    template <class Value>
    static void read(const RecordJson& json, const std::string& path, Value& value) {
        if constexpr (std::is_same_v<Value, bool>) {
            require(json.is_boolean(), path, "no yes or no");
            value = json.get<bool>();
        } else if constexpr (std::is_floating_point_v<Value>) {
            require(json.is_number() || json.is_null(), path, "no number");
            value = json.is_null() ? std::numeric_limits<Value>::quiet_NaN() : json.get<Value>();
        } else if constexpr (std::is_integral_v<Value>) {
            require(json.is_number_integer(), path, "no whole number");
            value = json.get<Value>();
        } else if constexpr (std::is_same_v<Value, std::string>) {
            require(json.is_string(), path, "no text");
            value = json.get<std::string>();
        } else {
            require(json.is_object(), path, "no object");
            Reader part(json, path);
            fields(part, value);
        }
    }
    static void read(const RecordJson& json, const std::string& path, CalibrantState& state) {
        for (const CalibrantState known :
             {CalibrantState::missing, CalibrantState::off_mass, CalibrantState::clipped, CalibrantState::low,
              CalibrantState::broad, CalibrantState::misshapen, CalibrantState::ok})
            if (json == name_of(known)) {
                state = known;
                return;
            }
        require(false, path, "no state of a calibrant");
    }
    static void read(const RecordJson& json, const std::string& path, std::map<double, double>& numbers) {
        require(json.is_object(), path, "no object");
        for (const auto& [key, value] : json.items()) read(value, path + "/" + key, numbers[number_of(key, path)]);
    }
    template <class Value>
    static void read(const RecordJson& json, const std::string& path, std::optional<Value>& value) {
        value.reset();
        if (!json.is_null()) read(json, path, value.emplace());
    }
    template <class Value>
    static void read(const RecordJson& json, const std::string& path, std::vector<Value>& values) {
        require(json.is_array(), path, "no array");
        values.clear();
        for (const RecordJson& element : json) {
            const std::string place = fmt::format("{}/{}", path, values.size());
            read(element, place, values.emplace_back());
        }
    }

private:
    static void require(bool holds, const std::string& path, const char* what) {
        if (!holds) throw Error(error_number::file_or_element, "tune_record_from_json", path + ": " + what);
    }
    static double number_of(const std::string& text, const std::string& path) {
        const RecordJson number = RecordJson::parse(text, nullptr, false);
        require(number.is_number(), path + "/" + text, "no number");
        return number.get<double>();
    }

    const RecordJson& object_;
    std::string path_;
};

/// Path of the first key that is not among the known ones; empty without.
std::string unknown_key(const RecordJson& given, const RecordJson& known, const std::string& path) {
    std::string found;
    for (const auto& [key, value] : given.items()) {
        if (!found.empty() || !given.is_structured()) break;
        const std::string place = path + "/" + key;
        if (given.is_array())
            found = unknown_key(value, known[std::stoul(key)], place);
        else
            found = known.contains(key) ? unknown_key(value, known[key], place) : place;
    }
    return found;
}

}  // namespace

TuneRecipe recipe_from_json(const nlohmann::json& json) {
    const RecordJson object = json;
    TuneRecipe recipe;
    Reader::read(object, "", recipe);
    if (const std::string key = unknown_key(object, Writer::written(recipe), ""); !key.empty())
        throw Error(error_number::file_or_element, "recipe_from_json", key + ": no key of a recipe");
    return recipe;
}

std::string tune_record_json(const TuneRecord& record) {
    TuneRecord parts = record;
    RecordJson object{{"schema", record_schema}};
    object.update(Writer::written(parts));
    return object.dump(-1, ' ', false, RecordJson::error_handler_t::replace);
}

TuneRecord tune_record_from_json(std::string_view json) {
    const RecordJson object = RecordJson::parse(json, nullptr, false);
    int schema = 0;
    TuneRecord record;
    if (object.is_object()) Reader(object, "record")("schema", schema);
    if (schema < 1) throw Error(error_number::file_or_element, "tune_record_from_json", "no record of a tune in JSON");
    if (schema > record_schema)
        throw Error(error_number::file_or_element, "tune_record_from_json",
                    fmt::format("the record has schema {}, this program knows {} at most", schema, record_schema));
    Reader::read(object, "record", record);
    return record;
}

}  // namespace korvane
