// Texts made from the member tables.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "korvane/automation.h"

namespace korvane::automation {
namespace {

TEST(InterfaceDefinition, IsCommittedAsTheTablesStand) {
    const std::string path = KORVANE_SOURCE_DIR "/src/automation/korvane.idl";
    // KORVANE_WRITE_GENERATED=1 accepts a change of the public contract.
    if (std::getenv("KORVANE_WRITE_GENERATED")) std::ofstream(path, std::ios::binary) << idl_text();
    std::ostringstream committed;
    committed << std::ifstream(path, std::ios::binary).rdbuf();
    EXPECT_TRUE(committed.str() == idl_text()) << path << " differs from the member tables";
}

TEST(ReferencePage, HasClassesRecordsAndEnumerations) {
    const std::string page = reference_text();
    for (const char* part : {R"(
## AbortHelper

The abort flag, shared by all processes. Created as `Korvane.AbortHelper`.

| Number | Member | |
|---|---|---|
| 1 | `Sub Reset()` | Clears the request to abort. |
)",
                             R"(
The peaks that a search found. Not creatable.

| Number | Member | |
|---|---|---|
| 1 | `Property Get Count() As Long` | Number of peaks. |
)",
                             R"(
`META_INDEX`: Positions of the experiment and the polarity in a spectrum's metadata. Fields: `lExpIndex` (Long), )"
                             R"(`lPolarityIndex` (Long).

## Enumerations

### enumPeakInfoUnits

| Name | Value |
|---|---|
| `ns` | 0 |
| `amu` | 1 |
)"})
        EXPECT_NE(page.find(part), std::string::npos) << part;
}

}  // namespace
}  // namespace korvane::automation
