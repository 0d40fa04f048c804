// Makes the objects of a creatable class.
#pragma once

#include "automation/class_description.h"
#include "automation/com/com_basics.h"

namespace korvane::automation {

/// The factory of the class with this identifier. Codes: CLASS_E_CLASSNOTAVAILABLE, E_NOINTERFACE.
HRESULT make_class_factory(REFCLSID class_id, REFIID wanted, void** result) noexcept;

/// Whether nothing of this module is in use.
bool module_is_idle() noexcept;

}  // namespace korvane::automation
