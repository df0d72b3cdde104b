// zpe import: the export -> edit -> import round trip on the demo image, and
// bad input that writes nothing.
#include "analysis/area_map.h"
#include "playbook/open_rom.h"
#include "support/image_builder.h"
#include "support/process.h"

#include <filesystem>
#include <fstream>
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
    const std::string dry = r.out;
    r = d.zpe({"import", d.image, file});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    ASSERT_FALSE(r.out.empty());
    EXPECT_EQ(r.out.substr(0, r.out.size() - 1) + " (dry run: nothing written)\n", dry) << "the dry run plans the same write and says so";
    // The grown sequence moved: the four entries naming it are rewritten with it.
    EXPECT_EQ(r.out.find("Saved: 4 table entries, 1 sequence in place, 1 moved ("), 0u) << r.out;

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

// The sequence at `address` in an exported document.
json& sequenceAt(json& doc, const std::string& address) {
    for (json& s : doc["sequences"])
        if (s["address"] == address) return s;
    throw std::runtime_error("no sequence " + address);
}

TEST(CliImport, CommandsAreMatchedByWhereTheyWereReadSoLoopsKeepTheirTargets) {
    Demo d;
    json doc = d.exported();
    // A147: D7 08 14, FC FF E0 (A14A), 30, FE FC (a loop back to A14A).
    json& cmds = sequenceAt(doc, "A147")["commands"];
    cmds.erase(0);                                                     // shrinks in place
    json& grown = sequenceAt(doc, "A150")["commands"];                 // D7 00 28, FC FF E0 (A153), 38, FE FC
    grown.insert(grown.begin() + 2, json{{"code", "F3"}, {"data", {1}}});  // between the loop's target and the loop
    const std::string file = d.write("edit.json", doc.dump());
    auto r = d.zpe({"import", d.image, file});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto bytes = test::readFileBytes(d.image);
    auto at = [&](int32_t a, size_t n) {
        const auto o = static_cast<size_t>(offsetOfAddress(a));
        return std::vector<uint8_t>(bytes.begin() + static_cast<std::ptrdiff_t>(o), bytes.begin() + static_cast<std::ptrdiff_t>(o + n));
    };
    EXPECT_EQ(at(0xA147, 6), (std::vector<uint8_t>{0xFC, 0xFF, 0xE0, 0x33, 0xFE, 0xFC})) << r.out;
    const json after = d.exported();
    const std::string arrow = "A150 \u2192 ";
    ASSERT_NE(r.out.find(arrow), std::string::npos) << r.out;
    const std::string moved = r.out.substr(r.out.find(arrow) + arrow.size(), 4);
    const json& loop = sequenceAt(const_cast<json&>(after), moved)["commands"];
    EXPECT_EQ(loop[4]["text"], "Loop Back 6 bytes") << "back to the FC, over the F3";
    // The same file again is refused: it describes the image as it was.
    r = d.zpe({"import", d.image, file});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("edit.json was written from another state of demo.nes; export again"), std::string::npos) << r.err;
    // What is there now imports as no change, twice.
    for (int run = 0; run < 2; ++run) {
        r = d.zpe({"import", d.image, d.write("same.json", d.exported().dump())});
        EXPECT_EQ(r.out.find("Saved: 0 sequences in place, 0 moved"), 0u) << r.out;
    }
}

