#include <gtest/gtest.h>

#include <functional>

#include "korvane/cal_mass_list.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

const std::string path = "/base/masses.xml";

std::string configuration(const std::string& source, const std::string& polarity, const std::string& inside) {
    return "<Configuration IonSource=\"" + source + "\" IonPolarity=\"" + polarity + "\">" + inside +
           "</Configuration>";
}

std::string document(const std::string& configurations) {
    return "<QTOF_MassListConfiguration>" + configurations + "</QTOF_MassListConfiguration>";
}

const std::string two_masses = "<MassList><mass Used=\"1\">118.0863</mass><mass Used=\"0\">322.0481</mass></MassList>";

class MassListFile : public ::testing::Test {
protected:
    MassListFile() {
        put(document(configuration("ESI", "Positive", two_masses) + configuration("ESI", "Negative", "")));
    }
    void put(const std::string& content) { world.disk->put(path, content); }
    std::string content() const { return *world.disk->content(path); }
    /// The error of saving `text` as the list of a source and "Positive".
    std::string error_of_saving(const std::string& text, const std::string& source = "ESI") {
        CalMassList list(world.platform());
        list.OpenMassListFile(path);
        list.UpdateMassList(source, "Positive", text);
        const std::string error = raised([&] { list.SaveMassListToFile(path); });
        EXPECT_EQ(list.AnyMassListsDirty(), error != "no error");
        EXPECT_EQ(list.GetMassList(source, "Positive"), text) << "the edit is lost";
        return error;
    }

    MemoryPlatform world;
};

TEST_F(MassListFile, EveryFileThatIsNoMassListIsNamedAndNoneIsOpenAfterIt) {
    CalMassList list(world.platform());
    const std::string start = "-1|CalMassList|", other = "/base/other.xml";
    const auto error = [&] {
        list.OpenMassListFile(path);
        const std::string read = raised([&] { list.GetMassListArrayFromFile(other, "ESI", "Positive"); });
        EXPECT_EQ(list.GetMassList("ESI", "Negative"), "");
        EXPECT_EQ(raised([&] { list.OpenMassListFile(other); }), read);
        EXPECT_TRUE(raised([&] { list.GetMassList("ESI", "Negative"); }).starts_with("91|"));
        return read;
    };
    EXPECT_EQ(error(), start + "Failed to open mass list file: " + other);
    world.disk->put(other, "<Other/>");
    EXPECT_EQ(error(), start + other + " is not a valid Mass List file.");
    for (const std::string text : {"", "<QTOF_MassListConfiguration>", "text"}) {
        world.disk->put(other, text);
        const std::string expected = start + other + " is not a valid Mass List file.\r\n";
        EXPECT_TRUE(error().starts_with(expected) && error().size() > expected.size()) << "no reason given: " << text;
    }
}

TEST_F(MassListFile, ArrayHoldsAllMassesUsedOrNotAndAMissingListIsNamed) {
    put(document(configuration("ESI", "Positive", two_masses) + configuration("APCI", "Positive", "<MassList/>") +
                 configuration("Bad", "Positive", "<MassList><mass>12x</mass></MassList>")));
    CalMassList list(world.platform());
    const auto masses = list.GetMassListArrayFromFile(path, "ESI", "Positive");
    EXPECT_EQ(std::vector<double>(masses.elements().begin(), masses.elements().end()),
              (std::vector<double>{118.0863, 322.0481}));
    for (const std::string source : {"APCI", "esi"})
        EXPECT_EQ(raised([&] { list.GetMassListArrayFromFile(path, source, "Positive"); }),
                  "-1|CalMassList|Mass list for source " + source + " and Positive polarity not found");
    EXPECT_EQ(raised([&] { list.GetMassListArrayFromFile(path, "Bad", "Positive"); }),
              "13|Korvane|Type mismatch: [12x] (Mass list for source Bad and Positive polarity of " + path + ")");
    EXPECT_NE(raised([&] { list.GetMassListArrayFromFile(path, "O'Neil", "Positive"); }), "no error");
}

TEST_F(MassListFile, NothingIsReadOrWrittenWithoutAnOpenFileOrForAnUnknownList) {
    CalMassList list(world.platform());
    const std::function<void()> calls[] = {
        [&] { list.GetMassList("No", "Positive"); }, [&] { list.GetMassListArray("No", "Positive"); },
        [&] { list.IsMassListDirty("No", "Positive"); }, [&] { list.UpdateMassList("No", "Positive", ""); }};
    for (const std::string error :
         {"91|Korvane|Object variable or With block variable not set: no mass list file is open",
          "9|Korvane|Subscript out of range: no mass list for [No|Positive]"}) {
        for (const auto& call : calls) EXPECT_EQ(raised(call), error);
        list.OpenMassListFile(path);
    }
    list.CloseMassListFile();
    EXPECT_TRUE(raised([&] { list.SaveMassListToFile(path); }).starts_with("91|"));
    EXPECT_EQ(raised([&] { list.SaveMassListToFile(); }),
              "-1|CalMassList|Save mass list file: A file name other than the default was not specified");
}

