// Native objects as automation objects, and back.
#pragma once

#include <functional>
#include <memory>
#include <type_traits>

#include "automation/declared_type.h"
#include "korvane/automation.h"
#include "korvane/instrument.h"
#include "platform/text.h"

namespace korvane::automation {

struct ClassDescription;
struct Member;

/// Objects behind the interfaces of the instrument cross the border.
template <class C>
concept ObjectClass = std::is_abstract_v<C>;

/// The description of a class by its name or ProgID, whatever the case; null for an unknown one.
const ClassDescription* find_class(std::string_view name);

/// A native object behind its class's member table.
class NativeObject final : public LateBound {
public:
    NativeObject(const ClassDescription& description, std::shared_ptr<void> target)
        : description_(description), target_(std::move(target)) {}

    std::string class_name() const override;
    std::int32_t dispid_of(std::string_view member) const override;
    Value invoke(std::int32_t dispid, Arguments& arguments, Access access) override;

    /// The member of a number that serves an access. Error 438 where there is none.
    const Member& member(std::int32_t dispid, Access access) const;
    const ClassDescription& description() const noexcept { return description_; }
    const std::shared_ptr<void>& target() const noexcept { return target_; }

private:
    const ClassDescription& description_;
    std::shared_ptr<void> target_;
};

/// Somebody else's automation object in the place of a native one.
struct Adapter {
    explicit Adapter(Object foreign) : object(std::move(foreign)) {}
    virtual ~Adapter() = default;
    const Object object;
};

/// Somebody else's object, with the members of the class, as one of the class; null for a class in whose place members
/// take none. Error 13 naming the object's class where it lacks the members.
std::shared_ptr<void> adapt(const Object& object, std::string_view class_name);

/// The native object behind one of the given class, or an adapter of somebody else's; null where there is neither.
std::shared_ptr<void> target_of(const Object& object, std::string_view class_name);

/// The layer behind an object with the members of "InstrumentLayer" (docs/instrument-layer.md). The object is asked for
/// anew for everything that the layer makes, so that every thread can have its own.
std::shared_ptr<InstrumentLayer> make_late_bound_layer(std::function<Object()> layer);

/// The finder with a copy of its samples, which it reads in `run`. Null for null.
std::shared_ptr<PeakFinder> keeping_samples(std::shared_ptr<PeakFinder> finder);

/// Nothing for null. An adapted object comes back as itself.
template <ObjectClass C>
Object make_object(std::shared_ptr<C> target) {
    if (!target) return nullptr;
    if (const auto* adapter = dynamic_cast<const Adapter*>(target.get())) return adapter->object;
    return std::make_shared<NativeObject>(*find_class(type_name<C>), std::move(target));
}

/// Null for Nothing. Error 13 for an object of another class.
template <class C>
std::shared_ptr<C> native_from(const Object& object) {
    if (!object) return nullptr;
    if (auto target = target_of(object, type_name<C>)) return std::static_pointer_cast<C>(std::move(target));
    raise_runtime_fault(error_number::type_mismatch, "an object ", object->class_name(), " is no ", type_name<C>);
}

}  // namespace korvane::automation
