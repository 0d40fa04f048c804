#include "automation/late_bound_objects.h"

#include "automation/native_types.h"

namespace korvane::automation {

namespace {

constexpr std::int32_t no_such_member = 438;

void require_member(const Object& object, std::string_view member, std::string_view wanted) {
    try {
        object->dispid_of(member);
    } catch (const Error& error) {
        if (error.number() != no_such_member) throw;
        raise_runtime_fault(error_number::type_mismatch, "an object " + object->class_name() + " is no " +
                                                             std::string(wanted) + ": it has no " +
                                                             std::string(member));
    }
}

std::vector<double> numbers_of(const Value& value) {
    const auto numbers = array_from<double>(value);
    return {numbers.elements().begin(), numbers.elements().end()};
}

class LateBoundCalibration final : public MassTimeCalibration {
public:
    explicit LateBoundCalibration(Object object) : object_(std::move(object)) {}

    CalibrationCoefficients coefficients() const override {
        return Native<CalibrationCoefficients>::from(object_->call("Coefficients"));
    }
    void set_coefficients(const CalibrationCoefficients& nanoseconds) override {
        object_->call("SetCoefficients", {array_of(nanoseconds)});
    }
    CalibrationSettings settings() const override {
        return Native<CalibrationSettings>::from(object_->call("Settings"));
    }
    void set_settings(const CalibrationSettings& settings) override {
        object_->call("SetSettings", {array_of(settings)});
    }
    VariantArray<std::int32_t> use_flags() const override {
        return array_from<std::int32_t>(object_->call("UseFlags"));
    }
    double mass_from_time(double time_ns) const override {
        return object_->call("MassFromTime", {time_ns}).as_double();
    }
    double time_from_mass(double mass) const override { return object_->call("TimeFromMass", {mass}).as_double(); }
    std::vector<double> masses_from_times(const std::vector<double>& times_ns) const override {
        return numbers_of(object_->call("MassesFromTimes", {Array(times_ns)}));
    }
    std::vector<double> times_from_masses(const std::vector<double>& masses) const override {
        return numbers_of(object_->call("TimesFromMasses", {Array(masses)}));
    }
    std::shared_ptr<MassTimeCalibration> clone() const override {
        return native_from<MassTimeCalibration>(object_->call("Clone").as_object());
    }

    const Object& object() const { return object_; }

private:
    Object object_;
};

class LateBoundPeakList final : public PeakList {
public:
    explicit LateBoundPeakList(Object object) : object_(std::move(object)) {}

    std::int32_t count() const override { return object_->call("Count").as_int32(); }
    void order(std::int32_t position, std::int32_t direction) override {
        object_->call("Order", {position, direction});
    }
    PeakInfo GetPeakAttributeInfo(std::int32_t index, bool current_units) const override {
        return Native<PeakInfo>::from(object_->call("GetPeakAttributeInfo", {index, current_units}));
    }
    void convert(const MassTimeCalibration& calibration, std::int32_t mode) override {
        Object object = object_behind(calibration);
        if (!object) object = make_object(calibration.clone());
        object_->call("Convert", {object, mode});
    }

    const Object& object() const { return object_; }

private:
    Object object_;
};

}  // namespace

std::shared_ptr<MassTimeCalibration> adapt_calibration(const Object& object) {
    require_member(object, "MassFromTime", object_class_name<MassTimeCalibration>);
    return std::make_shared<LateBoundCalibration>(object);
}

std::shared_ptr<PeakList> adapt_peak_list(const Object& object) {
    require_member(object, "GetPeakAttributeInfo", object_class_name<PeakList>);
    return std::make_shared<LateBoundPeakList>(object);
}

Object object_behind(const MassTimeCalibration& calibration) {
    const auto* const adapter = dynamic_cast<const LateBoundCalibration*>(&calibration);
    return adapter ? adapter->object() : nullptr;
}

Object object_behind(const PeakList& peaks) {
    const auto* const adapter = dynamic_cast<const LateBoundPeakList*>(&peaks);
    return adapter ? adapter->object() : nullptr;
}

}  // namespace korvane::automation
