// The server's entries in the registry.
#pragma once

#include "automation/com/com_basics.h"

namespace korvane::automation {

/// Writes the classes and the type library; takes back what it wrote when it cannot write all.
HRESULT register_server() noexcept;
/// Removes everything that registration writes; what is not there is no error.
HRESULT unregister_server() noexcept;

}  // namespace korvane::automation
