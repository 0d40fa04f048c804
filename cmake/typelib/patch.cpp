// The layout of the file ("MSFT"): a header, the offsets of the type infos, fifteen segment descriptors, the segments,
// and a block of function records for every type info. A parameter's default is an offset into the segment of custom
// data, where a value stands as its type in two bytes, its bytes, and filling to four.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "automation/class_description.h"
#include "patch.h"

namespace typelib {

using namespace korvane::automation;

namespace {

constexpr std::size_t header_size = 0x54;
constexpr std::size_t flags_place = 0x14;
constexpr std::uint32_t has_help_file_flag = 0x100;
constexpr std::size_t info_count_place = 0x20;
constexpr std::size_t segment_count = 15;
constexpr std::size_t descriptor_size = 16;
constexpr std::size_t info_segment = 0;
constexpr std::size_t uuid_segment = 5;
constexpr std::size_t custom_data_segment = 11;
constexpr std::size_t info_size = 0x64;
constexpr std::size_t function_block_place = 4;
constexpr std::size_t function_count_place = 0x18;
constexpr std::size_t uuid_place = 0x2c;
constexpr std::size_t kind_place = 16;
constexpr std::uint32_t defaults_present_flag = 0x1000;
constexpr std::size_t parameter_count_place = 20;
constexpr std::size_t parameter_size = 12;
constexpr std::uint32_t has_default_flag = 0x20;
constexpr std::uint16_t vt_r8 = 5, vt_bstr = 8;
constexpr std::uint32_t false_in_slot = 0xac000000;  // a truth value needs no place in the custom data
constexpr std::uint32_t true_in_slot = 0xac00ffff;

class Library {
public:
    explicit Library(std::string bytes) : bytes_(std::move(bytes)) {
        if (bytes_.size() < header_size || bytes_.compare(0, 4, "MSFT") != 0)
            throw std::runtime_error("not a type library of this kind");
        segments_ = header_size + 4 * word(info_count_place) + (word(flags_place) & has_help_file_flag ? 4 : 0);
    }

    std::uint32_t word(std::size_t place) const {
        std::uint32_t value = 0;
        if (place + sizeof value > bytes_.size()) throw std::runtime_error("the type library ends early");
        std::memcpy(&value, bytes_.data() + place, sizeof value);
        return value;
    }
    void set_word(std::size_t place, std::uint32_t value) { std::memcpy(bytes_.data() + place, &value, sizeof value); }

    std::size_t segment_offset(std::size_t segment) const { return word(segments_ + segment * descriptor_size); }
    std::size_t segment_length(std::size_t segment) const { return word(segments_ + segment * descriptor_size + 4); }
    std::size_t info_count() const { return word(info_count_place); }
    std::size_t info_place(std::size_t index) const { return segment_offset(info_segment) + index * info_size; }

    /// Without braces, lower case; empty for a type without one.
    std::string uuid(std::size_t info) const {
        const std::uint32_t place = word(info_place(info) + uuid_place);
        if (place == 0xffffffffu) return {};
        const std::size_t start = segment_offset(uuid_segment) + place;
        char text[37];
        std::snprintf(text, sizeof text, "%08x-%04x-%04x-%04x-%04x%08x", word(start), word(start + 4) & 0xffff,
                      word(start + 4) >> 16, big_endian(start + 8) >> 16, big_endian(start + 8) & 0xffff,
                      big_endian(start + 12));
        return text;
    }

    /// Puts bytes at the end of the custom data; returns their offset in it. Everything behind moves.
    std::uint32_t append_custom_data(const std::string& data) {
        const std::size_t end = segment_offset(custom_data_segment) + segment_length(custom_data_segment);
        const auto offset = static_cast<std::uint32_t>(segment_length(custom_data_segment));
        const auto growth = static_cast<std::uint32_t>(data.size());
        bytes_.insert(end, data);
        set_word(segments_ + custom_data_segment * descriptor_size + 4, offset + growth);
        const auto move = [&](std::size_t place) {
            if (word(place) != 0xffffffffu && word(place) >= end) set_word(place, word(place) + growth);
        };
        for (std::size_t segment = 0; segment < segment_count; ++segment)
            if (segment != custom_data_segment) move(segments_ + segment * descriptor_size);
        for (std::size_t index = 0; index < info_count(); ++index) move(info_place(index) + function_block_place);
        return offset;
    }

