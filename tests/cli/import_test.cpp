// zpe import: the export -> edit -> import round trip on the demo image, and
// bad input that writes nothing.
#include "analysis/area_map.h"
#include "playbook/open_rom.h"
#include "support/image_builder.h"
#include "support/process.h"

#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace zpe {
namespace {

using json = nlohmann::json;

struct Demo {
    test::TempDir dir;
    std::string image = dir.file("demo.nes");
    Demo() { std::filesystem::copy_file(ZPE_DEMO_IMAGE, image); }
    test::ProcessResult zpe(const std::vector<std::string>& args) const { return test::runProcess(ZPE_BIN, args); }
    json exported() const { return json::parse(zpe({"json", image}).out); }
    std::string write(const std::string& name, const std::string& text) const {
        dir.writeText(name, text);
        return dir.file(name);
    }
};

TEST(CliImport, RoundTripChangesExactlyWhatTheFileSaysAndKeepsTheGamesBytes) {
    Demo d;
    const Playbook before = openRom(d.image, ZPE_DATA_DIR);
    json doc = d.exported();
    // One route value, and one command added before the end of another sequence.
    size_t routeIndex = 0;
    while (doc["sequences"][routeIndex]["commands"][0]["code"] != "A0") ++routeIndex;  // the first route
    json& route = doc["sequences"][routeIndex]["commands"];
    ASSERT_EQ(route[1]["code"], "D7");
    route[1]["data"][1] = 0x44;
    json& grown = doc["sequences"][3]["commands"];
    grown.insert(grown.end() - 1, json{{"code", "F3"}, {"data", {0x1E}}});
    const std::string file = d.write("edited.json", doc.dump());

    auto r = d.zpe({"import", d.image, file, "--dry-run"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(test::readFileBytes(d.image), before.openedBytes) << "a dry run writes nothing";
    r = d.zpe({"import", d.image, file});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out.find("Saved: 1 sequence in place, 1 moved ("), 0u) << r.out;

    const json after = d.exported();
    EXPECT_EQ(after["sequences"][routeIndex]["commands"][1]["data"][1], 0x44);
    const json& moved = after["sequences"][3]["commands"];
    EXPECT_EQ(moved[moved.size() - 2]["code"], "F3");
    // Every byte the game ran before and no editor sequence held is still there.
    const AreaMap map = buildAreaMap(before);
    const auto bytes = test::readFileBytes(d.image);
    for (const AreaRun& run : map.runs(kUseGame))
        for (int32_t a = run.start; a <= run.end; ++a)
            ASSERT_EQ(bytes[static_cast<size_t>(offsetOfAddress(a))], before.openedBytes[static_cast<size_t>(offsetOfAddress(a))]);
    // Importing what is now there changes nothing.
    r = d.zpe({"import", d.image, d.write("same.json", after.dump())});
    EXPECT_EQ(r.out.find("Saved: 0 sequences in place, 0 moved"), 0u) << r.out;
    EXPECT_EQ(test::readFileBytes(d.image), bytes);
}

TEST(CliImport, BadInputNamesThePlaceAndWritesNothing) {
    Demo d;
    const auto original = test::readFileBytes(d.image);
    const json doc = d.exported();
    struct Case {
        std::function<void(json&)> edit;
        const char* says;
    };
    const std::vector<Case> cases{
        {[](json& j) { j["slots"].erase(63); }, "/slots: holds 63 entries, not 64"},
        {[](json& j) { j["slots"][3]["name"] = "A NAME MUCH TOO LONG"; }, "/slots/3/name: longer than the 15 bytes"},
        {[](json& j) { j["slots"][40]["offensivePlays"][2] = 256; }, "/slots/40/offensivePlays/2: 256 is outside 0 to 255"},
        {[](json& j) { j["slots"][1]["rusher"] = 3; }, "/slots/1/rusher"},
        {[](json& j) { j["plays"][5]["players"][0] = "B123"; }, "/plays/5/players/0: B123 is the address of no sequence"},
        {[](json& j) { j["sequences"][0]["commands"][0]["code"] = "35"; }, "/sequences/0/commands: command 0: not a command code"},
        {[](json& j) { j["sequences"][0]["commands"][0]["data"] = {1}; }, "/sequences/0/commands: command 0: takes 2 data values"},
        {[](json& j) { j["sequences"][0]["commands"].erase(j["sequences"][0]["commands"].size() - 1); },
         "the last command must end the sequence"},
    };
    for (const Case& c : cases) {
        json j = doc;
        c.edit(j);
        const auto r = d.zpe({"import", d.image, d.write("bad.json", j.dump())});
        EXPECT_EQ(r.exitCode, 1) << c.says;
        EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
        EXPECT_EQ(test::readFileBytes(d.image), original) << c.says;
    }
    const auto r = d.zpe({"import", d.image, d.write("broken.json", "{\"slots\": [")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("broken.json: not JSON"), std::string::npos) << r.err;
}

}  // namespace
}  // namespace zpe
