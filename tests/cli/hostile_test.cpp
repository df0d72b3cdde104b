// Hostile and unlucky inputs: bounded time, special files, failed writes,
// concurrent saves, what a save leaves behind, and the messages.
#include "model/image.h"
#include "support/image_builder.h"
#include "support/process.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zpe {
namespace {

using test::ImageBuilder;
using test::TempDir;
namespace fs = std::filesystem;

struct Folder {
    TempDir data;
    TempDir dir;
    Folder() { data.writeText("forms.txt", test::formsText()); }
    test::ProcessResult zpe(std::vector<std::string> args) const {
        args.insert(args.begin(), {"--data", data.path()});
        return test::runProcess(ZPE_BIN, args);
    }
    // Runs a shell line in the folder, $Z standing for zpe with the data folder.
    test::ProcessResult sh(const std::string& line) const {
        return test::runProcess("/bin/sh", {"-c", "Z='" + std::string(ZPE_BIN) + " --data " + data.path() + "'; " + line}, dir.path());
    }
    std::string image(const ImageBuilder& b, const std::string& name = "game.nes") const {
        const std::string path = dir.file(name);
        const auto bytes = b.bytes();
        std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return path;
    }
    std::vector<std::string> leftovers() const {
        std::vector<std::string> out;
        for (const auto& e : fs::directory_iterator(dir.path()))
            if (e.path().filename().string().rfind(".zpe", 0) == 0) out.push_back(e.path().filename().string());
        return out;
    }
};

ImageBuilder playable() { return ImageBuilder().bytesAt(0xA000, {0xD7, 1, 2, 0xE4}).pointer(0, 0xA000); }

TEST(Hostile, SizesAndBudgets) {
    Folder f;
    // The area run without an end command, with 1,750 references into it.
    ImageBuilder runaway = playable().fill(offsetOfAddress(0xA000), test::kDefaultImageSize - offsetOfAddress(0xA000), 0x31);
    for (int i = 0; i < kPointerCount; ++i) runaway.pointer(i, 0xA000 + 7 * i);
    for (int p = 0; p < kPlayCount; ++p)
        for (int j = 0; j < kPlayersPerRecord; ++j) runaway.playPlayer(p, j, 0xA001 + 5 * (p * 11 + j));
    const auto start = std::chrono::steady_clock::now();
    auto r = f.zpe({"lists", f.image(runaway)});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << "generous for a sanitizer build";
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("not a playbook image"), std::string::npos) << r.err;

    // 4 GiB and a little more: refused by its size, not read, not wrapped to a small size.
    const std::string huge = f.dir.file("huge.nes");
    { std::ofstream(huge).put('x'); }
    fs::resize_file(huge, (int64_t{1} << 32) + 0x60010);
    r = f.zpe({"copy-slot", huge, "0", "9"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("4295360528 bytes, larger than"), std::string::npos) << r.err;

    // forms.txt longer than the formation table; cmd.txt with a 3 MB name.
    f.data.writeText("forms.txt", test::formsText(100000));
    r = f.zpe({"lists", f.image(playable())});
    EXPECT_NE(r.err.find("forms.txt: names 100000 formations; the formation table holds 46"), std::string::npos) << r.err;
    f.data.writeText("forms.txt", test::formsText());
    f.data.writeText("cmd.txt", "E4,\"" + std::string(3'000'000, 'N') + "\"");
    r = f.zpe({"lists", f.image(playable())});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_LT(r.out.size(), 100'000u) << "the name is cut at 255 bytes";
    EXPECT_EQ(f.zpe({"render", f.image(playable()), "--slot", "0", "--size", "10000x10000", "--out", "x.png"}).exitCode, 2);
}

// zpe json streams: 18 long sequences (126,000 commands, 14 MB of JSON) keep
// the process near the size of the playbook, where building the whole
// document first took three times as much. (Its own test: the largest child
// of this process is measured.)
TEST(Hostile, JsonStreamsWithinTheMemoryOfTheOpen) {
    Folder f;
    ImageBuilder many = playable().fill(offsetOfAddress(0xA000), kSequenceAreaSize - 1, 0x30).bytesAt(0xBFFF, {0xC2});
    for (int i = 0; i < 18; ++i) many.pointer(i, 0xA000 + 1192 + i);
    // GNU time (installed with the build's packages) reports zpe's own peak, in KiB, on its last line.
    if (::access("/usr/bin/time", X_OK) != 0) GTEST_SKIP() << "no /usr/bin/time to measure with";
    // The sanitizers keep freed memory in quarantine: a small one, so that what is measured is what zpe holds.
    const auto r = f.sh("ASAN_OPTIONS=quarantine_size_mb=4 /usr/bin/time -f %M $Z json " + f.image(many, "many.nes") + " 2>&1 >/dev/null | tail -1");
    EXPECT_LT(std::stoll(r.out), 150 * 1024) << "KiB at most, sanitizers included";
}

TEST(Hostile, SpecialFilesAreRefusedWithoutBlocking) {
    Folder f;
    const std::string fifo = f.dir.file("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::string image = f.image(playable());
    auto r = f.zpe({"lists", fifo});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("a pipe (FIFO)"), std::string::npos) << r.err;
    EXPECT_EQ(f.zpe({"lists", f.dir.path()}).exitCode, 1);
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {"export-mask", image, fifo}, {"render", image, "--slot", "0", "--out", fifo}, {"cpu", image, fifo}}) {
        r = f.zpe(args);
        EXPECT_EQ(r.exitCode, 1) << args[0];
        EXPECT_NE(r.err.find("pipe"), std::string::npos) << r.err;
    }
}