    const std::string& bytes() const { return bytes_; }

private:
    std::uint32_t big_endian(std::size_t place) const { return __builtin_bswap32(word(place)); }

    std::string bytes_;
    std::size_t segments_ = 0;
};

template <class T>
void append(std::string& out, T value) {
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

/// A default as it stands in the custom data; empty where widl wrote it.
std::string encoded(const Parameter& parameter) {
    std::string data;
    if (parameter.type.kind == TypeKind::real) {
        append(data, vt_r8);
        append(data, std::get<double>(parameter.default_value));
    } else if (parameter.type.kind == TypeKind::text) {
        const std::string_view text = std::get<const char*>(parameter.default_value);
        append(data, vt_bstr);
        append(data, static_cast<std::uint32_t>(text.size()));
        data += text;
    }
    while (data.size() % 4 != 0) data += '\x57';
    return data;
}

/// Places of the default slots of a type info, in the order of the file.
std::vector<std::size_t> slots_of(const Library& library, std::size_t info) {
    std::vector<std::size_t> slots;
    const std::uint32_t block = library.word(library.info_place(info) + function_block_place);
    const std::uint32_t functions = library.word(library.info_place(info) + function_count_place) & 0xffff;
    std::size_t record = block + 4;
    for (std::uint32_t index = 0; index < functions; ++index) {
        const std::uint32_t size = library.word(record) & 0xffff;
        const std::uint32_t parameters = library.word(record + parameter_count_place) & 0xffff;
        const bool has_defaults = library.word(record + kind_place) & defaults_present_flag;
        const std::size_t first_parameter = record + size - parameters * parameter_size;
        for (std::uint32_t parameter = 0; has_defaults && parameter < parameters; ++parameter)
            if (library.word(first_parameter + parameter * parameter_size + 8) & has_default_flag)
                slots.push_back(first_parameter - 4 * (parameters - parameter));
        record += size;
    }
    return slots;
}

std::vector<const Parameter*> defaults_of(const ClassDescription& description) {
    std::vector<const Parameter*> defaults;
    for (const Member& member : description.members)
        for (const Parameter& parameter : member.parameters())
            if (parameter.has_default()) defaults.push_back(&parameter);
    return defaults;
}

}  // namespace

std::string with_defaults(const std::string& bytes) {
    Library library(bytes);
    std::size_t found = 0;
    // The order of the interfaces in the file is the compiler's own.
    for (std::size_t info = 0; info < library.info_count(); ++info) {
        const std::string uuid = library.uuid(info);
        std::vector<const Parameter*> defaults;
        for (const ClassDescription& description : class_descriptions())
            if (description.interface_id == uuid) {
                defaults = defaults_of(description);
                ++found;
            }
        if (slots_of(library, info).size() != defaults.size())
            throw std::runtime_error("not as many defaults as the tables have: " + uuid);
        for (std::size_t slot = 0; slot < defaults.size(); ++slot) {
            const Parameter& parameter = *defaults[slot];
            const std::string data = encoded(parameter);
            if (parameter.type.kind == TypeKind::variant) {
                const bool truth = std::get<bool>(parameter.default_value);
                library.set_word(slots_of(library, info)[slot], truth ? true_in_slot : false_in_slot);
            } else if (!data.empty()) {
                const std::uint32_t place = library.append_custom_data(data);
                library.set_word(slots_of(library, info)[slot], place);
            }
        }
    }
    if (found != class_descriptions().size()) throw std::runtime_error("an interface is missing in the type library");
    return library.bytes();
}

}  // namespace typelib
