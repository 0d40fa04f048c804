// The server: factories of its objects, its entries in the registry, and what the module is used by.
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

/// Writes the classes and the type library; takes back what it wrote when it cannot write all.
HRESULT register_server() noexcept;
/// Removes everything that registration writes; what is not there is no error.
HRESULT unregister_server() noexcept;

}  // namespace korvane::automation
