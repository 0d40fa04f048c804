// The simulated instrument behind Windows objects, in this process and with a virtual clock.
#pragma once

#include "argument_values.h"
#include "automation/com/com_object.h"

namespace korvane::automation {

class ServerWorld {
public:
    ServerWorld() { CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
    ~ServerWorld() { CoUninitialize(); }

    /// An object of any class, those that are not creatable as a member returns them.
    ComPointer<IDispatch> create(const ClassDescription& description) {
        return ComPointer<IDispatch>::owned(
            make_com_object(std::static_pointer_cast<NativeObject>(object_of(native, description))));
    }
    ComPointer<IDispatch> create(const std::string& class_name) { return create(class_named(class_name)); }

    /// The text without the path of this world's folder.
    std::string without_folder(std::string text) const {
        const std::string folder = native.base().parent_path().string();
        for (std::size_t place; (place = text.find(folder)) != std::string::npos;)
            text.replace(place, folder.size(), "FOLDER");
        return text;
    }

    EmbeddedWorld native;
};

}  // namespace korvane::automation
