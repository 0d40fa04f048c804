#include "frame/lazy_instrument.h"

#include "frame/routine.h"

namespace korvane {

void LazyInstrument::make() const {
    if (failure_) throw *failure_;
    try {
        std::unique_ptr<InstrumentGlobals> made = layer_->create_globals();
        if (!made) raise_runtime_fault(error_number::object_not_set, "instrument globals");
        made->initialise();
        globals_ = std::move(made);
    } catch (...) {
        failure_ = current_error();
        throw *failure_;
    }
}

std::string base_folder(InstrumentLayer& layer) {
    const auto paths = layer.create_path_information();
    if (!paths) raise_runtime_fault(error_number::object_not_set, "path information");
    return paths->base_folder();
}

}  // namespace korvane
