#include "session.h"

#include "korvane/automation.h"

namespace korvane::program {

Platform Session::build_platform() const {
    if (options.instrument) return automation::make_outside_platform(*options.instrument);
    const bool embedded_wanted = options.base || options.scene || options.replay;
    if (const auto outside = default_instrument(); outside && !embedded_wanted)
        return automation::make_outside_platform(*outside);
    EmbeddedOptions embedded;
    if (options.base) embedded.base_folder = path_of(*options.base);
    if (options.scene) embedded.scene = path_of(*options.scene);
    if (options.replay) embedded.replay = path_of(*options.replay);
    embedded.seed = options.seed;
    return make_embedded_platform(embedded, system_);
}

const Platform& Session::platform() {
    if (!platform_) platform_ = build_platform();
    return *platform_;
}

InstrumentGlobals& Session::instrument() {
    if (!instrument_) {
        auto created = platform().instrument->create_globals();
        created->initialise();
        instrument_ = std::move(created);
    }
    return *instrument_;
}

std::string Session::base_folder() {
    const auto folder = path_of(platform().instrument->create_path_information()->base_folder());
    return utf8_of(folder.has_filename() ? folder : folder.parent_path());
}

std::string Session::known_base_folder() {
    try {
        return platform_ ? base_folder() : std::string();
    } catch (const std::exception&) {
        return {};  // asked for while another failure is reported
    }
}

ExitCode Session::show(const Json& object, std::string_view text) {
    if (json)
        print(object.dump(2, ' ', false, Json::error_handler_t::replace) + '\n');
    else
        print(text);
    return ExitCode::done;
}

std::filesystem::path path_of(const std::string& utf8) {
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

std::string utf8_of(const std::filesystem::path& path) {
    const std::u8string utf8 = path.u8string();
    return {utf8.begin(), utf8.end()};
}

}  // namespace korvane::program
