// The stores against a plain map: random reads, writes, reloads, edits from outside and saves over two instances.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "reliability/store_operations.h"

namespace korvane {
namespace {

using Values = std::map<std::string, std::string>;
const std::vector<std::string> names{"AbortFlag", "Mode", "Limit"};
const std::vector<std::string> texts{"0",  "1", "Yes", "", " ", "12.5", "a<b&c>d", "\"quoted'", "\xc3\xa4\xe2\x82\xac",
                                     "]]>"};

std::string escaped(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '<')
            out += "&lt;";
        else if (c == '&')
            out += "&amp;";
        else if (c == '>')
            out += "&gt;";
        else
            out += c;
    }
    return out;
}

std::string document(const Values& values) {
    std::string xml = "<TunePreferences>\n";
    for (const auto& [name, value] : values) xml += "  <" + name + ">" + escaped(value) + "</" + name + ">\n";
    return xml + "</TunePreferences>\n";
}

/// A store and what it has to answer from: the copy of its last load, if any.
struct Client {
    explicit Client(const Platform& platform) : store(platform) {}
    clsTunePrefsXML store;
    std::optional<Values> copy;
};

class Sequence {
public:
    explicit Sequence(unsigned seed) : random_(seed), clients_{Client(world_.platform()), Client(world_.platform())} {
        for (const std::string& name : names) file_[name].assign(1, '0');
        put();
    }

    void step() {
        Client& client = clients_[pick(2)];
        const std::string& name = names[pick(names.size())];
        switch (pick(5)) {
            case 0:
                return read(client, name, true);
            case 1:
                return read(client, name, false);
            case 2:
                return write(client, name, texts[pick(texts.size())]);
            case 3:
                return edit_outside(name);
            default:
                return read_missing(client);
        }
    }

private:
    std::size_t pick(std::size_t count) { return random_() % count; }
    void put() { world_.disk->put("/base/TunePreferences.xml", document(file_)); }

    void read(Client& client, const std::string& name, bool reload) {
        if (reload || !client.copy) client.copy = file_;
        ASSERT_EQ(client.store.GetTunePreference(name, reload), client.copy->at(name)) << name;
    }
    void write(Client& client, const std::string& name, const std::string& value) {
        file_[name] = value;
        client.copy = file_;
        client.store.WriteTunePreference(name, value);
        clsTunePrefsXML fresh(world_.platform());
        ASSERT_EQ(fresh.GetTunePreference(name), value);
        ASSERT_EQ(*world_.disk->content("/base/TunePreferences.xml"), document(file_));
    }
    void edit_outside(const std::string& name) {
        file_[name] = texts[pick(texts.size())];
        put();
    }
    void read_missing(Client& client) {
        if (!client.copy) client.copy = file_;
        ASSERT_THROW(client.store.GetTunePreference("Missing"), Error);
    }

    std::mt19937 random_;
    MemoryPlatform world_;
    Values file_;
    Client clients_[2];
};

TEST(StoresAgainstAMap, AgreeOverTenThousandRandomSequences) {
    for (unsigned seed = 1; seed <= 10000; ++seed) {
        Sequence sequence(seed);
        for (int step = 0; step < 12; ++step) {
            sequence.step();
            ASSERT_FALSE(HasFatalFailure()) << "seed " << seed << ", step " << step;
        }
    }
}

}  // namespace
}  // namespace korvane
