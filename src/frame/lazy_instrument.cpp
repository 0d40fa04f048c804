#include "frame/lazy_instrument.h"

#include "korvane/error.h"

namespace korvane {

namespace {

template <class Made>
Made required(Made made, const char* what) {
    if (!made) raise_runtime_fault(error_number::object_not_set, what);
    return made;
}

}  // namespace

void LazyInstrument::make() const {
    if (failure_) std::rethrow_exception(failure_);
    try {
        auto made = required(layer_->create_globals(), "instrument globals");
        made->initialise();
        globals_ = std::move(made);
    } catch (...) {
        failure_ = std::current_exception();
        throw;
    }
}

std::string base_folder(InstrumentLayer& layer) {
    return required(layer.create_path_information(), "path information")->base_folder();
}

}  // namespace korvane