TEST(CliImport, AFileFromBeforeACopyIsRefusedUnlessForcedAndThenRestoresTheWholeSlot) {
    Demo d;
    const auto original = test::readFileBytes(d.image);
    const std::string file = d.write("before.json", d.exported().dump());
    ASSERT_EQ(d.zpe({"copy-slot", d.image, "0", "1"}).exitCode, 0);
    const auto copied = test::readFileBytes(d.image);
    auto r = d.zpe({"import", d.image, file});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(test::readFileBytes(d.image), copied);
    r = d.zpe({"import", d.image, file, "--force"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(test::readFileBytes(d.image), original) << "names, plays and graphics bytes all come back";
}

TEST(CliImport, BadInputNamesThePlaceAndWritesNothing) {
    Demo d;
    const auto original = test::readFileBytes(d.image);
    const json doc = d.exported();
    struct Case {
        std::function<void(json&)> edit;
        const char* says;
    };
    auto lastOf = [](json& j, const char* a) -> json& { return sequenceAt(j, a)["commands"].back(); };
    auto beforeEnd = [](json& j, const char* a, json c) {
        json& cmds = sequenceAt(j, a)["commands"];
        cmds.insert(cmds.end() - 1, std::move(c));
    };
    const std::vector<Case> cases{
        {[](json& j) { j["slots"].erase(63); }, "/slots: holds 63 entries, not 64"},
        {[](json& j) { j["slots"][3]["name"] = "A NAME MUCH TOO LONG"; }, "/slots/3/name: longer than the 15 bytes"},
        {[](json& j) { j["slots"][3]["name"] = "HB\nDIVE"; }, "/slots/3/name: holds a control character"},
        {[](json& j) { j["slots"][4]["name"] = "A\tB"; }, "/slots/4/name: holds a control character"},
        {[](json& j) { j["slots"][40]["offensivePlays"][2] = 256; }, "/slots/40/offensivePlays/2: 256 is outside 0 to 255"},
        {[](json& j) { j["slots"][40]["offensivePlays"][2] = 18446744073709551615ULL; }, "18446744073709551615 is outside 0 to 255"},
        {[](json& j) { j["slots"][2]["gfx"][5] = 300; }, "/slots/2/gfx/5: 300 is outside"},
        {[](json& j) { j["slots"][1]["formation"] = -9.3e18; }, "/slots/1/formation: a whole number beyond 64 bits is outside"},
        {[](json& j) { j["slots"][2]["group"] = "P4"; }, "/slots/2/group: cannot be changed"},
        {[](json& j) { j["slots"][1]["rusher"] = 3; }, "/slots/1/rusher"},
        {[](json& j) { j["plays"][5]["players"][0] = "B123"; }, "/plays/5/players/0: B123 is the address of no sequence"},
        {[](json& j) { j["formations"][0]["positions"][0] = "A136"; },
         "/formations/0/positions/0: a kick formation's position reads its sequence the kick way, and A136 is read the other way"},
        {[](json& j) {
             j["sequences"].push_back({{"new", "myLabel"}, {"commands", {{{"code", "D0"}, {"data", {240, 6}}}, {{"code", "EE"}, {"data", json::array()}}}}});
             j["formations"][0]["positions"][0] = {{"new", "myLabel"}};
         },
         "and new 1 (\"myLabel\" in the file) is read the other way"},
        {[](json& j) { j["sequences"][0]["commands"][0]["code"] = "35"; }, "/sequences/0/commands/0/code: not a command code"},
        {[](json& j) { j["sequences"][0]["commands"][0]["data"] = {1}; }, "/sequences/0/commands/0/data: takes 2 data values"},
        {[](json& j) { j["sequences"][0]["commands"].erase(j["sequences"][0]["commands"].size() - 1); },
         "the last command must end the sequence"},
        {[](json& j) { j["sequences"][0]["commands"][0]["address"] = "0000"; }, "0000 is the address of no command"},
        {[](json& j) { j["sequences"][0]["size"] = 999; }, "/sequences/0/size: is worked out"},
        {[&](json& j) { lastOf(j, "A13E")["data"] = {0x00, 0x10}; }, "leads to 1000, which is outside the sequence area"},
        {[&](json& j) { lastOf(j, "A13E")["data"] = {0xFF, 0xFF}; }, "FFFF"},
        {[&](json& j) { lastOf(j, "A13E")["data"] = {0x48, 0xA1}; }, "leads to A148, which is not the start of a command"},
        {[&](json& j) { beforeEnd(j, "A147", {{"code", "C2"}, {"data", json::array()}}); }, "C2 locks the game up"},
        {[&](json& j) { beforeEnd(j, "A147", {{"code", "EA"}, {"data", json::array()}}); }, "ends the sequence before its last"},
        // Every field is imported or refused: nothing is passed over in silence.
        {[](json& j) { j["slot"] = json::array(); }, "/slot: is not a field of this file's format"},
        {[](json& j) { j["slots"][7]["nmae"] = "X"; }, "/slots/7/nmae: is not a field"},
        {[](json& j) { j["plays"][3]["player"] = json::array(); }, "/plays/3/player: is not a field"},
        {[](json& j) { j["sequences"][2]["commands"][0]["cmd"] = "30"; }, "/sequences/2/commands/0/cmd: is not a field"},
        {[](json& j) { j["sequences"][2]["kick"] = true; }, "/sequences/2/kick: is given only for a new sequence"},
        {[](json& j) { j["sequences"][2]["continuesAt"] = "A000"; }, "/sequences/2/continuesAt: is given only for a new sequence"},
        {[](json& j) { j["slots"][40]["offensivePlays"][2] = 2.5; }, "/slots/40/offensivePlays/2: not a whole number"},
        {[](json& j) { j["slots"][40]["offensivePlays"][2] = 2.56e2; }, "/slots/40/offensivePlays/2: 256.0 is outside 0 to 255"},
        {[&](json& j) {
             json& jump = lastOf(j, "A13E");
             const int self = std::stoi(jump["address"].get<std::string>(), nullptr, 16);
             jump["data"] = {self & 0xFF, self >> 8};
         },
         "a jump to itself locks the game up"},
    };
    for (const Case& c : cases) {
        json j = doc;
        c.edit(j);
        const auto r = d.zpe({"import", d.image, d.write("bad.json", j.dump())});
        EXPECT_EQ(r.exitCode, 1) << c.says;
        EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
        EXPECT_EQ(test::readFileBytes(d.image), original) << c.says;
    }
    // Broken files are named with the place or the number as written, never the reader's own words.
    // A NUL byte is no end of the text: the whole file is JSON or it is refused.
    for (const auto& [text, says] : {std::pair{std::string("{\"slots\": ["), "broken.json: not JSON: the text breaks off or goes wrong at byte 12"},
                                     std::pair{std::string("{\"slots\": 1e400}"), "broken.json: not JSON this program can read: the number 1e400"},
                                     std::pair{doc.dump() + std::string(1, '\0') + "junk", "broken.json: not JSON: a NUL byte at byte "}}) {
        const auto r = d.zpe({"import", d.image, d.write("broken.json", text)});
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_NE(r.err.find(says), std::string::npos) << r.err;
        EXPECT_EQ(r.err.find("json.exception"), std::string::npos) << r.err;
    }
}

// A jump to itself that the image holds already (the game locks up there
// now) stays, as a lock-up code does: the image's own export imports, and
// other edits of the file go through; only a new one is refused.
TEST(CliImport, AJumpToItselfTheImageHoldsAlreadyStays) {
    Demo d;
    auto bytes = test::readFileBytes(d.image);
    const size_t at = 0x8010 + 0x500;  // A500, a free byte of the demo's area
    bytes[at] = 0xFF, bytes[at + 1] = 0x00, bytes[at + 2] = 0xA5;
    bytes[0x4410 + 6] = 0x00, bytes[0x4410 + 7] = 0xA5;  // play 0's WR1 runs it
    std::ofstream(d.image, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    json doc = d.exported();
    auto r = d.zpe({"import", d.image, d.write("same.json", doc.dump())});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out.find("Saved: 0 sequences in place, 0 moved"), 0u) << r.out;
    doc["slots"][3]["name"] = "LOOPS";
    r = d.zpe({"import", d.image, d.write("named.json", doc.dump())});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto after = test::readFileBytes(d.image);
    EXPECT_EQ(std::vector<uint8_t>(after.begin() + at, after.begin() + at + 3), (std::vector<uint8_t>{0xFF, 0x00, 0xA5}));
}

// A whole number is that number however it is written: 10, 1e1, 10.0; -0.0 is 0.
TEST(CliImport, WholeNumbersWrittenWithAPointOrAnExponentAreThoseNumbers) {
    Demo d;
    json j = d.exported();
    j["slots"][40]["offensivePlays"][2] = 1e1;
    j["slots"][40]["offensivePlays"][3] = -0.0;
    j["slots"][40]["formation"] = static_cast<double>(j["slots"][40]["formation"].get<int>());
    const auto r = d.zpe({"import", d.image, d.write("floats.json", j.dump())});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const json after = d.exported();
    EXPECT_EQ(after["slots"][40]["offensivePlays"][2], 10);
    EXPECT_EQ(after["slots"][40]["offensivePlays"][3], 0);
    EXPECT_EQ(after["slots"][40]["formation"], j["slots"][40]["formation"]);
}

TEST(CliImport, NewSequencesAreMadeFromTheFileAndNamedByEntries) {
    Demo d;
    json doc = d.exported();
    // Play 0's WR1 gets a route of his own: two steps, then Human Control going
    // on at the computer's logic after A106's Human Control.
    doc["sequences"].push_back({{"new", "wr-post"},
                                {"continuesAt", "A10A"},
                                {"commands", {{{"code", "D7"}, {"data", {0, 0xF0}}}, {{"code", "D7"}, {"data", {0x20, 0xF0}}},
                                              {{"code", "E4"}, {"data", json::array()}}}}});
    doc["plays"][0]["players"][3] = {{"new", "wr-post"}};
    auto r = d.zpe({"import", d.image, d.write("new.json", doc.dump())});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find(", 1 new at "), std::string::npos) << r.out;
    json after = d.exported();
    const std::string at = after["plays"][0]["players"][3];
    EXPECT_NE(at, "A150");
    const json& made = sequenceAt(after, at)["commands"];
    ASSERT_EQ(made.size(), 3u);
    EXPECT_EQ(made[1]["data"], json({0x20, 0xF0}));

    // Refused, nothing written: a new sequence no entry names; one going on nowhere.
    const auto bytes = test::readFileBytes(d.image);
    doc = d.exported();
    doc["sequences"].push_back({{"new", "spare"}, {"commands", {{{"code", "E4"}, {"data", json::array()}}}}});
    r = d.zpe({"import", d.image, d.write("spare.json", doc.dump())});
    EXPECT_NE(r.err.find("/new: no entry of the file names this new sequence"), std::string::npos) << r.err;
    doc["pointers"][0] = {{"new", "spare"}};
    r = d.zpe({"import", d.image, d.write("spare.json", doc.dump())});
    EXPECT_NE(r.err.find("/continuesAt: missing"), std::string::npos) << r.err;
    doc["sequences"].back()["commands"] = {{{"code", "FE"}, {"data", {5}}}};  // out of a sequence that has no place yet
    r = d.zpe({"import", d.image, d.write("spare.json", doc.dump())});
    EXPECT_NE(r.err.find("its relative jumps can only lead to its own commands"), std::string::npos) << r.err;
    // Refused by Save (far too long for any free run): the refusal also gives the file's label of the sequence it names.
    doc = d.exported();
    json steps = json::array();
    for (int i = 0; i < 3000; ++i) steps.push_back({{"code", "D7"}, {"data", {0, 0xF0}}});
    steps.push_back({{"code", "E4"}, {"data", json::array()}});
    doc["sequences"].push_back({{"new", "marathon"}, {"continuesAt", "A10A"}, {"commands", steps}});
    doc["plays"][0]["players"][3] = {{"new", "marathon"}};
    for (const char* dry : {"--dry-run", "-q"}) {
        r = d.zpe({"import", d.image, d.write("long.json", doc.dump()), dry});
        EXPECT_EQ(r.exitCode, 1) << r.err;
        EXPECT_NE(r.err.find("needs 9"), std::string::npos) << r.err;
        EXPECT_NE(r.err.find("(new 1: \"marathon\" in the file)"), std::string::npos) << r.err;
    }
    EXPECT_EQ(test::readFileBytes(d.image), bytes);
}

}  // namespace
}  // namespace zpe
