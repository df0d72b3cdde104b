// A play carried into another image: what the game runs from each of the
// play's entries there is what it ran in the source (jumps aside: a joining
// jump is a way on, not a command), everything else runs as before, the
// shared logic the target already has is reused, and a play the free space
// cannot hold is refused with the image untouched.
#include "analysis/area_map.h"
#include "model/file_io.h"
#include "playbook/table_codec.h"
#include "save/play_import.h"
#include "save/slot_import.h"
#include "save/saves.h"
#include "sequence/command_codes.h"
#include "support/playbook_fixture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <map>

namespace zpe {
namespace {

using test::DataDir;
using test::ImageBuilder;

// What a carried play runs, with no address in it: for each player, the
// commands reached from his entry in the order of a walk, each numbered on
// first sight and written with its bytes (fields blanked), what follows it
// and where its field leads (a number or an outside address). Jumps are
// followed, not listed, so that a relative jump written as an absolute one,
// or a chain joined by a jump, runs the same.
std::vector<std::string> runs(const CarriedPlay& play) {
    auto resolve = [&](CarriedLead l) {
        for (size_t hops = 0; l.kind == CarriedLead::Kind::Command && hops < play.commands.size(); ++hops) {
            const uint8_t code = play.commands[static_cast<size_t>(l.command)].bytes[0];
            if (code != cmd::kAbsoluteJump && code != cmd::kRelativeJump) break;
            l = play.commands[static_cast<size_t>(l.command)].field;
        }
        return l;
    };
    std::vector<std::string> out;
    for (const CarriedLead& entry : play.players) {
        std::map<int, int> number;
        std::vector<int> order;
        std::string text;
        auto name = [&](const CarriedLead& raw) -> std::string {
            const CarriedLead l = resolve(raw);
            if (l.kind == CarriedLead::Kind::None) return "-";
            if (l.kind == CarriedLead::Kind::Outside) return "@" + std::to_string(l.address);
            if (!number.count(l.command)) {
                number[l.command] = static_cast<int>(order.size());
                order.push_back(l.command);
            }
            return "#" + std::to_string(number[l.command]);
        };
        text = name(entry) + ":";
        for (size_t k = 0; k < order.size(); ++k) {
            const CarriedCommand& c = play.commands[static_cast<size_t>(order[k])];
            std::vector<uint8_t> bytes = c.bytes;
            const CommandFormat f = commandFormat(bytes[0], false, bytes.size() > 1 ? bytes[1] : -1);
            if (f.field != FieldKind::None) std::fill_n(bytes.begin() + f.fieldAt, f.field == FieldKind::Relative ? 1 : 2, 0);
            text += " [";
            for (const uint8_t b : bytes) text += std::to_string(b) + ",";
            text += " next " + name(c.next) + " field " + name(c.field) + "]";
        }
        out.push_back(text);
    }
    return out;
}

// The source: play 2's QB places himself and hands over (Human Control) to
// the computer's logic, a COM pass whose receiver script is A020 and a loop
// back to it; the RB branches into the middle of A020's sequence and jumps
// out of the area to 9000; the FB runs nothing.
ImageBuilder sourceImage() {
    return ImageBuilder()
        .bytesAt(0xA000, {0xD0, 0xF0, 0x12, 0xE4, 0x92, 0x31, 0x42, 0x53, 0x20, 0xA0, 0xFE, 0xFA})
        .bytesAt(0xA020, {0xD7, 0x01, 0x02, 0xC4, 0x00})
        .bytesAt(0xA030, {0xD7, 0x03, 0x04, 0xC7, 0x23, 0xA0, 0xFF, 0x00, 0x90})
        .bytesAt(0x9000, {0xC4, 0x00})
        .play(2, {0xA000, 0xA030, 0xFFFF});
}

// The target, laid out otherwise: play 5 runs other sequences from A100 on,
// and its QB hands over to the same computer logic (at A104, its receiver
// script at A120); play 7 runs a block of its own.
ImageBuilder targetImage() {
    return ImageBuilder()
        .bytesAt(0xA100, {0xD0, 0xF0, 0x30, 0xE4, 0x92, 0x31, 0x42, 0x53, 0x20, 0xA1, 0xFE, 0xFA})
        .bytesAt(0xA120, {0xD7, 0x01, 0x02, 0xC4, 0x00})
        .bytesAt(0xA140, {0xD7, 0x09, 0x09, 0xC4, 0x00})
        .play(5, {0xA100, 0xA140})
        .play(7, {0xA140, 0xA140});
}

// Blocks and an end filling the bytes from `from` up to `to` (by default the area's last bytes but the dead entry's).
std::vector<uint8_t> filler(int32_t from, int32_t to = test::kDeadAddress) {
    std::vector<uint8_t> bytes;
    while (from + static_cast<int32_t>(bytes.size()) + 3 + 2 <= to) bytes.insert(bytes.end(), {0xD7, 0x00, 0x00});
    bytes.insert(bytes.end(), {0xC4, 0x00});
    return bytes;
}

struct Carried {
    DataDir data;
    test::Opened source = test::openBuilt(sourceImage(), data);
    CarriedPlay play = carryPlay(source.pb, 2);
};

TEST(PlayImport, TheImportedPlayRunsWhatItRanAndEverythingElseAsBefore) {
    Carried c;
    ASSERT_TRUE(c.source.result.ok) << c.source.result.error;
    EXPECT_EQ(carriedPlayFault(c.play), "");
    const test::Opened target = test::openBuilt(targetImage(), c.data);
    ASSERT_TRUE(target.result.ok) << target.result.error;

    const PlayImportPlan plan = planPlayImport(target.pb, c.play, 7);
    target.file.write(plan.bytes);
    const Playbook after = openRom(target.file.path(), c.data.path());
    EXPECT_EQ(runs(carryPlay(after, 7)), runs(c.play));
    // The computer's logic and the receiver script stand in the target already: reused, not copied.
    EXPECT_EQ(runs(carryPlay(after, 5)), runs(carryPlay(target.pb, 5))) << "play 5 runs what it ran";
    // Copied: the QB's placement, the RB's block, branch and jump out of the
    // area; reused: Human Control, the COM pass and its receiver script's two commands.
    EXPECT_EQ(plan.summary.laid.copied, 4) << plan.summary.text();
    EXPECT_EQ(plan.summary.laid.reused, 4) << plan.summary.text();
    // A play file whose players all run nothing reuses nothing, whatever commands it carries.
    CarriedPlay idle = c.play;
    idle.players.fill(CarriedLead::none());
    const PlayImportPlan none = planPlayImport(target.pb, idle, 7);
    EXPECT_EQ(none.summary.laid.reused, 0) << none.summary.text();
    EXPECT_EQ(none.summary.laid.copied, 0) << none.summary.text();
    // Only free bytes and play 7's record changed.
    const AreaMap before = buildAreaMap(target.pb);
    const auto record = static_cast<size_t>(playEntryOffset(7, 0));
    for (size_t off = 0; off < plan.bytes.size(); ++off) {
        const int32_t a = static_cast<int32_t>(off) + kAddressOffsetDelta;
        const bool freeByte = inArea(a) && before.use[static_cast<size_t>(a - kSequenceAreaAddress)] == 0;
        const bool inRecord = off >= record && off < record + 2 * kPlayersPerRecord;
        if (!freeByte && !inRecord) {
            ASSERT_EQ(plan.bytes[off], target.pb.openedBytes[off]) << "offset " << off;
        }
    }
}

// A play exported from A, imported into B, exported from B and imported back
// into A at its own number leaves A byte for byte as it was: everything it
// runs is there already.
TEST(PlayImport, TheRoundTripLeavesTheSourceAsItWas) {
    Carried c;
    const test::Opened target = test::openBuilt(targetImage(), c.data);
    target.file.write(planPlayImport(target.pb, c.play, 7).bytes);
    const CarriedPlay back = carryPlay(openRom(target.file.path(), c.data.path()), 7);
    const PlayImportPlan home = planPlayImport(c.source.pb, back, 2);
    EXPECT_EQ(home.summary.laid.copied, 0) << home.summary.text();
    EXPECT_EQ(home.bytes, c.source.pb.openedBytes);
}

// The free space of the target holds too little: refused, in words, with
// what it needs and what is free; the file is not touched.
TEST(PlayImport, TooLittleFreeSpaceIsRefusedInWords) {
    Carried c;
    // The target's own sequences fill the area: A000-A1FF as it has them, one long sequence after.
    ImageBuilder full = targetImage().bytesAt(0xA200, filler(0xA200)).pointer(0, 0xA200);
    for (int32_t a = 0xA000; a < 0xA100; a += 0x10) full.bytesAt(a, filler(a, a + 0x10)).pointer(1 + (a - 0xA000) / 0x10, a);
    int pointer = 17;
    for (const auto& [from, to] : {std::pair{0xA10C, 0xA120}, {0xA125, 0xA140}, {0xA145, 0xA160}, {0xA160, 0xA200}})
        full.bytesAt(from, filler(from, to)).pointer(pointer++, from);
    const test::Opened target = test::openBuilt(full, c.data);
    ASSERT_TRUE(target.result.ok) << target.result.error;
    const std::vector<uint8_t> was = target.file.read();
    Playbook pb = target.pb;
    try {
        (void)importPlay(pb, c.play, 7, c.data.path());
        FAIL() << "imported into a full area";
    } catch (const SaveError& e) {
        EXPECT_EQ(e.kind(), Refusal::NoFreeRun);
        EXPECT_NE(std::string(e.what()).find("needs"), std::string::npos) << e.what();
        EXPECT_NE(std::string(e.what()).find("zpe compact"), std::string::npos) << e.what();
    }
    EXPECT_EQ(target.file.read(), was);
}

// An entry that starts no valid sequence still reads its bytes: a lock-up
// (the game stops there) and then FF FF FF, which the editor reads on into
// (a jump to FFFF, no sequence). The game uses one byte of them; none of the
// four is free, and the play goes around them.
TEST(PlayImport, BytesAnEntryReadsWithoutASequenceAreNotFree) {
    Carried c;
    const test::Opened target = test::openBuilt(targetImage().bytesAt(0xA003, {0xDE}).pointer(0, 0xA003), c.data);
    ASSERT_TRUE(target.result.ok) << target.result.error;
    ASSERT_FALSE(target.pb.sequences.contains(0xA003_seq));
    const PlayImportPlan plan = planPlayImport(target.pb, c.play, 7);
    const auto at = static_cast<size_t>(offsetOfAddress(0xA003));
    EXPECT_EQ(std::vector<uint8_t>(plan.bytes.begin() + static_cast<std::ptrdiff_t>(at), plan.bytes.begin() + static_cast<std::ptrdiff_t>(at) + 4),
              (std::vector<uint8_t>{0xDE, 0xFF, 0xFF, 0xFF}));
    target.file.write(plan.bytes);
    EXPECT_EQ(runs(carryPlay(openRom(target.file.path(), c.data.path()), 7)), runs(c.play));
}

// A play no free run holds whole is split across runs, joined by jumps, and
// still runs what it ran; a relative loop back whose target ends up out of
// reach is written as an absolute jump.
TEST(PlayImport, AChainNoRunHoldsIsSplitAndJoinedByJumps) {
    DataDir data;
    // One long chain: eleven blocks (33 bytes) and a relative jump back to the last of them.
    std::vector<uint8_t> chain;
    for (int k = 0; k < 11; ++k) chain.insert(chain.end(), {0xD7, static_cast<uint8_t>(k), 0x01});
    chain.insert(chain.end(), {0xFE, 0xFD});
    const test::Opened source = test::openBuilt(ImageBuilder().bytesAt(0xA000, chain).play(0, {0xA000}), data);
    ASSERT_TRUE(source.result.ok) << source.result.error;
    const CarriedPlay play = carryPlay(source.pb, 0);
    ASSERT_EQ(carriedPlayFault(play), "");
    // The target's free space: runs of some 20 bytes between sequences of its own, then one sequence to the end.
    ImageBuilder target;
    int32_t a = 0xA000;
    for (int k = 0; k < 100; ++k, a += 0x20) target.bytesAt(a + 20, filler(a + 20, a + 31)).pointer(k, a + 20);
    target.bytesAt(a, filler(a)).pointer(100, a);
    const test::Opened into = test::openBuilt(target, data);
    ASSERT_TRUE(into.result.ok) << into.result.error;
    const PlayImportPlan plan = planPlayImport(into.pb, play, 3);
    EXPECT_GT(plan.summary.laid.runs, 1) << plan.summary.text();
    into.file.write(plan.bytes);
    EXPECT_EQ(runs(carryPlay(openRom(into.file.path(), data.path()), 3)), runs(play));
}

// After a Long Snap the game goes on with the next command, and an absolute
// jump right after it would make the editor read on: what follows it is
// copied along even where the image has it already. A command that locks
// the game up is not written anew: refused in words.
TEST(PlayImport, ALongSnapKeepsWhatFollowsItAndALockUpIsRefused) {
    DataDir data;
    const test::Opened source = test::openBuilt(ImageBuilder().bytesAt(0xA000, {0xD7, 0x01, 0x02, 0xD3, 0xD7, 0x05, 0x06, 0xC4, 0x00}).play(0, {0xA000}), data);
    // The target runs D7 05 06 C4 00 already (play 1's, from A100).
    const test::Opened target = test::openBuilt(ImageBuilder().bytesAt(0xA100, {0xD7, 0x05, 0x06, 0xC4, 0x00}).play(1, {0xA100}), data);
    const PlayImportPlan plan = planPlayImport(target.pb, carryPlay(source.pb, 0), 4);
    const int32_t at = offsetOfAddress(plan.bytes[static_cast<size_t>(playEntryOffset(4, 0))] | plan.bytes[static_cast<size_t>(playEntryOffset(4, 0)) + 1] << 8);
    // The block after the snap copied along; then a jump to the end command the image has.
    EXPECT_EQ(std::vector<uint8_t>(plan.bytes.begin() + at, plan.bytes.begin() + at + 10),
              (std::vector<uint8_t>{0xD7, 0x01, 0x02, 0xD3, 0xD7, 0x05, 0x06, 0xFF, 0x03, 0xA1}));

    // The editor reads F2 with two bytes after it and goes on to the end command; the game hangs on F2.
    const test::Opened hangs = test::openBuilt(ImageBuilder().bytesAt(0xA000, {0xD7, 0x01, 0x02, 0xF2, 0x00, 0x00, 0xC4, 0x00}).play(0, {0xA000}), data);
    ASSERT_TRUE(hangs.result.ok) << hangs.result.error;
    try {
        (void)planPlayImport(target.pb, carryPlay(hangs.pb, 0), 4);
        FAIL() << "a lock-up written anew";
    } catch (const SaveError& e) {
        EXPECT_NE(std::string(e.what()).find("locks the game up"), std::string::npos) << e.what();
    }

    // A jump to itself, and two jumps leading to each other, are loops the game never leaves: refused as a lock-up is.
    for (const bool pair : {false, true}) {
        CarriedPlay loop;
        loop.commands.push_back({0xA000, {0xFE, 0x00}, CarriedLead::none(), CarriedLead::to(pair ? 1 : 0)});
        if (pair) loop.commands.push_back({0xA002, {0xFF, 0x00, 0xA0}, CarriedLead::none(), CarriedLead::to(0)});
        loop.players[0] = CarriedLead::to(0);
        ASSERT_EQ(carriedPlayFault(loop), "") << "the game can run it (and never leaves it)";
        try {
            (void)planPlayImport(target.pb, loop, 4);
            FAIL() << "a loop of jumps written anew";
        } catch (const SaveError& e) {
            EXPECT_NE(std::string(e.what()).find("leads back to itself through jumps alone"), std::string::npos) << e.what();
        }
    }
}

// Chains of any length. The QB runs forty jumps before his commands; the RB
// a chain of 1,500 one-byte blocks that the image runs alike from play 5
// (each of them like each of the image's, so the pairs to weigh number in
// the millions). Both are carried, run what they ran (the RB's chain reused
// whole), in time that grows with their length, not its square. A file of
// more commands than the area has bytes is refused before anything is planned.
TEST(PlayImport, LongChainsAreCarriedAndAnOversizedFileRefused) {
    DataDir data;
    constexpr int kJumps = 40, kBlocks = 1500;
    std::vector<uint8_t> blocks(kBlocks, 0x32);
    blocks.insert(blocks.end(), {0xC4, 0x00});
    const test::Opened target = test::openBuilt(ImageBuilder().bytesAt(0xA000, blocks).play(5, {0xA000}), data);
    ASSERT_TRUE(target.result.ok) << target.result.error;
    CarriedPlay play;
    for (int k = 0; k < kJumps; ++k)
        play.commands.push_back({k, {0xFF, 0x00, 0x00}, CarriedLead::none(), CarriedLead::to(k + 1)});
    play.commands.push_back({kJumps, {0xD7, 0x01, 0x02}, CarriedLead::to(kJumps + 1), CarriedLead::none()});
    play.commands.push_back({kJumps + 1, {0xC4, 0x00}, CarriedLead::none(), CarriedLead::none()});
    const int chain = static_cast<int>(play.commands.size());
    for (int k = 0; k < kBlocks; ++k) play.commands.push_back({chain + k, {0x32}, CarriedLead::to(chain + k + 1), CarriedLead::none()});
    play.commands.push_back({chain + kBlocks, {0xC4, 0x00}, CarriedLead::none(), CarriedLead::none()});
    play.players[0] = CarriedLead::to(0);
    play.players[1] = CarriedLead::to(chain);
    ASSERT_EQ(carriedPlayFault(play), "");

    const auto start = std::chrono::steady_clock::now();
    const PlayImportPlan plan = planPlayImport(target.pb, play, 7);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LT(seconds, 10.0) << "a chain's pairs weighed again and again";
    EXPECT_EQ(plan.bytes[static_cast<size_t>(playEntryOffset(7, 1))] | plan.bytes[static_cast<size_t>(playEntryOffset(7, 1)) + 1] << 8, 0xA000);
    target.file.write(plan.bytes);
    EXPECT_EQ(runs(carryPlay(openRom(target.file.path(), data.path()), 7)), runs(play));

    CarriedPlay oversized;
    for (int k = 0; k <= kSequenceAreaSize; ++k) oversized.commands.push_back({k, {0x32}, CarriedLead::to(k + 1), CarriedLead::none()});
    oversized.commands.push_back({kSequenceAreaSize + 1, {0xC4, 0x00}, CarriedLead::none(), CarriedLead::none()});
    oversized.players[0] = CarriedLead::to(0);
    EXPECT_NE(carriedPlayFault(oversized).find("more commands (8,194) than the sequence area has bytes"), std::string::npos)
        << carriedPlayFault(oversized);
}

// A file that is not a play the game could run is refused before anything is planned.
TEST(PlayImport, APlayTheGameCouldNotRunIsRefused) {
    Carried c;
    CarriedPlay bad = c.play;
    bad.commands[0].bytes.push_back(0x00);  // a placement with a byte too many
    EXPECT_NE(carriedPlayFault(bad), "");
    EXPECT_THROW((void)planPlayImport(c.source.pb, bad, 3), SaveError);
    bad = c.play;
    bad.commands[1].next = CarriedLead::none();  // Human Control, after which the game goes on, with nothing after it
    EXPECT_NE(carriedPlayFault(bad).find("goes on"), std::string::npos);
    bad = c.play;
    bad.players[3] = CarriedLead::outside(0xA123);
    EXPECT_NE(carriedPlayFault(bad).find("outside"), std::string::npos);
}

// What each slot of a book runs: its formation's positions and each of its eight plays, as runs() gives them.
std::vector<std::vector<std::string>> slotRuns(const CarriedBook& book) {
    std::vector<std::vector<std::string>> out;
    CarriedPlay part;
    part.commands = book.commands;
    for (const CarriedSlot& slot : book.playSlots) {
        part.players = book.formations[static_cast<size_t>(slot.formation)].leads;
        out.push_back(runs(part));
        for (const int k : slot.plays) {
            part.players = book.plays[static_cast<size_t>(k)].leads;
            out.push_back(runs(part));
        }
    }
    return out;
}

// A slot carried into another image: its formation and plays run there what
// they ran, in records no other slot used (or reused where the image had the
// same already); its name, defensive plays and graphics come along; other
// slots' records are not touched; kinds do not mix; with no record left it is refused.
TEST(SlotImport, TheSlotRunsWhatItRanAndOtherSlotsKeepTheirRecords) {
    DataDir data;
    // Source slot 5: formation 6 (QB and RB placed), plays 2, 3, 2, 2, ... (play 3 a block of its own).
    ImageBuilder source = sourceImage();
    source.bytesAt(0xA050, {0xD0, 0xF0, 0x22, 0xEE}).bytesAt(0xA054, {0xD7, 0x07, 0x07, 0xC4, 0x00}).formation(6, {0xA050, 0xA050});
    source.play(3, {0xA054}).slot(5, {"CARRIED", 6, {2, 3, 2, 2, 2, 2, 2, 2}, {1, 2, 3, 4, 5, 6, 7, 8}});
    source.gfx(5, std::vector<uint8_t>(42, 0x5A));
    const test::Opened from = test::openBuilt(source, data);
    ASSERT_TRUE(from.result.ok) << from.result.error;
    const CarriedBook slot = carrySlots(from.pb, {5});
    ASSERT_EQ(carriedBookFault(slot), "");
    EXPECT_EQ(slot.plays.size(), 2u) << "play 2 once, however often the slot names it";

    // The target: slots 0-8 use formation 4 and plays 0-7; slot 9 (to be replaced) formation 5 and play 9; play 5 runs play 3's block already.
    ImageBuilder into = targetImage();
    into.bytesAt(0xA160, {0xD7, 0x07, 0x07, 0xC4, 0x00}).play(6, {0xA160});
    for (int s = 0; s < 9; ++s) into.slot(s, {"KEEP", 4, {0, 1, 2, 3, 4, 5, 6, 7}, {}});
    into.slot(9, {"OLD", 5, {9, 9, 9, 9, 9, 9, 9, 9}, {}});
    for (int s = 10; s < kSlotCount; ++s) into.slot(s, {"KEEP", 4, {0, 1, 2, 3, 4, 5, 6, 7}, {}});
    const test::Opened target = test::openBuilt(into, data);
    ASSERT_TRUE(target.result.ok) << target.result.error;
    const BookImportPlan plan = planSlotImport(target.pb, slot, 9);
    target.file.write(plan.bytes);
    const Playbook after = openRom(target.file.path(), data.path());
    EXPECT_EQ(slotRuns(carrySlots(after, {9})), slotRuns(slot)) << plan.summary.text();
    const clsPlaySlot& now = after.playSlots[9];
    EXPECT_EQ(now.name(), "CARRIED");
    EXPECT_EQ(now.dPlay(7), 8);
    EXPECT_EQ(now.GFX(41), 0x5A);
    EXPECT_EQ(now.formation(), 5) << "the slot's own formation record, which no other slot used";
    EXPECT_EQ(now.oPlay(1), 6) << "play 6 runs the same block: reused";
    EXPECT_EQ(now.oPlay(0), 9) << "the slot's own play record took the copy";
    for (int p = 0; p < 8; ++p)
        for (int j = 0; j < kPlayersPerRecord; ++j)
            EXPECT_EQ(after.plays[static_cast<size_t>(p)].seqAddress(j), target.pb.plays[static_cast<size_t>(p)].seqAddress(j)) << "play " << p;
    EXPECT_EQ(after.formations[4].posAddress(0), target.pb.formations[4].posAddress(0));

    // A passing slot does not take a running one; with every record in use by others nothing is written.
    EXPECT_THROW((void)planSlotImport(target.pb, slot, 40), SaveError);
    ImageBuilder crowded = targetImage();
    for (int s = 0; s < kSlotCount; ++s) crowded.slot(s, {"USED", 4 + s % 18, {s, s + 64 < kPlayCount ? s + 64 : s, s, s, s, s, s, s}, {}});
    const test::Opened full = test::openBuilt(crowded, data);
    try {
        (void)planSlotImport(full.pb, slot, 9);
        FAIL() << "no formation record was free";
    } catch (const SaveError& e) {
        EXPECT_NE(std::string(e.what()).find("record of its own, and 0 are free"), std::string::npos) << e.what();
    }
}

// A slot or a playbook brought back into the image it came from changes
// nothing: where several records run the same, each slot keeps the ones it
// names (formation 5 and plays 9-15 run what formation 4 and play 0 run).
TEST(SlotImport, BroughtBackASlotKeepsNamingItsOwnRecords) {
    DataDir data;
    ImageBuilder source = sourceImage();
    for (int s = 0; s < kSlotCount; ++s)
        source.slot(s, {"OWN", 5 + s % 3, {2, 9 + s % 7, 10, 11, 12, 13, 14, 15}, {}});
    const test::Opened image = test::openBuilt(source, data);
    ASSERT_TRUE(image.result.ok) << image.result.error;

    const CarriedBook own = carrySlots(image.pb, {0});
    const BookImportPlan slot = planSlotImport(image.pb, own, 0);
    EXPECT_EQ(slot.bytes, image.pb.openedBytes) << slot.summary.text();
    // Every command the slot's records run is there already: all reused, none copied.
    const auto commands = std::count_if(own.commands.begin(), own.commands.end(),
                                        [](const CarriedCommand& c) { return c.bytes[0] != 0xFE && c.bytes[0] != 0xFF; });
    EXPECT_GT(commands, 0);
    EXPECT_EQ(slot.summary.laid.reused, commands) << slot.summary.text();
    EXPECT_EQ(slot.summary.laid.copied, 0) << slot.summary.text();

    std::vector<int> all(kSlotCount);
    for (int s = 0; s < kSlotCount; ++s) all[static_cast<size_t>(s)] = s;
    const BookImportPlan book = planPlaybookImport(image.pb, carrySlots(image.pb, all));
    EXPECT_EQ(book.bytes, image.pb.openedBytes) << book.summary.text();

    // Into another slot, the look-alike that slot names is kept too.
    const BookImportPlan moved = planSlotImport(image.pb, carrySlots(image.pb, {0}), 1);
    image.file.write(moved.bytes);
    const Playbook after = openRom(image.file.path(), data.path());
    EXPECT_EQ(after.playSlots[1].formation(), 6);
    EXPECT_EQ(after.playSlots[1].oPlay(1), 10);
}

// A whole playbook carried into another image: every slot runs what the
// source's slot of its number ran; formations and plays the image has
// already are reused; the round trip (back into the source) changes nothing.
TEST(PlaybookImport, EverySlotRunsWhatItsSourceRanAndTheRoundTripChangesNothing) {
    DataDir data;
    ImageBuilder source = sourceImage();
    source.bytesAt(0xA050, {0xD0, 0xF0, 0x22, 0xEE}).bytesAt(0xA054, {0xD7, 0x07, 0x07, 0xC4, 0x00}).formation(6, {0xA050, 0xA050});
    source.play(3, {0xA054});
    for (int s = 0; s < kSlotCount; ++s) source.slot(s, {"S" + std::to_string(s), s % 2 ? 6 : 4, {2, 3, s % 3 ? 2 : 3, 2, 3, 2, 3, 2}, {}});
    const test::Opened from = test::openBuilt(source, data);
    ASSERT_TRUE(from.result.ok) << from.result.error;
    std::vector<int> all(kSlotCount);
    for (int s = 0; s < kSlotCount; ++s) all[static_cast<size_t>(s)] = s;
    const CarriedBook book = carrySlots(from.pb, all);
    EXPECT_EQ(book.formations.size(), 2u);
    EXPECT_EQ(book.plays.size(), 2u);

    // The target: its slots use formations 4-7 and plays 0-9; it runs play 3's block already (play 8).
    ImageBuilder into = targetImage();
    into.bytesAt(0xA160, {0xD7, 0x07, 0x07, 0xC4, 0x00}).play(8, {0xA160});
    for (int s = 0; s < kSlotCount; ++s) into.slot(s, {"OLD", 4 + s % 4, {s % 10, 1, 2, 3, 4, 5, 6, 7}, {}});
    const test::Opened target = test::openBuilt(into, data);
    ASSERT_TRUE(target.result.ok) << target.result.error;
    const BookImportPlan plan = planPlaybookImport(target.pb, book);
    // Formation 4 (every position the dead entry) is in the target as it is; formation 6 is copied; play 3's block is play 8 there.
    EXPECT_EQ(plan.summary.text().rfind("64 slots imported: 2 formations (1 reused, 1 copied), 2 plays (1 reused, 1 copied)", 0), 0u)
        << plan.summary.text();
    target.file.write(plan.bytes);
    const Playbook after = openRom(target.file.path(), data.path());
    EXPECT_EQ(slotRuns(carrySlots(after, all)), slotRuns(book));
    EXPECT_EQ(after.playSlots[63].name(), "S63");

    // Back into the source: everything is there already, so nothing is written but the records as they were.
    const BookImportPlan home = planPlaybookImport(from.pb, carrySlots(after, all));
    EXPECT_EQ(home.summary.laid.copied, 0) << home.summary.text();
    EXPECT_EQ(home.bytes, from.pb.openedBytes);
}

}  // namespace
}  // namespace zpe
