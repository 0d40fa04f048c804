#include "frame/lazy_instrument.h"

#include "frame/routine.h"

namespace korvane {

void LazyInstrument::make() const {
    if (failure_) throw *failure_;
    try {
        auto made = layer_->create_globals();
        made->initialise();
        globals_ = std::move(made);
    } catch (...) {
        failure_ = current_error();
        throw *failure_;
    }
}

std::string base_folder(InstrumentLayer& layer) {
    note_instrument_call("create_path_information");
    const auto paths = layer.create_path_information();
    if (!paths) raise_runtime_fault(error_number::object_not_set, "create_path_information() of the instrument layer");
    return paths->base_folder();
}

}  // namespace korvane
