// What every verb keeps alike: a headerless image reads exactly as the headed
// one; patches know which form they are for; -q, --out and player names mean
// the same everywhere; hostile input stays within its budget.
#include "support/image_builder.h"
#include "support/process.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace zpe {
namespace {

using test::ImageBuilder;
using test::TempDir;
using Bytes = std::vector<uint8_t>;

struct Folder {
    TempDir data, dir;
    Folder() { data.writeText("forms.txt", test::formsText()); }
    test::ProcessResult zpe(std::vector<std::string> args) const {
        args.insert(args.begin(), {"--data", data.path()});
        return test::runProcess(ZPE_BIN, args, dir.path());
    }
    // Runs a shell line in the folder, $Z standing for zpe with the data folder.
    test::ProcessResult sh(const std::string& line) const {
        return test::runProcess("/bin/sh", {"-c", "Z='" + std::string(ZPE_BIN) + " --data " + data.path() + "'; " + line}, dir.path());
    }
    std::string file(const std::string& name, const Bytes& bytes) const {
        const std::string path = dir.file(name);
        std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return path;
    }
};

Bytes headerless(const Bytes& headed) { return Bytes(headed.begin() + 16, headed.end()); }

// A000 goes on after Human Control at A004; A007 jumps forward to A01A; slots name plays.
ImageBuilder game() {
    return ImageBuilder()
        .bytesAt(0xA000, {0xD0, 0xF0, 0x12, 0xE4})
        .bytesAt(0xA004, {0xD7, 1, 2, 0xC4, 0})
        .bytesAt(0xA009, {0xD7, 0x00, 0x10, 0xFE, 0x0E})  // -> A01A
        .bytesAt(0xA01A, {0x30, 0xEE})
        .formation(4, {0xA000, 0xA009})
        .pointer(0, 0xA009)
        .play(0, {0xA009, 0xA000})
        .slot(0, {"RUN ZERO", 4, {0, 0, 0, 0, 0, 0, 0, 0}, {1, 2, 3, 4, 5, 6, 7, 8}});
}

TEST(CliForms, EveryReadingVerbReadsAHeaderlessImageAsTheHeadedOne) {
    Folder f;
    const Bytes bytes = game().bytes();
    const std::string headed = f.file("headed.nes", bytes), bare = f.file("bare.nes", headerless(bytes));
    const std::vector<std::vector<std::string>> verbs{
        {"decode", "IMAGE", "A000"}, {"decode", "IMAGE", "A009", "--kr"}, {"trace", "IMAGE", "A000"}, {"lists", "IMAGE", "--numbered"},
        {"cpu", "IMAGE", "-"},       {"refs", "IMAGE", "A01A"},            {"check"},                    {"check", "IMAGE", "--json"},
        {"points", "IMAGE", "--slot", "0"}, {"render", "IMAGE", "--slot", "0", "--out", "-"},
        {"compact", "IMAGE", "--dry-run"}, {"fork", "IMAGE", "--pointer", "0", "--dry-run"}};
    for (std::vector<std::string> args : verbs) {
        if (args.size() == 1) args.push_back("IMAGE");
        auto with = [&](const std::string& image) {
            std::vector<std::string> a = args;
            for (std::string& s : a)
                if (s == "IMAGE") s = image;
            return f.zpe(a);
        };
        const auto a = with(headed), b = with(bare);
        EXPECT_EQ(a.exitCode, 0) << args[0] << ": " << a.err;
        EXPECT_EQ(b.exitCode, a.exitCode) << args[0] << ": " << b.err;
        EXPECT_EQ(b.out, a.out) << args[0];
        EXPECT_NE(b.err.find("headerless image"), std::string::npos) << args[0] << " says the form once: " << b.err;
    }
    // json: the same document but for the file's own name and fingerprint.
    auto body = [](std::string out) { return out.substr(out.find("\"formations\"")); };
    EXPECT_EQ(body(f.zpe({"json", bare}).out), body(f.zpe({"json", headed}).out));
}

TEST(CliForms, PatchesSayWhichFormTheyAreFor) {
    Folder f;
    const Bytes original = game().bytes();
    Bytes edited = original;
    edited[static_cast<size_t>(offsetOfAddress(0xA001))] = 0x77;
    const std::string a = f.file("a.nes", original), b = f.file("b.nes", edited);
    const std::string bareA = f.file("bare-a.nes", headerless(original)), bareB = f.file("bare-b.nes", headerless(edited));
    ASSERT_EQ(f.zpe({"diff", a, b, "--ips", "headed.ips"}).exitCode, 0);

    // A headed IPS on a headerless image: the form must be said; said, it lands where it should.
    auto r = f.zpe({"patch", bareA, "headed.ips"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("is a headerless image, and an IPS patch does not say which form"), std::string::npos) << r.err;
    EXPECT_EQ(test::readFileBytes(bareA), headerless(original));
    ASSERT_EQ(f.zpe({"-q", "patch", bareA, "headed.ips", "--ips-for", "headed"}).exitCode, 0);
    EXPECT_EQ(test::readFileBytes(bareA), headerless(edited));

    // diff of two headerless images makes a headerless patch and says so; between the forms it makes none.
    f.file("bare-a.nes", headerless(original));
    r = f.zpe({"diff", bareA, bareB, "--ips", "bare.ips"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("the IPS patch is for headerless images"), std::string::npos) << r.err;
    ASSERT_EQ(f.zpe({"-q", "patch", bareA, "bare.ips", "--ips-for", "headerless"}).exitCode, 0);
    EXPECT_EQ(test::readFileBytes(bareA), headerless(edited));
    r = f.zpe({"diff", a, bareB, "--ips", "mixed.ips"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("a patch between two forms would apply to neither"), std::string::npos) << r.err;
    EXPECT_FALSE(std::filesystem::exists(f.dir.file("mixed.ips")));

    // A headerless patch on a headed image lands behind the header.
    ASSERT_EQ(f.zpe({"-q", "patch", a, "bare.ips", "--ips-for", "headerless"}).exitCode, 0);
    EXPECT_EQ(test::readFileBytes(a), edited);

    // An IPS that writes into the header cannot be for a file without one.
    const Bytes intoHeader{'P', 'A', 'T', 'C', 'H', 0, 0, 4, 0, 1, 0x42, 'E', 'O', 'F'};
    f.file("header.ips", intoHeader);
    f.file("bare-a.nes", headerless(original));
    r = f.zpe({"patch", bareA, "header.ips", "--ips-for", "headed"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("writes into the 16-byte header"), std::string::npos) << r.err;
    EXPECT_EQ(test::readFileBytes(bareA), headerless(original));
    // BPS names its image by CRC: no form to say, and none taken.
    ASSERT_EQ(f.zpe({"diff", bareA, bareB, "--bps", "bare.bps"}).exitCode, 0);
    EXPECT_EQ(f.zpe({"patch", bareA, "bare.bps", "--ips-for", "headed"}).exitCode, 2);
    r = f.zpe({"patch", a, "bare.bps"});
    EXPECT_EQ(r.exitCode, 1) << "a headerless image's BPS does not fit the headed file";
}

TEST(CliOptions, QuietOutputsAndPlayersMeanTheSameForEveryVerb) {
    Folder f;
    const std::string image = f.file("game.nes", game().bytes());
    const std::string json = f.zpe({"json", image}).out;
    // -q silences the success line of every verb that writes.
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {"-q", "swap-slot", image, "0", "1"}, {"-q", "compact", image}, {"-q", "fork", image, "--pointer", "0"},
             {"-q", "full-save", image}}) {
        const auto r = f.zpe(args);
        EXPECT_EQ(r.exitCode, 0) << args[1] << ": " << r.err;
        EXPECT_EQ(r.out, "") << args[1];
    }
    f.dir.writeText("same.json", f.zpe({"json", image}).out);
    auto r = f.zpe({"-q", "import", image, "same.json"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "");
    // A standard output that takes nothing: without -q the write is abandoned; with -q nothing needs saying.
    const Bytes before = test::readFileBytes(image);
    r = f.sh("$Z fork game.nes --play 0 --player QB > /dev/full");
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(test::readFileBytes(image), before);
    r = f.sh("$Z -q fork game.nes --play 0 --player QB > /dev/full");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(test::readFileBytes(image), before) << "QB is player 0: his entry has its own copy";
    // Out-of-range numbers are named as such; a name is a name everywhere a player is named.
    r = f.zpe({"fork", image, "--play", "-1", "--player", "0"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("--play is a number from 0 to 115"), std::string::npos) << r.err;
    r = f.zpe({"fork", image, "--formation", "4", "--position", "XX", "--dry-run"});
    EXPECT_NE(r.err.find("--position (or a position name, QB to RT) is a number from 0 to 10"), std::string::npos) << r.err;
    EXPECT_EQ(f.zpe({"fork", image, "--formation", "4", "--position", "RB1", "--dry-run"}).exitCode, 0);
    // --out "" names no file (it would have meant the image itself); --out - is standard output.
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {"render", image, "--slot", "0", "--out", ""}, {"diff", image, image, "--ips", ""}, {"cpu", image, ""}}) {
        r = f.zpe(args);
        EXPECT_EQ(r.exitCode, 2) << args[0];
        EXPECT_NE(r.err.find("an empty name names no file"), std::string::npos) << r.err;
    }
    const Bytes now = test::readFileBytes(image);
    Bytes changed = now;
    changed[static_cast<size_t>(offsetOfAddress(0xA001))] ^= 1;
    f.file("changed.nes", changed);
    ASSERT_EQ(f.zpe({"diff", image, f.dir.file("changed.nes"), "--ips", "p.ips"}).exitCode, 0);
    r = f.zpe({"patch", image, "p.ips", "--out", ""});
    EXPECT_EQ(r.exitCode, 2);
    r = f.zpe({"patch", image, "p.ips", "--out", "-"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(Bytes(r.out.begin(), r.out.end()), changed);
    EXPECT_EQ(test::readFileBytes(image), now) << "the image itself is left as it is";
    EXPECT_FALSE(std::filesystem::exists(f.dir.file("-")));
}

// Hostile input is refused in words within its budget, measured by GNU time
// (the sanitizers of a test build add to both).
TEST(CliBudgets, HostileJsonAndImagesNearTheCommandCap) {
    Folder f;
    if (::access("/usr/bin/time", X_OK) != 0) GTEST_SKIP() << "no /usr/bin/time to measure with";
    const std::string image = f.file("game.nes", game().bytes());
    f.dir.writeText("deep.json", std::string(4 * 1024 * 1024 - 64, '['));
    auto r = f.sh("ASAN_OPTIONS=quarantine_size_mb=4 /usr/bin/time -f %M $Z import game.nes deep.json 2>&1 >/dev/null");
    EXPECT_NE(r.out.find("nests lists and objects deeper than 64 levels"), std::string::npos) << r.out;
    // Measured against the program doing nothing (the sanitizers alone take
    // some 60 MiB): the 4 MiB of text, read once, and little else.
    const auto idle = f.sh("ASAN_OPTIONS=quarantine_size_mb=4 /usr/bin/time -f %M $Z --version 2>&1 >/dev/null | tail -1");
    EXPECT_LT(std::stoll(r.out.substr(r.out.rfind('\n', r.out.size() - 2) + 1)), std::stoll(idle.out) + 16 * 1024) << "KiB at most";

    // An image near the open's command cap: 24 long runs without an end (about 184,000 commands), named by the pointers.
    ImageBuilder cap = game().fill(offsetOfAddress(0xA000), kSequenceAreaSize - 1, 0x30).bytesAt(0xBFFF, {0xC2});
    for (int i = 0; i < kPointerCount; ++i) cap.pointer(i, 0xA000 + 1192 + i % 24);
    f.file("cap.nes", cap.bytes());
    ASSERT_EQ(f.zpe({"lists", f.dir.file("cap.nes")}).exitCode, 0) << "under the cap";
    for (const std::string verb : {"lists cap.nes", "json cap.nes", "compact cap.nes --dry-run", "check cap.nes", "refs cap.nes A4A8"}) {
        r = f.sh("ASAN_OPTIONS=quarantine_size_mb=4 /usr/bin/time -f %M $Z " + verb + " 2>&1 >/dev/null | tail -1");
        EXPECT_LT(std::stoll(r.out), 150 * 1024) << verb << ": KiB at most, sanitizers included";
    }
}

}  // namespace
}  // namespace zpe
