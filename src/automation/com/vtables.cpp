// The vtables of the classes, made from their tables.
#ifdef _WIN32

#include "automation/com/vtable.h"
#include "automation/object_members.h"
#include "automation/spectrum_parser_members.h"
#include "automation/store_members.h"
#include "automation/tune_globals_members.h"

namespace korvane::automation {

namespace {

struct ClassVtable {
    const Member* members;
    const void* const* (*make)();
};

constexpr ClassVtable vtables[] = {
    {tune_globals_members.data(), &make_vtable<tune_globals_members>},
    {spectrum_parser_members.data(), &make_vtable<spectrum_parser_members>},
    {cal_mass_list_members.data(), &make_vtable<cal_mass_list_members>},
    {tune_params_members.data(), &make_vtable<tune_params_members>},
    {tune_prefs_members.data(), &make_vtable<tune_prefs_members>},
    {abort_helper_members.data(), &make_vtable<abort_helper_members>},
    {peak_list_members.data(), &make_vtable<peak_list_members>},
    {mass_time_calibration_members.data(), &make_vtable<mass_time_calibration_members>},
};

}  // namespace

const std::array<const void*, common_slot_count>& common_slots() {
    static const std::array<const void*, common_slot_count> slots{
        address_of(&query_interface),     address_of(&add_reference), address_of(&release_reference),
        address_of(&get_type_info_count), address_of(&get_type_info), address_of(&get_ids_of_names),
        address_of(&invoke_member)};
    return slots;
}

const void* const* vtable_of(const ClassDescription& description) {
    for (const ClassVtable& vtable : vtables)
        if (vtable.members == description.members.data()) return vtable.make();
    return common_slots().data();
}

}  // namespace korvane::automation

#endif
