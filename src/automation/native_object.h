// Native objects as automation objects, and back.
#pragma once

#include <memory>
#include <string_view>
#include <type_traits>

#include "automation/type_names.h"
#include "korvane/automation.h"
#include "korvane/mass_time.h"
#include "korvane/peak_finder.h"
#include "platform/text.h"

namespace korvane::automation {

struct ClassDescription;

/// Objects behind the interfaces of the instrument cross the border.
template <class C>
concept ObjectClass = std::is_abstract_v<C>;

/// The description of such a class, by its name.
const ClassDescription& class_of(std::string_view name);

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

/// Somebody else's automation object in the place of a native one.
struct Adapter {
    explicit Adapter(Object foreign) : object(std::move(foreign)) {}
    virtual ~Adapter() = default;
    const Object object;
};

/// The classes in whose place members take somebody else's objects, with the members of the class.
template <class C>
inline constexpr bool is_adapted = std::is_same_v<C, MassTimeCalibration> || std::is_same_v<C, PeakList>;
/// Error 13 naming the object's class where it lacks the members.
template <class C>
std::shared_ptr<C> adapt(const Object& object);
template <>
std::shared_ptr<MassTimeCalibration> adapt(const Object& object);
template <>
std::shared_ptr<PeakList> adapt(const Object& object);

/// Nothing for null. An adapted object comes back as itself.
template <ObjectClass C>
Object make_object(std::shared_ptr<C> target) {
    if (!target) return nullptr;
    if constexpr (is_adapted<C>)
        if (const auto* adapter = dynamic_cast<const Adapter*>(target.get())) return adapter->object;
    return std::make_shared<NativeObject>(class_of(type_name<C>), std::move(target));
}

/// Null for Nothing. Error 13 for an object of another class.
template <ObjectClass C>
std::shared_ptr<C> native_from(const Object& object) {
    if (!object) return nullptr;
    if (auto target = target_of(object, class_of(type_name<C>))) return std::static_pointer_cast<C>(std::move(target));
    if constexpr (is_adapted<C>)
        if (!dynamic_cast<const NativeObject*>(object.get())) return adapt<C>(object);
    raise_runtime_fault(error_number::type_mismatch, "an object ", object->class_name(), " is no ", type_name<C>);
}

}  // namespace korvane::automation
