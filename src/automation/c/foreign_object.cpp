// Objects whose members are functions in C.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "automation/c/values.h"
#include "automation/error_numbers.h"
#include "korvane/korvane_c_layer.h"
#include "platform/text.h"

namespace korvane::automation::c {

namespace {

std::string text_or(const char* text, const char* otherwise) {
    return text ? text : otherwise;
}

/// Where a number belongs, NaN is none.
void require_numbers(const Value& value) {
    const auto is_nan = [](const auto& number) { return std::isnan(number); };
    const auto* const array = value.get_if<Array>();
    const bool has_nan = array ? std::visit(
                                     [&]<class T>(const Array::Elements<T>& elements) {
                                         if constexpr (std::is_floating_point_v<T>)
                                             return std::ranges::any_of(*elements, is_nan);
                                         else if constexpr (std::is_same_v<T, Value>)
                                             std::ranges::for_each(*elements, &require_numbers);
                                         return false;
                                     },
                                     array->storage())
                               : value.holds<double>() && is_nan(*value.get_if<double>());
    if (has_nan) raise_runtime_fault(error_number::type_mismatch, "not a number");
}

class ForeignObject final : public LateBound {
public:
    ForeignObject(const korvane_class& table, void* context)
        : name_(table.name), destroy_(table.destroy), context_(context) {
        for (const korvane_entry& entry : std::span(table.entries, table.count)) {
            if (!entry.member || !entry.function)
                raise_runtime_fault(error_number::invalid_call,
                                    name_ + ": entry " + std::to_string(members_.size()) + " lacks name or function");
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
        Lent lent(arguments.positional);
        korvane_value result{};
        korvane_error error{};
        const int32_t status = function(context_, lent.values.data(), lent.values.size(), &result, &error);
        const Taken taken{result};
        if (status != KORVANE_OK) throw error_of(error, status);
        for (std::size_t place = 0; place < lent.values.size(); ++place) {
            const korvane_value& now = lent.values[place];
            if (std::memcmp(&now, &lent.before[place], sizeof now) == 0) continue;
            arguments.positional[place] = value_from(now);
            require_numbers(arguments.positional[place]);
        }
        Value value = value_from(result);
        require_numbers(value);
        return value;
    }

private:
    /// What a function is given to read and to change; frees it, and what the function put in its place.
    struct Lent {
        explicit Lent(const std::vector<Value>& arguments) : values(arguments.size()) {
            for (std::size_t place = 0; place < values.size(); ++place) give(values[place], arguments[place]);
            before = values;
        }
        ~Lent() {
            for (std::size_t place = 0; place < values.size(); ++place) {
                if (values[place].owner != before[place].owner) handles().free(before[place].owner);
                handles().free(values[place].owner);
            }
        }
        std::vector<korvane_value> values, before;
    };
    struct Taken {
        ~Taken() { handles().free(result.owner); }
        const korvane_value& result;
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
            raise_runtime_fault(error_number::invalid_call, "a table of version " + std::to_string(known.version) +
                                                                " where " + std::to_string(KORVANE_C_VERSION) +
                                                                " is known");
        given(known.name, "the name of the class");
        if (known.count > 0) given(known.entries, "entries");
        given(object, "object") = handles().add(std::make_shared<ForeignObject>(known, context));
    });
}
