// The calibration before the last change, kept in the base folder.
#include "korvane/calibration_fit.h"
#include "korvane/tune_globals.h"
#include "tune/base_file.h"

namespace korvane {

namespace {

using json::Json;

constexpr const char* kept_name = "PreviousCalibration.json";

/// The object of the file with the calibration of one polarity replaced.
void save_kept(const BaseFile& file, Json object, const std::string& polarity, const CalibrationCoefficients& ns) {
    for (const auto& [name, member] : calibration_coefficients) object[polarity][name] = ns.*member;
    file.save(object);
}

CalibrationCoefficients kept_coefficients(const BaseFile& file, const Json& object, const std::string& polarity) {
    if (!object.contains(polarity)) file.refuse("no earlier calibration of " + polarity + " polarity is kept");
    CalibrationCoefficients ns;
    for (const auto& [name, member] : calibration_coefficients) {
        const Json value = object[polarity].is_object() ? object[polarity].value(name, Json()) : Json();
        if (!value.is_number()) file.refuse(polarity + ": " + name + " is no number");
        ns.*member = value.get<double>();
    }
    return ns;
}

}  // namespace

void keep_calibration(const Platform& platform) {
    TuneGlobals globals(platform);
    const BaseFile file(platform, kept_name, "keep_calibration");
    save_kept(file, file.read().value_or(Json::object()), globals.GetPolarityStr(),
              globals.GetCurrentCalibrationObjFromDD()->coefficients());
}

void undo_calibration(const Platform& platform) {
    TuneGlobals globals(platform);
    const std::string polarity = globals.GetPolarityStr();
    const BaseFile file(platform, kept_name, "undo_calibration");
    const Json object = file.read().value_or(Json::object());
    const CalibrationCoefficients kept = kept_coefficients(file, object, polarity);
    const CalibrationObject calibration = globals.GetCurrentCalibrationObjFromDD();
    const CalibrationCoefficients replaced = calibration->coefficients();
    calibration->set_coefficients(kept);
    globals.WriteThisCalibrationObjToDD(calibration);
    save_kept(file, object, polarity, replaced);
}

}  // namespace korvane
