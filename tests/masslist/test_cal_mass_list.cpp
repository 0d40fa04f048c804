#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "korvane/cal_mass_list.h"
#include "support/memory_platform.h"
#include "support/raised.h"

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
    explicit MassListFile(const std::string& content = "") {
        put(content.empty()
                ? document(configuration("ESI", "Positive", two_masses) + configuration("ESI", "Negative", ""))
                : content);
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
        EXPECT_EQ(list.IsMassListDirty(source, "Positive"), error != "no error");
        EXPECT_EQ(list.GetMassList(source, "Positive"), text) << "the edit is lost";
        return error;
    }

    MemoryPlatform world;
};

TEST_F(MassListFile, EveryFileThatIsNoMassListIsNamed) {
    CalMassList list(world.platform());
    const std::string start = "-1|CalMassList|";
    const auto error = [&] {
        const std::string opened = raised([&] { list.OpenMassListFile(path); });
        EXPECT_EQ(raised([&] { list.GetMassListArrayFromFile(path, "ESI", "Positive"); }), opened);
        return opened;
    };
    put("<Other/>");
    EXPECT_EQ(error(), start + path + " is not a valid Mass List file.");
    for (const std::string text : {"", "<QTOF_MassListConfiguration>", "text"}) {
        put(text);
        const std::string expected = start + path + " is not a valid Mass List file.\r\n";
        EXPECT_EQ(error().substr(0, expected.size()), expected) << text;
        EXPECT_GT(error().size(), expected.size()) << "no reason given";
    }
    EXPECT_EQ(raised([&] { list.OpenMassListFile("/base/none.xml"); }),
              start + "Failed to open mass list file: /base/none.xml");
}

TEST_F(MassListFile, FailedOpenKeepsTheOpenFileAndItsEdits) {
    CalMassList list(world.platform());
    list.OpenMassListFile(path);
    list.UpdateMassList("ESI", "Negative", "1\t112.9856");
    EXPECT_NE(raised([&] { list.OpenMassListFile("/base/none.xml"); }), "no error");
    EXPECT_TRUE(list.IsMassListDirty("ESI", "Negative"));
    EXPECT_EQ(list.GetMassListArrayFromFile(path, "ESI", "Positive").size(), 2u);
    list.SaveMassListToFile(path);
    list.CloseMassListFile();
    EXPECT_EQ(list.GetMassListArrayFromFile(path, "ESI", "Negative").at(0), 112.9856);
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
    const std::pair<const char*, std::function<void()>> calls[] = {
        {"GetMassList", [&] { list.GetMassList("No", "Positive"); }},
        {"GetMassListArray", [&] { list.GetMassListArray("No", "Positive"); }},
        {"IsMassListDirty", [&] { list.IsMassListDirty("No", "Positive"); }},
        {"UpdateMassList", [&] { list.UpdateMassList("No", "Positive", ""); }},
    };
    const std::string none = "91|Korvane|Object variable or With block variable not set: no mass list file is open";
    EXPECT_EQ(raised([&] { list.SaveMassListToFile(path); }), none);
    for (const auto& [name, call] : calls) EXPECT_EQ(raised(call), none) << name;
    list.OpenMassListFile(path);
    for (const auto& [name, call] : calls)
        EXPECT_EQ(raised(call), "9|Korvane|Subscript out of range: no mass list for [No|Positive]") << name;
    EXPECT_EQ(raised([&] { list.SaveMassListToFile(); }),
              "-1|CalMassList|Save mass list file: A file name other than the default was not specified");
}

TEST_F(MassListFile, LineThatIsNoMassIsNamedAndNothingIsWritten) {
    const std::string before = content();
    for (const std::string line : {"118.0863", "1\t", "1\t118,0863", "1\t118.0863\tmore", "\x01\t118.0863", "", " "}) {
        EXPECT_EQ(
            error_of_saving("1\t100\n" + line + "\n1\t200"),
            "-1|CalMassList|Mass list for ESI|Positive: line[" + line + "] is not a use flag, a tab and a number");
        ASSERT_EQ(content(), before);
    }
}

TEST_F(MassListFile, OneBadListKeepsTheGoodOnesFromBeingHalfWritten) {
    CalMassList list(world.platform());
    list.OpenMassListFile(path);
    list.UpdateMassList("ESI", "Negative", "1\t112.9856");
    list.UpdateMassList("ESI", "Positive", "bad");
    EXPECT_NE(raised([&] { list.SaveMassListToFile("/base/copy.xml"); }), "no error");
    EXPECT_FALSE(world.disk->content("/base/copy.xml"));
    list.UpdateMassList("ESI", "Positive", "");
    list.SaveMassListToFile("/base/copy.xml");
    EXPECT_FALSE(list.AnyMassListsDirty());
    CalMassList copy(world.platform());
    copy.OpenMassListFile("/base/copy.xml");
    EXPECT_EQ(copy.GetMassList("ESI", "Negative"), "1\t112.9856");
    EXPECT_EQ(copy.GetMassList("ESI", "Positive"), "");
}

TEST_F(MassListFile, LongestListHas32767Lines) {
    std::string text = "1\t100";
    for (int line = 2; line <= 32767; ++line) text += "\n1\t100";
    EXPECT_EQ(error_of_saving(text), "no error");
    EXPECT_EQ(error_of_saving(text + "\n1\t100"), "6|Korvane|Overflow: mass list for ESI|Positive, 32768 lines");
}