TEST(Hostile, OutputsNeverReplaceTheImageOrLinks) {
    Folder f;
    const std::string image = f.image(playable());
    const auto before = test::readFileBytes(image);
    ::symlink(image.c_str(), f.dir.file("alias.nes").c_str());
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {"cpu", image, image}, {"render", image, "--slot", "0", "--out", image},
             {"export-mask", image, f.dir.file("alias.nes")}}) {
        const auto r = f.zpe(args);
        EXPECT_EQ(r.exitCode, 1) << args[0];
        EXPECT_NE(r.err.find("the image itself"), std::string::npos) << r.err;
    }
    ::symlink("nowhere.png", f.dir.file("dangling.png").c_str());
    auto r = f.zpe({"render", image, "--slot", "0", "--out", f.dir.file("dangling.png")});
    EXPECT_NE(r.err.find("will not write through a dangling link"), std::string::npos) << r.err;
    ::link(image.c_str(), f.dir.file("hard.nes").c_str());
    r = f.zpe({"copy-slot", image, "0", "9"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("2 hard links"), std::string::npos) << r.err;
    ::unlink(f.dir.file("hard.nes").c_str());
    EXPECT_EQ(test::readFileBytes(image), before);
}

TEST(Hostile, FailedWritesSayNoAndLeaveNothing) {
    Folder f;
    const std::string image = f.image(playable());
    const auto before = test::readFileBytes(image);
    test::ProcessResult r;
    EXPECT_EQ(f.sh("$Z lists game.nes > /dev/full").exitCode, 1);
    EXPECT_EQ(f.sh("$Z --help > /dev/full").exitCode, 1);
    EXPECT_EQ(f.sh("$Z --version > /dev/full").exitCode, 1);
    // A writing verb whose confirmation cannot be written writes nothing: a retried swap does not swap back.
    for (const char* verb : {"$Z swap-slot game.nes 0 9", "$Z copy-slot game.nes 0 9", "$Z full-save game.nes", "$Z compact game.nes",
                             "$Z fork game.nes --pointer 0"}) {
        r = f.sh(std::string(verb) + " > /dev/full");
        EXPECT_EQ(r.exitCode, 1) << verb;
        EXPECT_EQ(test::readFileBytes(image), before) << verb;
    }
    // A patch changes the image, not its size: a cut after EOF and a record past the end need --resize.
    f.dir.writeText("cut.ips", std::string("PATCHEOF\0\x01\x51", 11));
    f.dir.writeText("grow.ips", std::string("PATCH\x30\0\0\0\0\0\x10\xAA", 13) + "EOF");
    for (const char* patch : {"cut.ips", "grow.ips"}) {
        r = f.zpe({"patch", image, f.dir.file(patch)});
        EXPECT_EQ(r.exitCode, 1) << patch;
        EXPECT_NE(r.err.find("nothing was written (--resize allows it)"), std::string::npos) << r.err;
        EXPECT_EQ(test::readFileBytes(image), before) << patch;
    }
    r = f.zpe({"patch", image, f.dir.file("cut.ips"), "--out", f.dir.file("cut.ips")});
    EXPECT_NE(r.err.find("this is the patch"), std::string::npos) << r.err;
    // A save that cannot finish (the file size limit of 64 blocks is below the image's size).
    r = f.sh("ulimit -f 64; $Z copy-slot game.nes 0 9");
    EXPECT_EQ(r.exitCode, 1) << r.err;
    EXPECT_EQ(test::readFileBytes(image), before);
    EXPECT_TRUE(f.leftovers().empty());
    // The owner and group stay where the process may keep them.
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(image.c_str(), 65534, 65534), 0);
        ASSERT_EQ(f.zpe({"copy-slot", image, "0", "9"}).exitCode, 0);
        struct stat st {};
        ::stat(image.c_str(), &st);
        EXPECT_EQ(st.st_uid, 65534u);
        EXPECT_EQ(st.st_gid, 65534u);
    }
}

TEST(Hostile, ConcurrentSavesBothLand) {
    Folder f;
    for (int round = 0; round < 50; ++round) {
        const std::string image = f.image(playable().slot(9, {"NINE", 4}).slot(40, {"FORTY", 5}));
        const auto r = f.sh("$Z -q copy-slot game.nes 1 2 & $Z -q swap-slot game.nes 40 41 & wait");
        ASSERT_EQ(r.err, "") << round;
        const auto bytes = test::readFileBytes(image);
        auto name = [&](int s) { return std::string(bytes.begin() + kOffSlotTableOffset + kOffSlotRecordSize * s,
                                                    bytes.begin() + kOffSlotTableOffset + kOffSlotRecordSize * s + 6); };
        ASSERT_EQ(name(2), "SLOT 1") << "round " << round << ": the copy was lost";
        ASSERT_EQ(name(41), "FORTY ") << "round " << round << ": the swap was lost";
    }
    EXPECT_TRUE(f.leftovers().empty());
}

}  // namespace
}  // namespace zpe