TEST_F(MassListFile, WhatCannotBeWrittenIsNamedAndLosesNothing) {
    const std::string before = content(), start = "-1|CalMassList|";
    for (const std::string line : {"118.0863", "\x01\t118.0863", "", " "})
        EXPECT_EQ(error_of_saving("1\t100\n" + line + "\n1\t200"),
                  start + "Mass list for [ESI|Positive]: line[" + line + "] is not a use flag, a tab and a mass");
    std::string longest = "1\t100";
    for (int line = 2; line <= 32767; ++line) longest += "\n1\t100";
    EXPECT_EQ(error_of_saving(longest + "\n1\t100"), "6|Korvane|Overflow: [32768] lines of mass list[ESI|Positive]");
    EXPECT_EQ(content(), before);
    EXPECT_EQ(error_of_saving(longest), "no error");
    put(document("<Configuration IonPolarity=\"Positive\">" + two_masses + "</Configuration>"));
    EXPECT_EQ(error_of_saving("1\t100", ""),
              start + "Mass list for source  and Positive polarity not found in " + path);
    world.disk->put(path, before, true);
    EXPECT_EQ(error_of_saving("1\t100"),
              start + "Failed to save mass list file: " + path + "\r\nThe file is read-only");
    EXPECT_EQ(content(), before);
}

TEST_F(MassListFile, MarksAreClearedWhereAListIsRewrittenAndAnyOfThemByASaveOnly) {
    put(document(configuration("A", "Positive", "") + configuration("B", "Positive", "")));
    CalMassList list(world.platform());
    const auto marks = [&] {
        return std::to_string(list.IsMassListDirty("A", "Positive")) +
               std::to_string(list.IsMassListDirty("B", "Positive")) + std::to_string(list.AnyMassListsDirty());
    };
    list.OpenMassListFile(path);
    list.UpdateMassList("A", "Positive", "");
    EXPECT_EQ(marks(), "000") << "the same text changes nothing";
    list.UpdateMassList("A", "Positive", "1\t112.9856");
    list.UpdateMassList("B", "Positive", "bad");
    EXPECT_EQ(marks(), "111");
    EXPECT_NE(raised([&] { list.SaveMassListToFile(path); }), "no error");
    EXPECT_EQ(marks(), "011") << "the first list is in the document, the second cannot be";
    list.UpdateMassList("B", "Positive", "");
    world.disk->fault = MemoryDisk::Fault{world.disk->operations + 1, true};
    EXPECT_NE(raised([&] { list.SaveMassListToFile(path); }), "no error");
    EXPECT_EQ(marks(), "001");
    world.disk->fault.reset();
    list.OpenMassListFile(path);
    EXPECT_EQ(marks(), "001");
    list.CloseMassListFile();
    EXPECT_TRUE(list.AnyMassListsDirty());
    list.OpenMassListFile(path);
    list.SaveMassListToFile(path);
    EXPECT_EQ(marks(), "000");
}

TEST_F(MassListFile, TextsAreTakenAndListsGivenTwiceAreReadAndRewrittenByTheLetter) {
    // The last of equal configurations is the list, the first list of the first is rewritten; all are read as numbers.
    const std::string one = "<MassList><mass Used=\"1\">1</mass></MassList>",
                      two = "<MassList><mass>2</mass></MassList>", three = "<MassList><mass>3\n4</mass></MassList>",
                      other = configuration("ESI", "Positive", three);
    put(document(configuration("ESI", "Positive", one + two) + other));
    CalMassList list(world.platform());
    list.OpenMassListFile(path);
    EXPECT_EQ(list.GetMassList("ESI", "Positive"), "\t3\n4");
    EXPECT_EQ(list.GetMassListArray("ESI", "Positive").size(), 1U) << "one string a mass, whatever it holds";
    list.UpdateMassList("ESI", "Positive", "1\tfive\tmore\nx\t\n\t6\r");
    EXPECT_EQ(list.GetMassListArray("ESI", "Positive").size(), 3U);
    list.SaveMassListToFile(path);
    const std::string written =
        "<MassList><mass Used=\"1\">five</mass><mass Used=\"x\"/><mass Used=\"\">6&#13;</mass></MassList>";
    EXPECT_EQ(content(), document(configuration("ESI", "Positive", two + written) + other));
    put(document(configuration("ESI", "Positive", one + two) + configuration("ESI", "Positive", one)));
    EXPECT_EQ(list.GetMassListArrayFromFile(path, "ESI", "Positive").size(), 3U);
}

}  // namespace
}  // namespace korvane
