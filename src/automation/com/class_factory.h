// Makes the objects of a creatable class.
#pragma once

#include <functional>

#include "automation/com/com_basics.h"

namespace korvane::automation {

/// A factory of the objects that `make` makes, each counted once. Their errors bear the interface's identifier.
HRESULT make_factory(std::function<IDispatch*()> make, const GUID& interface_id, REFIID wanted, void** result);

/// The factory of the class with this identifier. Codes: CLASS_E_CLASSNOTAVAILABLE, E_NOINTERFACE.
HRESULT make_class_factory(REFCLSID class_id, REFIID wanted, void** result) noexcept;

/// Whether nothing of this module is in use.
bool module_is_idle() noexcept;

}  // namespace korvane::automation