TEST_F(MassListFile, ListThatIsNotInOnePlaceIsNotWritten) {
    const std::string twice =
        "-1|CalMassList|Mass list for source ESI and Positive polarity is given more than once in " + path;
    const std::string ambiguous[] = {
        document(configuration("ESI", "Positive", two_masses) + configuration("ESI", "Positive", two_masses)),
        document(configuration("ESI", "Positive", two_masses + two_masses))};
    for (const std::string& text : ambiguous) {
        put(text);
        EXPECT_EQ(error_of_saving("1\t100"), twice);
        EXPECT_EQ(content(), text);
    }
    put(document("<Configuration IonPolarity=\"Positive\">" + two_masses + "</Configuration>"));
    EXPECT_EQ(error_of_saving("1\t100", ""),
              "-1|CalMassList|Mass list for source  and Positive polarity not found in " + path);
}

TEST_F(MassListFile, ReadOnlyFileIsNotReplaced) {
    world.disk->put(path, content(), true);
    const std::string before = content();
    EXPECT_EQ(error_of_saving("1\t100"),
              "-1|CalMassList|Failed to save mass list file: " + path + "\r\nThe file is read-only");
    EXPECT_EQ(content(), before);
}

TEST_F(MassListFile, SaveRewritesTheChangedListAsLastChildAndNothingElse) {
    put("<?xml version='1.0'?>\r\n<QTOF_MassListConfiguration  a='1'>\r\n" +
        configuration("ESI", "Positive", "<MassList><mass Used='1'>1.50</mass></MassList><!-- kept --><Note/>") +
        "\r\n" + configuration("nanoESI", "Positive", "<MassList ><mass>2.50</mass ></MassList>") +
        "</QTOF_MassListConfiguration>\r\n");
    std::string expected = content();
    const std::string old = "<MassList><mass Used='1'>1.50</mass></MassList>";
    expected.erase(expected.find(old), old.size());
    const std::string note = "<Note/>";
    expected.insert(expected.find(note) + note.size(),
                    "<MassList><mass Used=\"a &amp; b\">001.750</mass><mass Used=\"\"> 3e2 </mass></MassList>");
    EXPECT_EQ(error_of_saving("a & b\t001.750\n\t 3e2 "), "no error");
    EXPECT_EQ(content(), expected);
}

// The object and its file as plain maps.
class MassListModel {
public:
    using Name = std::pair<std::string, std::string>;

    explicit MassListModel(unsigned seed) : random_(seed), list_(world_.platform()) {
        std::string configurations;
        for (const auto& [source, xml_source] : sources_)
            for (const char* polarity : {"Positive", "Negative"}) {
                const bool filled = random_() % 2 == 0;
                configurations += "\n  " + configuration(xml_source, polarity, filled ? two_masses : "");
                file_[{source, polarity}] = filled ? "1\t118.0863\n0\t322.0481" : "";
            }
        world_.disk->put(path, document(configurations));
        open();
    }

    void step() {
        switch (random_() % 6) {
            case 0:
                list_.SaveMassListToFile(path);
                file_ = held_;
                changed_.clear();
                return;
            case 1:
                return open();
            default:
                return update();
        }
    }

    void check() {
        for (const auto& [name, text] : held_) {
            ASSERT_EQ(list_.GetMassList(name.first, name.second), text);
            ASSERT_EQ(list_.IsMassListDirty(name.first, name.second), changed_.count(name) == 1);
            std::string joined;
            const auto lines = list_.GetMassListArray(name.first, name.second);
            for (const std::string& line : lines.elements()) joined += (joined.empty() ? "" : "\n") + line;
            ASSERT_EQ(joined, text);
        }
        ASSERT_EQ(list_.AnyMassListsDirty(), !changed_.empty());
    }

private:
    void open() {
        list_.OpenMassListFile(path);
        held_ = file_;
        changed_.clear();
    }
    void update() {
        auto& [name, text] = *std::next(held_.begin(), random_() % held_.size());
        const std::string& given = texts_[random_() % texts_.size()];
        list_.UpdateMassList(name.first, name.second, given);
        if (text != given) changed_.insert(name);
        text = given;
    }

    const std::map<std::string, std::string> sources_{
        {"ESI", "ESI"}, {"APCI", "APCI"}, {"a \"x\" & y", "a &quot;x&quot; &amp; y"}};
    const std::vector<std::string> texts_{"", "1\t118.0863", "0\t-5", "1\t118.0863\n0\t322.0481", "x < y\t1E3\n\t2"};
    std::mt19937 random_;
    MemoryPlatform world_;
    CalMassList list_;
    std::map<Name, std::string> file_, held_;
    std::set<Name> changed_;
};

TEST(MassLists, AgreeWithAMapOverRandomEditsSavesAndOpenings) {
    for (unsigned seed = 0; seed < 300; ++seed) {
        MassListModel model(seed);
        for (int step = 0; step < 30; ++step) {
            model.step();
            model.check();
            ASSERT_FALSE(::testing::Test::HasFatalFailure()) << "seed " << seed << ", step " << step;
        }
    }
}

}  // namespace
}  // namespace korvane
