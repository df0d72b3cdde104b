#include "support/image_builder.h"
#include "support/process.h"

#include <fstream>
#include <gtest/gtest.h>
#include <QImage>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

namespace zpe {
namespace {

using test::ImageBuilder;
using test::runProcess;
using test::TempDir;

// A data folder with 22 formation names, and an image with a few sequences.
struct Fixture {
    TempDir data;
    test::TempFile image;
    Fixture()
        : image(ImageBuilder()
                    .bytesAt(0xA000, {0xD0, 0xF0, 0x12, 0xE4})
                    .bytesAt(0xA004, {1, 2, 3})
                    .bytesAt(0xA007, {0xD7, 0x00, 0x10, 0xFE, 0x10})  // -> A01A
                    .bytesAt(0xA01A, {0x30, 0xEE})
                    .formation(4, {0xA000})
                    .pointer(0, 0xA007)
                    .play(0, {0xA007})
                    .slot(0, {"RUN ZERO", 4, {0, 0, 0, 0, 0, 0, 0, 0}, {1, 2, 3, 4, 5, 6, 7, 8}})
                    .slot(9, {"RUN NINE", 4})
                    .slot(10, {"TAB\tLF\n\\", 4})
                    .slot(40, {"PASS", 4, {}, {}})
                    .slot(63, {"\xC9LAN", 4})
                    .write()) {
        data.writeText("forms.txt", test::formsText());
    }
    test::ProcessResult zpe(std::vector<std::string> args, const std::string& cwd = "") const {
        args.insert(args.begin(), {"--data", data.path()});
        return runProcess(ZPE_BIN, args, cwd);
    }
};

// A command line that names its verb is read by that verb's grammar alone;
// whatever it says (help, errors, the usage after a refusal) is what the
// whole grammar says, also where a word before the verb is a verb's name.
TEST(CliVerbs, OneVerbsGrammarReadsACommandLineAsTheWholeOneDoes) {
    Fixture f;
    TempDir cwd;
    std::filesystem::create_directory(cwd.file("json"));
    std::filesystem::copy_file(f.data.file("forms.txt"), cwd.file("json/forms.txt"));
    const std::string lists = f.zpe({"lists", f.image.path()}).out;
    ASSERT_FALSE(lists.empty());
    auto r = runProcess(ZPE_BIN, {"--data", "json", "lists", f.image.path()}, cwd.path());
    EXPECT_EQ(r.out, lists) << r.err;  // "json" there is the folder, not the verb
    r = runProcess(ZPE_BIN, {"-q", "--data=json", "lists", f.image.path()}, cwd.path());
    EXPECT_EQ(r.out, lists) << r.err;

    r = f.zpe({"import", "--help"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.out.find("--dry-run"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("render"), std::string::npos) << "the verb's help, not the list of verbs";
    for (const std::vector<std::string>& wrong : std::vector<std::vector<std::string>>{
             {"lists", f.image.path(), "json"}, {"lists", f.image.path(), "--frob"}, {"json", "--dry-run", f.image.path()},
             {"nosuch", "--version", "render", f.image.path(), "--out"}, {f.image.path(), "render", "--version", "--out"}}) {
        r = f.zpe(wrong);
        EXPECT_EQ(r.exitCode, 2) << wrong.front() << " ... " << wrong.back() << "\n" << r.out;
        EXPECT_NE(r.err.find("Usage:"), std::string::npos) << r.err;
    }
    r = f.zpe({"--help"});
    for (const char* verb : {"decode", "import", "render", "move-point"}) EXPECT_NE(r.out.find(verb), std::string::npos) << verb;
    // A refusal of the verb's own (no entry named) is followed by the verb's usage, as before.
    r = f.zpe({"fork", f.image.path()});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("--pointer"), std::string::npos) << r.err;
}

TEST(CliVerbs, OptionsAnywhereStandardOutputHexSlotsAndPatches) {
    Fixture f;
    TempDir out;
    const std::string original = out.file("original.nes");
    std::filesystem::copy_file(f.image.path(), original);
    auto r = runProcess(ZPE_BIN, {"lists", f.image.path(), "--numbered", "--data", f.data.path()}, out.path());
    EXPECT_NE(r.out.find("\n## Play Slots\n0\tRUN ZERO\tR1\t"), std::string::npos) << r.err;
    EXPECT_FALSE(std::filesystem::exists(out.file("cpu.txt"))) << "only the cpu verb writes the gap listing";
    EXPECT_EQ(f.zpe({"cpu", f.image.path(), "-"}).out, "\r\nA004: 01 02 03 \r\n");
    r = f.zpe({"copy-slot", f.image.path(), "0x00", "0x09"});
    EXPECT_EQ(r.out.find("copied slot 0 over slot 9; "), 0u) << r.err;
    r = f.zpe({"diff", original, f.image.path(), "--ips", out.file("p.ips")});
    EXPECT_NE(r.out.find("slot 9: name \"RUN NINE\" -> \"RUN ZERO\"\n"), std::string::npos) << r.out;
    const std::string source = out.file("source.nes");
    std::filesystem::copy_file(original, source);
    ASSERT_EQ(f.zpe({"diff", original, f.image.path(), "--bps", out.file("p.bps")}).exitCode, 0);
    ASSERT_EQ(f.zpe({"-q", "patch", original, out.file("p.ips")}).exitCode, 0);
    EXPECT_EQ(test::readFileBytes(original), f.image.read());
    // A BPS patch knows its image: applied once it lands, applied to the result it is refused.
    ASSERT_EQ(f.zpe({"-q", "patch", source, out.file("p.bps")}).exitCode, 0);
    EXPECT_EQ(test::readFileBytes(source), f.image.read());
    r = f.zpe({"patch", source, out.file("p.bps")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("p.bps: this patch is for another image: source CRC32 "), std::string::npos) << r.err;
    EXPECT_EQ(test::readFileBytes(source), f.image.read());
    // A patch whose result would not open (slot 0 naming formation 0x60) is refused unless forced.
    const int32_t at = kOffSlotTableOffset + kSlotNameLength;  // the formation byte follows the name
    const std::string ips = std::string("PATCH") + static_cast<char>(at >> 16) + static_cast<char>((at >> 8) & 0xFF) +
                            static_cast<char>(at & 0xFF) + std::string("\0\x01\x60", 3) + "EOF";
    out.writeText("bad.ips", ips);
    r = f.zpe({"patch", original, out.file("bad.ips")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("the patched image would not open"), std::string::npos) << r.err;
    EXPECT_EQ(test::readFileBytes(original), f.image.read());
    EXPECT_EQ(f.zpe({"-q", "patch", original, out.file("bad.ips"), "--force"}).exitCode, 0);
    r = f.zpe({"render", f.image.path(), "--slot", "0", "--play", "2", "--scale", "2", "--out", "-"});
    EXPECT_EQ(QImage::fromData(QByteArray::fromStdString(r.out)).size(), QSize(658, 434));
    r = f.zpe({"render", f.image.path(), "--slot", "0", "--scale", "0", "--out", "-"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("--scale is a whole number from 1 up, not 0"), std::string::npos) << r.err;
}

// The same image without its 16-byte header: the same lists, saved as it is.
TEST(CliHeaderless, ListsEqualTheHeadedOnesAndSavesKeepTheForm) {
    Fixture f;
    TempDir out;
    const std::vector<uint8_t> headed = f.image.read();
    const std::string bare = out.file("bare.nes");
    {
        std::ofstream(bare, std::ios::binary).write(reinterpret_cast<const char*>(headed.data()) + 16, static_cast<std::streamsize>(headed.size() - 16));
    }
    auto r = f.zpe({"lists", bare});
    EXPECT_EQ(r.out, f.zpe({"lists", f.image.path()}).out);
    EXPECT_NE(r.err.find("bare.nes: headerless image"), std::string::npos) << r.err;
    ASSERT_EQ(f.zpe({"-q", "swap-slot", bare, "0", "9"}).exitCode, 0);
    ASSERT_EQ(f.zpe({"-q", "swap-slot", f.image.path(), "0", "9"}).exitCode, 0);
    const std::vector<uint8_t> after = f.image.read();
    EXPECT_EQ(test::readFileBytes(bare), std::vector<uint8_t>(after.begin() + 16, after.end())) << "no header added";
    // A headerless file too short for the tables is measured as it is, not with the header the open puts in front.
    const std::string bank = out.file("bank.nes");
    std::ofstream(bank, std::ios::binary).write(reinterpret_cast<const char*>(headed.data()) + 16, 8192);
    r = f.zpe({"lists", bank});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("too short (8192 bytes;"), std::string::npos) << r.err;
}

// The diagram as data: the points of slot 0's play, and one moved by changing only its command's data bytes.
// WR1 runs A010 and loops back into it at A013: the command there draws a
// point on the way and again on every turn of the loop, and the editor reads
// the loop as a sequence of its own. Moving the loop's point changes that one
// command where the game runs it (both sequences show it) and says so.
TEST(CliPoints, AMovedCommandTheLoopRunsAgainChangesWhereTheGameRunsIt) {
    const test::TempFile image = ImageBuilder()
                                     .bytesAt(0xA000, {0xD0, 0xF0, 0x12, 0xEE})
                                     .bytesAt(0xA010, {0xD7, 0x01, 0x02, 0xD7, 0x03, 0x04, 0xFF, 0x13, 0xA0})
                                     .formation(4, {0xA000})
                                     .play(0, {0xA010})
                                     .slot(0, {"RUN", 4})
                                     .write();
    auto zpe = [&](std::vector<std::string> args) { return runProcess(ZPE_BIN, args); };
    auto r = zpe({"points", image.path(), "--slot", "0", "--json"});
    const nlohmann::json qb = nlohmann::json::parse(r.out)["players"][0];
    ASSERT_GE(qb.size(), 4u) << r.out;
    ASSERT_EQ(qb[3]["sequence"], "A013") << r.out;
    const std::string to = std::to_string(qb[3]["x"].get<int>() + 4) + "," + std::to_string(qb[3]["y"].get<int>());
    const auto before = image.read();
    r = zpe({"move-point", image.path(), "--slot", "0", "--player", "QB", "--point", "4", "--to", to});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("It is also A010 command 1, which changes with it. Saved: 2 sequences in place, 0 moved, 0 references"),
              std::string::npos)
        << r.out;
    const auto after = image.read();
    std::vector<size_t> changed;
    for (size_t i = 0; i < after.size(); ++i)
        if (after[i] != before[i]) changed.push_back(i);
    EXPECT_EQ(changed, std::vector<size_t>{static_cast<size_t>(offsetOfAddress(0xA015))}) << "the one byte the game runs there";
}

TEST(CliPoints, ListedAsJsonAndMovedByTheirDataBytesAlone) {
    // QB: placed by A000, then A010 moves him (Human Control, then the computer's end at A014).
    const test::TempFile image = ImageBuilder()
                                     .bytesAt(0xA000, {0xD0, 0xF0, 0x12, 0xEE})
                                     .bytesAt(0xA010, {0xD7, 0x00, 0x10, 0xE4, 0xC2})
                                     .formation(4, {0xA000})
                                     .play(0, {0xA010})
                                     .slot(0, {"RUN", 4})
                                     .write();
    auto zpe = [&](std::vector<std::string> args) { return runProcess(ZPE_BIN, args); };  // the shipped data files
    auto r = zpe({"points", image.path(), "--slot", "0", "--json"});
    const nlohmann::json points = nlohmann::json::parse(r.out);
    ASSERT_EQ(points["players"].size(), 11u);
    const nlohmann::json& qb = points["players"][0];
    ASSERT_EQ(qb.size(), 2u) << r.out;
    EXPECT_EQ(qb[1]["sequence"], "A010");
    EXPECT_EQ(qb[1]["command"], 0);
    const int x = qb[1]["x"].get<int>() + 5, y = qb[1]["y"].get<int>() - 3;
    const auto before = image.read();
    const std::string to = std::to_string(x) + "," + std::to_string(y);
    // The dry run plans and checks the whole write: what it says is what the real run writes.
    r = zpe({"move-point", image.path(), "--slot", "0", "--player", "QB", "--point", "2", "--to", to, "--dry-run"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out.find("player QB point 2 (A010 command 0, Move Relative) now at " + to + ". Saved: 1 sequence in place, 0 moved"), 0u)
        << r.out;
    EXPECT_NE(r.out.find("(dry run: nothing written)"), std::string::npos);
    EXPECT_EQ(image.read(), before);
    const std::string dry = r.out;
    r = zpe({"move-point", image.path(), "--slot", "0", "--player", "QB", "--point", "2", "--to", to});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    // The real run says what the dry run said, without the dry run's last words.
    ASSERT_FALSE(r.out.empty());
    EXPECT_EQ(r.out.substr(0, r.out.size() - 1) + " (dry run: nothing written)\n", dry);
    const auto after = image.read();
    std::vector<size_t> changed;
    for (size_t i = 0; i < after.size(); ++i)
        if (after[i] != before[i]) changed.push_back(i);
    const auto data = static_cast<size_t>(offsetOfAddress(0xA011));
    EXPECT_EQ(changed, (std::vector<size_t>{data, data + 1}));
    EXPECT_EQ(after[data], 0xFD);      // 3 up
    EXPECT_EQ(after[data + 1], 0x15);  // 0x10 + 5 to the right
    r = zpe({"move-point", image.path(), "--slot", "0", "--player", "0", "--point", "2", "--to", "9999,0"});
    EXPECT_NE(r.err.find("cannot reach 9999,0; the nearest it can reach is "), std::string::npos) << r.err;
    EXPECT_EQ(image.read(), after);
    r = zpe({"move-point", image.path(), "--slot", "0", "--player", "0", "--point", "2", "--to=-40000,0"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("is a number from -32767 to 32767 (decimal, or hexadecimal after 0x), not '-40000'"), std::string::npos)
        << "a refused number is named as typed: " << r.err;
}

TEST(CliSlots, CopyAndSwapThenSafeSave) {
    Fixture f;
    auto r = f.zpe({"copy-slot", f.image.path(), "0", "9"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto bytes = f.image.read();
    EXPECT_EQ(std::string(bytes.begin() + kOffSlotTableOffset + 9 * 24, bytes.begin() + kOffSlotTableOffset + 9 * 24 + 8),
              "RUN ZERO");
    EXPECT_EQ(bytes[kDefSlotTableOffset + 9 * 8 + 0], 2) << "groups R1 and R2 exchange dPlay 0 and 1";
    EXPECT_EQ(bytes[kDefSlotTableOffset + 9 * 8 + 1], 1);

    r = f.zpe({"swap-slot", f.image.path(), "40", "63"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto swapped = f.image.read();
    EXPECT_EQ(swapped[kOffSlotTableOffset + 40 * 24], 0xC9) << "8-bit names survive";
}

TEST(CliFullSave, RelaysAndReportsFailures) {
    Fixture f;
    auto r = f.zpe({"full-save", f.image.path()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto bytes = f.image.read();
    // A000 (4 bytes), then A007's sequence with its jump made absolute to the next.
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + kSequenceAreaOffset, bytes.begin() + kSequenceAreaOffset + 12),
              (std::vector<uint8_t>{0xD0, 0xF0, 0x12, 0xE4, 0xD7, 0x00, 0x10, 0xFF, 0x0A, 0xA0, 0x30, 0xEE}));

    ::chmod(f.image.path().c_str(), 0444);
    r = f.zpe({"full-save", f.image.path()});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find(f.image.path()), std::string::npos);
    EXPECT_NE(r.err.find("read-only"), std::string::npos);
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << "one line";
}

TEST(CliExportMask, WritesRunsAtGameAddresses) {
    Fixture f;
    TempDir out;
    const auto r = f.zpe({"export-mask", f.image.path(), out.file("mask.bin")});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto mask = test::readFileBytes(out.file("mask.bin"));
    ASSERT_EQ(mask.size(), 0xA01Cu);
    EXPECT_EQ(mask[0xA003], 0xFF);
    EXPECT_EQ(mask[0xA004], 0x00) << "gap bytes are not part of a sequence";
    EXPECT_EQ(mask[0xA007], 0xFF);
}

TEST(CliJson, WholePlaybook) {
    Fixture f;
    const auto r = f.zpe({"json", f.image.path()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["formations"][4]["positions"][0], "A000");
    EXPECT_TRUE(j["plays"][0]["players"][1].is_null());
    EXPECT_EQ(j["slots"][63]["name"], "\xC3\x89LAN") << "8-bit names map to Latin-1 code points";
    const std::string lists = f.zpe({"lists", f.image.path(), "--numbered"}).out;
    EXPECT_NE(lists.find("\n63\t\xC3\x89LAN"), std::string::npos) << "zpe lists writes the same UTF-8 text";
    EXPECT_NE(lists.find("\n10\tTAB\\x09LF\\x0A\\\\\t"), std::string::npos)
        << "a control character in a name the image holds is written \\xHH, never splitting the row";
    EXPECT_EQ(j["slots"][0]["defensivePlays"][7], 8);
    EXPECT_TRUE(j["slots"][40]["rusher"].is_null());
    ASSERT_EQ(j["sequences"].size(), 3u);
    const auto& s = j["sequences"][1];
    EXPECT_EQ(s["next"], "A01A");
    EXPECT_EQ(s["commands"][0]["code"], "D7");
    EXPECT_EQ(s["commands"][0]["data"], nlohmann::json::array({0, 16}));
    EXPECT_EQ(s["commands"][0]["text"], "Move Relative (R-10)");
}

TEST(CliCheck, ReportsTheAreaMapAndTraces) {
    Fixture f;
    auto r = f.zpe({"check", f.image.path(), "--json"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto j = nlohmann::json::parse(r.out);
    // Editor: A000-A003, A007-A00B, A01A-A01B; the game runs on after A003's E4 (01 02 03 D7...).
    EXPECT_EQ(j["area"]["editorBytes"], 11);
    EXPECT_EQ(j["area"]["gameOnlyBytes"], j["fullSave"]["bytesLost"]);
    EXPECT_EQ(j["area"]["gameBytes"].get<int>(), j["area"]["editorBytes"].get<int>() + j["area"]["gameOnlyBytes"].get<int>());
    EXPECT_EQ(j["area"]["free"].back(), (nlohmann::json{{"start", "A01F"}, {"end", "BFFC"}}));
    EXPECT_EQ(j["fullSave"]["strandedEntries"][0], (nlohmann::json{{"from", "pointer 1"}, {"target", "BFFD"}}));
    EXPECT_TRUE(j["outside"].empty());
    EXPECT_TRUE(j["readsDifferently"].empty());

    r = f.zpe({"check", f.image.path()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out.find("Sequence area A000-BFFF (8192 bytes)\n  11 bytes in editor sequences\n"), 0u);

    r = f.zpe({"trace", f.image.path(), "A000"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    // The game goes on after Human Control and reads the gap bytes out of step with A007's commands.
    EXPECT_EQ(r.out, "A000: D0(F0 12)\nA003: E4\nA004: 0(1 2)\nA006: 0(3 D7)\nA008: 0(0 10)\nA00A: +R:A01A\n"
                     "A01A: Block RE\nA01B: EE\nA01C: +A:FFFF\n");
    EXPECT_EQ(f.zpe({"trace", f.image.path(), "8000"}).exitCode, 2);
    EXPECT_EQ(f.zpe({"check", "/nonexistent.nes"}).exitCode, 1);
}

TEST(CliOpenFailures, SayWhyOnOneLine) {
    Fixture f;
    TempDir empty;
    auto r = runProcess(ZPE_BIN, {"--data", empty.path(), "lists", f.image.path()});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("forms.txt"), std::string::npos);
    const auto blank = ImageBuilder().write();
    r = f.zpe({"json", blank.path()});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("no valid sequence"), std::string::npos);
}

}  // namespace
}  // namespace zpe

namespace zpe {
namespace {

TEST(CliCompact, DryRunWritesNothingAndASecondRunChangesNothing) {
    Fixture f;
    const auto original = f.image.read();
    auto r = f.zpe({"compact", f.image.path(), "--dry-run"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out.find("Compacted: "), 0u) << r.out;
    EXPECT_EQ(f.image.read(), original);
    const std::string dry = r.out;
    r = f.zpe({"compact", f.image.path()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out.substr(0, r.out.size() - 1) + " (dry run: nothing written)\n", dry) << "the dry run says the real run's words, and that it wrote nothing";
    const auto once = f.image.read();
    EXPECT_NE(once, original);
    const std::string lists = f.zpe({"lists", f.image.path()}).out;
    EXPECT_NE(lists.find("A007-A00B\tMove Relative (R-10); +R:A00C; \nA00C-A00D\tBlock RE; "), std::string::npos) << lists;
    ASSERT_EQ(f.zpe({"compact", f.image.path()}).exitCode, 0);
    EXPECT_EQ(f.image.read(), once);
}

}  // namespace
}  // namespace zpe

namespace zpe {
namespace {

TEST(CliRefsAndFork, JsonOfWhoUsesASequenceAndACopyForOnePlayer) {
    Fixture f;
    test::TempDir out;
    const std::string before = out.file("before.nes");
    std::filesystem::copy_file(f.image.path(), before);
    const auto r = f.zpe({"refs", f.image.path(), "A007", "--json"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(nlohmann::json::parse(r.out),
              nlohmann::json::parse(R"({"entries": ["pointer 0", "play 0 (0) QB"], "fields": []})"));
    const auto fork = f.zpe({"fork", f.image.path(), "--play", "0", "--player", "0"});
    ASSERT_EQ(fork.exitCode, 0) << fork.err;
    EXPECT_EQ(fork.out.find("play 0 (0) QB now runs its own copy of A007 at "), 0u) << fork.out;
    // diff names the entry as refs, fork and the window do.
    const auto d = f.zpe({"diff", before, f.image.path()});
    EXPECT_NE(d.out.find("play 0 (0) QB: A007 -> "), std::string::npos) << d.out;
    EXPECT_EQ(nlohmann::json::parse(f.zpe({"refs", f.image.path(), "A007", "--json"}).out)["entries"],
              nlohmann::json::parse(R"(["pointer 0"])"));
    EXPECT_EQ(f.zpe({"fork", f.image.path(), "--play", "0"}).exitCode, 2) << "a play needs its player";
}

}  // namespace
}  // namespace zpe
