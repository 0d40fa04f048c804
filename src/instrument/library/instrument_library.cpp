#include "instrument/library/instrument_library.h"

#include <algorithm>

#include "korvane/instrument_library.h"
#include "platform/windows_text.h"

#ifndef _WIN32
#include <dlfcn.h>
#endif

namespace korvane {

namespace {

using EntryPoint = const InstrumentLibrary* (*)();

[[noreturn]] void refuse(const std::string& path, const std::string& reason) {
    throw Error(error_number::file_or_element, "InstrumentLibrary", "Instrument library[" + path + "] " + reason);
}

// A library stays loaded until the process ends: its objects may outlive the layer that made them.
#ifdef _WIN32

constexpr const char* folder_separators = "/\\:";

EntryPoint entry_point(const std::string& path) {
    std::wstring located = utf16_from_utf8(path);
    std::replace(located.begin(), located.end(), L'/', L'\\');
    const HMODULE library = LoadLibraryW(located.c_str());
    if (!library) refuse(path, "cannot be loaded: system error " + std::to_string(GetLastError()));
    return reinterpret_cast<EntryPoint>(reinterpret_cast<void*>(GetProcAddress(library, instrument_library_entry)));
}

#else

constexpr const char* folder_separators = "/";

EntryPoint entry_point(const std::string& path) {
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) refuse(path, std::string("cannot be loaded: ") + dlerror());
    return reinterpret_cast<EntryPoint>(dlsym(library, instrument_library_entry));
}

#endif

}  // namespace

bool names_library(const std::string& name) {
    return name.find_first_of("/\\") != std::string::npos || name.ends_with(".so") || name.ends_with(".dll") ||
           name.ends_with(".dylib") || name.find(".so.") != std::string::npos;
}

std::shared_ptr<InstrumentLayer> load_instrument_library(const std::string& path) {
    // The system would look for a name without a folder among its own libraries, and nobody means to load whatever lies
    // in the current folder.
    if (path.find_first_of(folder_separators) == std::string::npos)
        refuse(path, "has no folder in its name (./" + path + " is the one in the current folder)");
    const EntryPoint entry = entry_point(path);
    if (!entry) refuse(path, std::string("has no entry point ") + instrument_library_entry);
    const InstrumentLibrary* const library = entry();
    if (!library) refuse(path, "returned nothing from its entry point");
    if (library->interface_version != instrument_interface_version)
        refuse(path, "has interface version " + std::to_string(library->interface_version) + ", this program has " +
                         std::to_string(instrument_interface_version));
    if (!library->create || !library->destroy) refuse(path, "makes no layer");
    try {
        if (InstrumentLayer* const layer = library->create()) return {layer, library->destroy};
    } catch (const Error&) {
        throw;
    } catch (const std::exception& fault) {
        refuse(path, std::string("made no layer: ") + fault.what());
    } catch (...) {
        refuse(path, "made no layer: an exception of an unknown type");
    }
    refuse(path, "made no layer");
}

}  // namespace korvane
