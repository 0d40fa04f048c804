// Texts made from the member tables.
#include <gtest/gtest.h>

#include <cstdlib>

#include "automation/class_description.h"
#include "korvane/automation.h"
#include "support/test_platform.h"

namespace korvane::automation {
namespace {

TEST(InterfaceDefinition, IsCommittedAsTheTablesStand) {
    const std::string path = KORVANE_SOURCE_DIR "/src/automation/korvane.idl";
    // KORVANE_WRITE_GENERATED=1 accepts a change of the public contract.
    if (std::getenv("KORVANE_WRITE_GENERATED")) write_text(path, idl_text());
    EXPECT_TRUE(read_text(path) == idl_text()) << path << " differs from the member tables";
}

TEST(ReferencePage, HasClassesRecordsAndEnumerations) {
    const std::string page = reference_text();
    for (const char* part :
         {"\n## AbortHelper\n\nThe abort flag, shared by all processes. Created as `Korvane.AbortHelper`.\n\n"
          "| Number | Member | |\n|---|---|---|\n| 1 | `Sub Reset()` | Clears the request to abort. |\n",
          "The peaks that a search found. Not creatable.\n", "| 1 | `Property Get Count() As Long` |",
          "(ByVal ParamGroupName As String, ByVal strParamName As String, ByVal strNewParamValue As String, Optional "
          "ByVal strAltTreeNode As String = \"AutotuneParameters\")`",
          "\n`META_INDEX`: Positions of the experiment and the polarity in a spectrum's metadata. Fields: `lExpIndex` "
          "(Long), `lPolarityIndex` (Long).\n",
          "\n### enumPeakInfoUnits\n\n| Name | Value |\n|---|---|\n| `ns` | 0 |\n| `amu` | 1 |\n"})
        EXPECT_NE(page.find(part), std::string::npos) << part;
}

}  // namespace
}  // namespace korvane::automation
