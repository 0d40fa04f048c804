// Objects whose members are functions in C.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "automation/c/values.h"
#include "korvane/korvane_c_layer.h"
#include "platform/text.h"

namespace korvane::automation::c {

namespace {

std::string text_or(const char* text, const char* otherwise) {
    return text ? text : otherwise;
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
        return Error(number, text_or(error.source, name_.c_str()),
                     text_or(error.description, ("failed with " + std::to_string(status)).c_str()),
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
using namespace korvane::automation::c;

extern "C" int32_t korvane_implement(const korvane_class* table, void* context, korvane_handle* object) {
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
