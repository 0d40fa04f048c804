// Native objects as automation objects, and back.
#pragma once

#include <memory>
#include <string_view>
#include <type_traits>

#include "automation/late_bound_objects.h"
#include "automation/type_names.h"
#include "korvane/automation.h"
#include "korvane/mass_time.h"
#include "korvane/peak_finder.h"

namespace korvane::automation {

struct ClassDescription;

/// Whether objects of a native class cross the border.
template <class C>
inline constexpr bool is_object_class = false;
template <>
inline constexpr bool is_object_class<PeakList> = true;
template <>
inline constexpr bool is_object_class<MassTimeCalibration> = true;

/// The description of such a class.
template <class C>
const ClassDescription& class_of();
template <>
const ClassDescription& class_of<PeakList>();
template <>
const ClassDescription& class_of<MassTimeCalibration>();

/// A native object behind its class's member table.
class NativeObject final : public LateBound {
public:
    NativeObject(const ClassDescription& description, std::shared_ptr<void> target)
        : description_(description), target_(std::move(target)) {}

    std::string class_name() const override;
    std::int32_t dispid_of(std::string_view member) const override;
    Value invoke(std::int32_t dispid, Arguments& arguments, Access access) override;

    const ClassDescription& description() const noexcept { return description_; }
    const std::shared_ptr<void>& target() const noexcept { return target_; }

private:
    const ClassDescription& description_;
    std::shared_ptr<void> target_;
};

/// The native object behind one of the given class; null when there is none.
std::shared_ptr<void> target_of(const Object& object, const ClassDescription& description);

/// Nothing for null. A foreign object comes back as itself.
template <class C>
Object make_object(std::shared_ptr<C> target) {
    if (!target) return nullptr;
    if constexpr (std::is_same_v<C, MassTimeCalibration> || std::is_same_v<C, PeakList>)
        if (Object foreign = object_behind(*target)) return foreign;
    return std::make_shared<NativeObject>(class_of<C>(), std::move(target));
}

/// Null for Nothing. A foreign object in the place of a calibration or a peak list is adapted. Error 13 for an object
/// of another class.
template <class C>
std::shared_ptr<C> native_from(const Object& object) {
    if (!object) return nullptr;
    if (auto target = target_of(object, class_of<C>())) return std::static_pointer_cast<C>(std::move(target));
    if (!dynamic_cast<const NativeObject*>(object.get())) {
        if constexpr (std::is_same_v<C, MassTimeCalibration>) return adapt_calibration(object);
        if constexpr (std::is_same_v<C, PeakList>) return adapt_peak_list(object);
    }
    raise_runtime_fault(error_number::type_mismatch,
                        "an object " + object->class_name() + " is no " + std::string(type_name<C>));
}

}  // namespace korvane::automation
