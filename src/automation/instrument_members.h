// Member tables of an instrument layer as automation objects: the operations that a layer from outside offers, and the
// way a layer written against the C++ interfaces is offered to others. The names are a public contract.
#pragma once

#include <span>

#include "automation/class_description.h"
#include "korvane/instrument.h"

namespace korvane::automation {

// What stands behind the objects. References that the seam hands out are kept alive with their owner.
struct LayerHandle {
    std::shared_ptr<InstrumentLayer> layer;
};
struct GlobalsHandle {
    std::shared_ptr<InstrumentGlobals> globals;
};
struct PeakFinderHandle {
    std::unique_ptr<PeakFinder> finder;
    VariantArray<std::int32_t> samples;  ///< the finder reads them in `run`
};

template <>
inline constexpr std::string_view object_class_name<LayerHandle> = "InstrumentLayer";
template <>
inline constexpr std::string_view object_class_name<GlobalsHandle> = "InstrumentGlobals";
template <>
inline constexpr std::string_view object_class_name<SetpointTable> = "SetpointTable";
template <>
inline constexpr std::string_view object_class_name<InstrumentControl> = "InstrumentControl";
template <>
inline constexpr std::string_view object_class_name<CalibrationStore> = "CalibrationStore";
template <>
inline constexpr std::string_view object_class_name<HardwareQueries> = "HardwareQueries";
template <>
inline constexpr std::string_view object_class_name<FirmwareChannels> = "FirmwareChannels";
template <>
inline constexpr std::string_view object_class_name<PathInformation> = "PathInformation";
template <>
inline constexpr std::string_view object_class_name<LogbookEntry> = "LogbookEntry";
template <>
inline constexpr std::string_view object_class_name<PeakFinderHandle> = "PeakFinder";

/// The classes of an instrument layer's objects, the layer itself first.
std::span<const ClassDescription> instrument_class_descriptions();

/// The reference page of these objects, Markdown.
std::string instrument_reference_text();

/// A layer as an automation object of class "InstrumentLayer".
Object object_of_layer(std::shared_ptr<InstrumentLayer> layer);

}  // namespace korvane::automation
