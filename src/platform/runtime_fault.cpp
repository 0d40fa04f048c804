#include <array>
#include <string>
#include <string_view>

#include "korvane/error.h"

namespace korvane {

namespace {

struct RuntimeFault {
    std::int32_t number;
    std::string_view text;
};

constexpr std::array runtime_faults{
    RuntimeFault{5, "Invalid procedure call or argument"},
    RuntimeFault{6, "Overflow"},
    RuntimeFault{7, "Out of memory"},
    RuntimeFault{9, "Subscript out of range"},
    RuntimeFault{11, "Division by zero"},
    RuntimeFault{13, "Type mismatch"},
    RuntimeFault{52, "Bad file name or number"},
    RuntimeFault{53, "File not found"},
    RuntimeFault{57, "Device I/O error"},
    RuntimeFault{58, "File already exists"},
    RuntimeFault{61, "Disk full"},
    RuntimeFault{70, "Permission denied"},
    RuntimeFault{75, "Path/File access error"},
    RuntimeFault{76, "Path not found"},
    RuntimeFault{91, "Object variable or With block variable not set"},
    RuntimeFault{94, "Invalid use of Null"},
    RuntimeFault{424, "Object required"},
    RuntimeFault{429, "ActiveX component can't create object"},
    RuntimeFault{438, "Object doesn't support this property or method"},
    RuntimeFault{448, "Named argument not found"},
    RuntimeFault{449, "Argument not optional"},
    RuntimeFault{450, "Wrong number of arguments or invalid property assignment"},
    RuntimeFault{457, "This key is already associated with an element of this collection"},
};

std::string_view runtime_fault_text(std::int32_t number) {
    for (const RuntimeFault& fault : runtime_faults)
        if (fault.number == number) return fault.text;
    return "Application-defined or object-defined error";
}

}  // namespace

void raise_runtime_fault(std::int32_t number, const std::string& detail) {
    std::string description(runtime_fault_text(number));
    if (!detail.empty()) description += ": " + detail;
    throw Error(number, "Korvane", description);
}

}  // namespace korvane
