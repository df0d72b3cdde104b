// Play files: what the game runs from a play's entries, named so that another
// image can take it; the file is read back here as another program would.
#include "support/image_builder.h"
#include "support/process.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <set>

namespace zpe {
namespace {

using test::ImageBuilder;
using test::TempDir;
using json = nlohmann::json;

// Play 2: the QB places himself and hands over (Human Control) to the
// computer's logic at A004, a COM pass (three receivers, then A020) that
// loops back to itself;
// the RB branches into the middle of A020's sequence and then jumps out of
// the area; the FB runs nothing (FFFF). A040 is nobody's.
struct PlayImage {
    TempDir data;
    test::TempFile image = ImageBuilder()
                               .bytesAt(0xA000, {0xD0, 0xF0, 0x12, 0xE4, 0x92, 0x31, 0x42, 0x53, 0x20, 0xA0, 0xFE, 0xFA})
                               .bytesAt(0xA020, {0xD7, 0x01, 0x02, 0xC4, 0x00})
                               .bytesAt(0xA030, {0xD7, 0x03, 0x04, 0xC7, 0x23, 0xA0, 0xFF, 0x00, 0x90})
                               .bytesAt(0xA040, {0xD7, 0x05, 0x06, 0xC4, 0x00})
                               .bytesAt(0x9000, {0xC4, 0x00})
                               .play(2, {0xA000, 0xA030, 0xFFFF})
                               .pointer(0, 0xA040)
                               .formation(4, {0xA040})
                               .slot(5, {"FIVE", 4, {2, 0, 0, 0, 0, 0, 0, 0}, {}})
                               .write();
    PlayImage() { data.writeText("forms.txt", test::formsText()); }
    test::ProcessResult zpe(std::vector<std::string> args) const {
        args.insert(args.begin(), {"--data", data.path()});
        return test::runProcess(ZPE_BIN, args);
    }
};

TEST(PlayFile, HoldsEveryCommandThePlayRunsInsideTheAreaAndWhatEachLeadsTo) {
    PlayImage t;
    const auto r = t.zpe({"export-play", t.image.path(), "--play", "2", "--out", "-"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const json file = json::parse(r.out);
    EXPECT_EQ(file["format"], "zpe play");
    EXPECT_EQ(file["version"], 1);
    EXPECT_EQ(file["source"]["play"], 2);
    EXPECT_EQ(file["source"]["fingerprint"]["size"], t.image.read().size());
    EXPECT_FALSE(file.contains("formation")) << "a play alone has no formation";

    EXPECT_EQ(file["players"][0], json::parse(R"({"position": "QB", "entry": "A000"})"));
    EXPECT_EQ(file["players"][1]["entry"], "A030");
    EXPECT_TRUE(file["players"][2]["entry"].is_null()) << "FFFF: the FB runs nothing";

    std::map<std::string, json> commands;
    for (const json& c : file["commands"]) commands[c["id"]] = c;
    const std::set<std::string> ids = [&] {
        std::set<std::string> s;
        for (const auto& [id, c] : commands) s.insert(id);
        return s;
    }();
    EXPECT_EQ(ids, (std::set<std::string>{"A000", "A003", "A004", "A00A", "A020", "A023", "A030", "A033", "A036"}))
        << "the computer's logic after Human Control, the COM pass target, the branch target; not A040";
    EXPECT_EQ(commands["A003"]["next"], "A004") << "the game goes on after Human Control";
    EXPECT_EQ(commands["A004"]["bytes"], "92 31 42 53 20 A0");
    EXPECT_EQ(commands["A004"]["field"], json::parse(R"({"at": 4, "kind": "word", "to": "A020"})"));
    EXPECT_EQ(commands["A00A"]["field"], json::parse(R"({"at": 1, "kind": "relative", "to": "A004"})"));
    EXPECT_TRUE(commands["A00A"]["next"].is_null()) << "a jump does not go on";
    EXPECT_EQ(commands["A033"]["field"]["to"], "A023") << "a branch into the middle of another sequence";
    EXPECT_EQ(commands["A033"]["next"], "A036");
    EXPECT_EQ(commands["A036"]["field"]["to"], json::parse(R"({"outside": "9000"})")) << "the game's own code stays an address";
    EXPECT_TRUE(commands["A023"]["next"].is_null());
}

TEST(PlayFile, FromASlotCarriesTheFormationAndRefusesWhatItCannotWrite) {
    PlayImage t;
    test::TempDir out;
    const std::string file = out.file("five.json");
    auto r = t.zpe({"export-play", t.image.path(), "--slot", "5", "--out", file});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "wrote play 2 (2) of slot 5 (R1) with its formation to " + file + "\n");
    const json play = json::parse(test::readFileText(file));
    EXPECT_EQ(play["source"]["slot"], 5);
    EXPECT_EQ(play["formation"]["name"], "FORM 4");
    EXPECT_EQ(play["formation"]["positions"][0]["entry"], "A040");
    bool formationCommand = false;
    for (const json& c : play["commands"]) formationCommand |= c["id"] == "A040";
    EXPECT_TRUE(formationCommand) << "the formation's commands are in the file too";

    for (const std::vector<std::string>& bad : std::vector<std::vector<std::string>>{
             {"--play", "2", "--slot", "5"}, {"--slot-play", "2", "--play", "2"}, {"--play", "116"}, {"--slot", "5"}}) {
        std::vector<std::string> args{"export-play", t.image.path()};
        args.insert(args.end(), bad.begin(), bad.end());
        if (bad.back() != "5" || bad.size() != 2) args.insert(args.end(), {"--out", out.file("x.json")});
        EXPECT_EQ(t.zpe(args).exitCode, 2) << bad.front() << " " << bad.back();
    }
    EXPECT_EQ(t.zpe({"export-play", t.image.path(), "--play", "2", "--out", t.image.path()}).exitCode, 1) << "never over the image";
}

// Another image, laid out otherwise: play 5's QB hands over to the same
// computer's logic as play 2's of PlayImage, at other addresses.
test::TempFile otherImage() {
    return ImageBuilder()
        .bytesAt(0xA100, {0xD0, 0xF0, 0x30, 0xE4, 0x92, 0x31, 0x42, 0x53, 0x20, 0xA1, 0xFE, 0xFA})
        .bytesAt(0xA120, {0xD7, 0x01, 0x02, 0xC4, 0x00})
        .play(5, {0xA100})
        .write("target.nes");
}

// The commands of a play file with what differs between images left out:
// jumps (ways on, written where a layout needs them), the bytes of address
// fields (written for where their targets stand) and how often one command
// stands in the image (the importing image may share one); sorted.
std::vector<std::string> runCommands(const json& file) {
    std::vector<std::string> out;
    for (const json& c : file["commands"]) {
        std::string bytes = c["bytes"];
        if (bytes.rfind("FE", 0) == 0 || bytes.rfind("FF", 0) == 0) continue;
        if (c.contains("field")) {
            const int at = c["field"]["at"];
            const int count = c["field"]["kind"] == "relative" ? 1 : 2;
            for (int k = at; k < at + count; ++k) bytes.replace(static_cast<size_t>(3 * k), 2, "..");
        }
        out.push_back(bytes);
    }
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
    return out;
}

// Exported from one image, imported into another laid out otherwise at
// another play number: the other image then runs the same commands from the
// play (a dry run first, which writes nothing); a file of a later format, or
// no play file at all, is refused in words, the image untouched.
TEST(PlayFile, ImportPlayCarriesAPlayIntoAnotherImage) {
    PlayImage t;
    test::TempDir out;
    const std::string file = out.file("two.json");
    ASSERT_EQ(t.zpe({"export-play", t.image.path(), "--play", "2", "--out", file}).exitCode, 0);
    const test::TempFile target = otherImage();
    const std::vector<uint8_t> before = target.read();
    auto r = t.zpe({"import-play", target.path(), file, "--play", "7", "--dry-run"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out.rfind("play 7 (7) now runs the imported play: 4 commands copied", 0), 0u) << r.out;
    EXPECT_EQ(target.read(), before) << "a dry run writes nothing";
    const std::string dry = r.out;
    r = t.zpe({"import-play", target.path(), file, "--play", "7"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out.substr(0, r.out.size() - 1) + " (dry run: nothing written)\n", dry) << "the dry run says the real run's words, and that it wrote nothing";
    r = t.zpe({"export-play", target.path(), "--play", "7", "--out", "-"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(runCommands(json::parse(r.out)), runCommands(json::parse(test::readFileText(file))));

    json newer = json::parse(test::readFileText(file));
    newer["version"] = 2;
    out.writeText("newer.json", newer.dump());
    out.writeText("deep.json", std::string(100000, '['));
    out.writeText("other.json", R"({"format": "zpe playbook", "version": 1})");
    // Two entries moved by hand, each with its label: the labels no longer agree with the places.
    json swapped = json::parse(test::readFileText(file));
    std::swap(swapped["players"][0], swapped["players"][1]);
    out.writeText("swapped.json", swapped.dump());
    const std::vector<uint8_t> imported = target.read();
    for (const auto& [name, says] : {std::pair{"newer.json", "newer"}, {"deep.json", "nests"}, {"other.json", "not a play file"},
                                     {"swapped.json", "/players/0/position: names \"RB\", but this place in the list is QB's"}}) {
        r = t.zpe({"import-play", target.path(), out.file(name), "--play", "7"});
        EXPECT_EQ(r.exitCode, 1) << name;
        EXPECT_NE(r.err.find(says), std::string::npos) << r.err;
    }
    EXPECT_EQ(target.read(), imported);
    EXPECT_EQ(t.zpe({"import-play", target.path(), file}).exitCode, 2) << "the play it goes to is needed";
}

// A slot exported from one image and imported into another: the slot holds
// the name, graphics and defensive plays it had, its formation and plays run
// the same commands; a running slot does not go into a passing one.
TEST(SlotFile, ImportSlotCarriesASlotIntoAnotherImage) {
    PlayImage t;
    test::TempDir out;
    const std::string file = out.file("five.json");
    auto r = t.zpe({"export-slot", t.image.path(), "--slot", "5", "--out", file});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const json slot = json::parse(test::readFileText(file));
    EXPECT_EQ(slot["format"], "zpe slot");
    EXPECT_EQ(slot["slot"]["name"], "FIVE");
    EXPECT_EQ(slot["slot"]["kind"], "running");
    EXPECT_EQ(slot["slot"]["offensivePlays"], json::parse("[2, 0, 0, 0, 0, 0, 0, 0]"));
    EXPECT_EQ(slot["plays"].size(), 2u) << "play 2 and play 0, each once";
    EXPECT_EQ(slot["formation"]["positions"][0]["entry"], "A040");

    const test::TempFile target = otherImage();
    r = t.zpe({"import-slot", target.path(), file, "--slot", "9"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out.rfind("slot 9 (R2) now holds FIVE: formation ", 0), 0u) << r.out;
    r = t.zpe({"export-slot", target.path(), "--slot", "9", "--out", "-"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const json back = json::parse(r.out);
    EXPECT_EQ(back["slot"]["name"], "FIVE");
    EXPECT_EQ(back["slot"]["graphics"], slot["slot"]["graphics"]);
    EXPECT_EQ(back["slot"]["defensivePlays"], slot["slot"]["defensivePlays"]);
    EXPECT_EQ(runCommands(back), runCommands(slot));

    const std::vector<uint8_t> before = target.read();
    r = t.zpe({"import-slot", target.path(), file, "--slot", "40"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("do not mix"), std::string::npos) << r.err;
    json broken = slot;
    broken["slot"]["offensivePlays"][3] = 77;
    out.writeText("broken.json", broken.dump());
    r = t.zpe({"import-slot", target.path(), out.file("broken.json"), "--slot", "9"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("/slot/offensivePlays/3"), std::string::npos) << r.err;
    EXPECT_EQ(target.read(), before);
    // A name longer than a slot holds is refused, not cut.
    json named = slot;
    named["slot"]["name"] = "A NAME MUCH TOO LONG";
    out.writeText("named.json", named.dump());
    r = t.zpe({"import-slot", target.path(), out.file("named.json"), "--slot", "9"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("/slot/name: longer than the 15 bytes a slot name holds"), std::string::npos) << r.err;
    EXPECT_EQ(target.read(), before);
    // A line break in a name is refused as zpe import refuses it (it would split every row that lists the slot).
    named["slot"]["name"] = "SWEEP\nRIGHT";
    out.writeText("named.json", named.dump());
    r = t.zpe({"import-slot", target.path(), out.file("named.json"), "--slot", "9"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("/slot/name: holds a control character"), std::string::npos) << r.err;
    // JSON text holds no NUL byte: the file does not end at one, it is refused.
    std::string text = slot.dump() + std::string(1, '\0') + "junk";
    out.writeText("nul.json", text);
    r = t.zpe({"import-slot", target.path(), out.file("nul.json"), "--slot", "9"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("not JSON: a NUL byte at byte " + std::to_string(slot.dump().size())), std::string::npos) << r.err;
    EXPECT_EQ(target.read(), before);
}

// The whole playbook exported and imported into another image: every slot
// holds the source's slot of its number; the file's format is its own (a
// slot file is no playbook file); a dry run writes nothing.
TEST(PlaybookFile, ImportPlaybookCarriesEverySlot) {
    PlayImage t;
    test::TempDir out;
    const std::string file = out.file("book.json");
    auto r = t.zpe({"export-playbook", t.image.path(), "--out", file});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const json book = json::parse(test::readFileText(file));
    EXPECT_EQ(book["format"], "zpe playbook");
    EXPECT_EQ(book["slots"].size(), 64u);
    EXPECT_EQ(book["slots"][5]["formation"], 4);

    const test::TempFile target = otherImage();
    const std::vector<uint8_t> before = target.read();
    r = t.zpe({"import-playbook", target.path(), file, "--dry-run"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out.rfind("64 slots imported: ", 0), 0u) << r.out;
    EXPECT_EQ(target.read(), before);
    ASSERT_EQ(t.zpe({"import-playbook", target.path(), file}).exitCode, 0);
    r = t.zpe({"export-playbook", target.path(), "--out", "-"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const json back = json::parse(r.out);
    for (size_t s = 0; s < 64; ++s) EXPECT_EQ(back["slots"][s]["name"], book["slots"][s]["name"]) << s;
    EXPECT_EQ(runCommands(back), runCommands(book));

    // A formation listed twice is refused, as a play listed twice is: which of them a slot means is not known.
    json twice = book;
    twice["formations"].push_back(twice["formations"][0]);
    out.writeText("twice.json", twice.dump());
    const std::vector<uint8_t> imported = target.read();
    r = t.zpe({"import-playbook", target.path(), out.file("twice.json")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("is listed twice"), std::string::npos) << r.err;
    EXPECT_EQ(target.read(), imported);

    ASSERT_EQ(t.zpe({"export-slot", t.image.path(), "--slot", "5", "--out", out.file("slot.json")}).exitCode, 0);
    r = t.zpe({"import-playbook", target.path(), out.file("slot.json")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("not a playbook file"), std::string::npos) << r.err;
}

}  // namespace
}  // namespace zpe
