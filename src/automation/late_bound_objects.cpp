#include "automation/late_bound_objects.h"

#include "automation/error_numbers.h"
#include "automation/late_bound_adapter.h"

namespace korvane::automation {

namespace {

class LateBoundCalibration final : public LateBoundAdapter<MassTimeCalibration> {
public:
    using LateBoundAdapter::LateBoundAdapter;

    CalibrationCoefficients coefficients() const override { return ask<CalibrationCoefficients>("Coefficients"); }
    void set_coefficients(const CalibrationCoefficients& nanoseconds) override {
        ask<void>("SetCoefficients", Value(array_of(nanoseconds)));
    }
    CalibrationSettings settings() const override { return ask<CalibrationSettings>("Settings"); }
    void set_settings(const CalibrationSettings& settings) override {
        ask<void>("SetSettings", Value(array_of(settings)));
    }
    VariantArray<std::int32_t> use_flags() const override { return ask<VariantArray<std::int32_t>>("UseFlags"); }
    double mass_from_time(double time_ns) const override { return ask<double>("MassFromTime", time_ns); }
    double time_from_mass(double mass) const override { return ask<double>("TimeFromMass", mass); }
    std::vector<double> masses_from_times(const std::vector<double>& times_ns) const override {
        return ask_for_list<double>("MassesFromTimes", {Array(times_ns)});
    }
    std::vector<double> times_from_masses(const std::vector<double>& masses) const override {
        return ask_for_list<double>("TimesFromMasses", {Array(masses)});
    }
    std::shared_ptr<MassTimeCalibration> clone() const override { return ask_for_object<CalibrationObject>("Clone"); }
};

class LateBoundPeakList final : public LateBoundAdapter<PeakList> {
public:
    using LateBoundAdapter::LateBoundAdapter;

    std::int32_t count() const override { return ask<std::int32_t>("Count"); }
    void order(std::int32_t position, std::int32_t direction) override { ask<void>("Order", position, direction); }
    PeakInfo GetPeakAttributeInfo(std::int32_t index, bool current_units) const override {
        return ask<PeakInfo>("GetPeakAttributeInfo", index, current_units);
    }
    void convert(const MassTimeCalibration& calibration, std::int32_t mode) override {
        ask<void>("Convert", object_of(calibration), mode);
    }
};

/// An adapter for an object that has the member by which its kind is known.
template <class Adapter>
std::shared_ptr<Adapter> adapt(const Object& object, const char* member, std::string_view wanted) {
    try {
        object->dispid_of(member);
    } catch (const Error& error) {
        if (error.number() != no_such_member) throw;
        raise_runtime_fault(error_number::type_mismatch, "an object " + object->class_name() + " is no " +
                                                             std::string(wanted) + ": it has no " + member);
    }
    return std::make_shared<Adapter>(object);
}

template <class Interface>
Object object_behind_adapter(const Interface& native) {
    const auto* const adapter = dynamic_cast<const LateBoundAdapter<Interface>*>(&native);
    return adapter ? adapter->object() : nullptr;
}

}  // namespace

std::shared_ptr<MassTimeCalibration> adapt_calibration(const Object& object) {
    return adapt<LateBoundCalibration>(object, "MassFromTime", type_name<MassTimeCalibration>);
}

std::shared_ptr<PeakList> adapt_peak_list(const Object& object) {
    return adapt<LateBoundPeakList>(object, "GetPeakAttributeInfo", type_name<PeakList>);
}

Object object_behind(const MassTimeCalibration& calibration) {
    return object_behind_adapter(calibration);
}

Object object_behind(const PeakList& peaks) {
    return object_behind_adapter(peaks);
}

Object object_of(const MassTimeCalibration& calibration) {
    Object foreign = object_behind(calibration);
    return foreign ? foreign : make_object(calibration.clone());
}

}  // namespace korvane::automation
