// Save and Full Save over layouts that are easy to get wrong: sequences ending
// in a long snap the game runs past, jumps that must keep reaching what they
// named, lock-ups in the middle, a sequence outside the area, needless moves,
// and the text and size the editor shows against what a save writes. Every
// save must go through (or refuse in words where stated) and reopen as edited.
#include "analysis/area_map.h"
#include "analysis/entries.h"
#include "playbook/table_codec.h"
#include "save/save_changes.h"
#include "save/saves.h"
#include "save/verify_write.h"
#include "sequence/catalogue.h"
#include "support/playbook_fixture.h"

#include <cctype>
#include <functional>
#include <set>

#include <gtest/gtest.h>

namespace zpe {
namespace {

using test::DataDir;
using test::ImageBuilder;
using Bytes = std::vector<uint8_t>;
using Codes = std::vector<int>;  // command codes, a low code without its nibble

const CmdNames& names() { static const CmdNames n = defaultCmdNames(); return n; }

Bytes at(const Bytes& image, int32_t address, int32_t count) {
    const auto o = static_cast<std::ptrdiff_t>(offsetOfAddress(address));
    return Bytes(image.begin() + o, image.begin() + o + count);
}

AreaEntry pointerEntry(int i) { return {AreaEntry::Table::Pointer, i, 0, {}}; }
AreaEntry formationEntry(int f, int player) { return {AreaEntry::Table::Formation, f, player, {}}; }

// The key the entry names in `pb` (address -1: no such entry).
SeqKey targetOf(const Playbook& pb, const AreaEntry& e) {
    for (const AreaEntry& x : playbookEntries(pb))
        if (x.table == e.table && x.index == e.index && x.player == e.player) return x.target;
    return SeqKey::at(-1);
}
const clsSequence& seqOf(const Playbook& pb, const AreaEntry& e) { return pb.sequences.at(targetOf(pb, e)); }

// What the game runs from `from`, one command after the other: the jumps (FE,
// FF, and a random branch with chance 0, which always jumps) are taken and not
// listed; other branches are listed and passed. Ends at a command after which
// the game stops, on leaving the area, or on coming back to a command it ran
// (loopsTo).
struct GamePath { Codes codes; int32_t loopsTo = -1; };
GamePath gamePath(const Bytes& image, int32_t from) {
    GamePath path;
    std::set<int32_t> seen;
    for (int32_t a = from; path.codes.size() < 64;) {
        if (!seen.insert(a).second) {
            path.loopsTo = a;
            break;
        }
        GameCommand g;
        if (!readGameCommand(areaBytes(image), a, g)) break;
        if (g.code == 0xFE || g.code == 0xFF || g.code == 0x20) {
            a = g.target;
            continue;
        }
        path.codes.push_back(g.code < 0xC0 ? g.code & 0xF0 : g.code);
        if (!g.fallsThrough) break;
        a += g.length;
    }
    return path;
}

// What the editor shows from `key` on, whatever the layout: each sequence's
// text without a closing jump into the next, the sequences of the chain joined.
std::string chainText(const Playbook& pb, SeqKey key) {
    std::string out;
    std::set<SeqKey> seen;
    for (const clsSequence* s = pb.sequences.find(key); s && seen.insert(key).second; s = pb.sequences.find(key)) {
        std::string text = s->commandString(names());
        key = SeqKey::at(s->nextSequence());
        if (key != SeqKey::at(0)) {  // the closing jump's text is the last item
            const size_t cut = text.rfind("; ", text.size() - 3);
            text.erase(cut == std::string::npos ? 0 : cut + 2);
        }
        out += text + "| ";
    }
    return out;
}

// A sequence's text with each jump's address written as its distance from the sequence's start.
std::string layoutFreeText(const clsSequence& s) {
    const std::string text = s.commandString(names());
    std::string out;
    for (size_t i = 0; i < text.size();) {
        if (text.compare(i, 3, "+A:") != 0 && text.compare(i, 3, "+R:") != 0) {
            out += text[i++];
            continue;
        }
        size_t end = i + 3;
        while (end < text.size() && std::isxdigit(static_cast<unsigned char>(text[end]))) ++end;
        out += text.substr(i, 3) + "start" + std::to_string(std::stol(text.substr(i + 3, end - i - 3), nullptr, 16) - s.address());
        i = end;
    }
    return out;
}

// Every sequence of an opened playbook encodes to the bytes it was read from.
void expectRoundTrip(const Playbook& pb) {
    for (const auto& [key, seq] : pb.sequences) {
        if (key.isNew()) continue;
        EXPECT_EQ(seq.encode(), at(pb.openedBytes, seq.address(), seq.byteSize())) << sequenceKeyText(key);
    }
}

// Saves; "" when the save went through (the reopened image then round-trips),
// else what stopped it.
std::string trySave(test::Opened& o, SaveSummary* summary = nullptr) {
    try {
        const SaveSummary s = saveChanges(o.pb);
        if (summary) *summary = s;
    } catch (const std::exception& e) {
        return e.what();
    }
    expectRoundTrip(o.pb);
    return "";
}

// Saves expecting a refusal in words of `kind` that says `says`; the file stays as it was.
void expectRefused(test::Opened& o, Refusal kind, const std::string& says) {
    const Bytes before = o.file.read();
    try {
        (void)saveChanges(o.pb);
        ADD_FAILURE() << "saved";
    } catch (const VerifyError& e) {
        ADD_FAILURE() << "the save's own check fired: " << e.what();
    } catch (const SaveError& e) {
        EXPECT_EQ(e.kind(), kind) << e.what();
        EXPECT_NE(std::string(e.what()).find(says), std::string::npos) << e.what();
    }
    EXPECT_EQ(o.file.read(), before);
}

// Runs `check` on each case by itself: a failed assertion ends only its case.
template <class Case, class Check>
void eachCase(const std::vector<Case>& cases, Check check) {
    for (const Case& c : cases) { SCOPED_TRACE(c.what); check(c); }
}

// Offsets at which two images differ.
std::vector<int32_t> differences(const Bytes& a, const Bytes& b) {
    std::vector<int32_t> out;
    for (size_t i = 0; i < a.size() && i < b.size(); ++i)
        if (a[i] != b[i]) out.push_back(static_cast<int32_t>(i));
    return out;
}

void grow(Playbook& pb, SeqKey key) { ASSERT_EQ(pb.sequences.at(key).insertCommand(-1, 0xD7), clsSequence::Insert::Done); }

// An image holding `runs` of bytes at their game addresses, pointers 0, 1, ... naming `pointers`.
ImageBuilder image(std::initializer_list<std::pair<int32_t, Bytes>> runs, std::initializer_list<int32_t> pointers) {
    ImageBuilder b;
    for (const auto& [address, bytes] : runs) b.bytesAt(address, bytes);
    int i = 0;
    for (int32_t p : pointers) b.pointer(i++, p);
    return b;
}

// A000 D7 01 02 D3: the editor stops at the long snap; the game goes on at
// A004 (a block, FE 05 to A00A, a move and a celebration). No entry yet.
ImageBuilder longSnapImage() { return image({{0xA000, {0xD7, 1, 2, 0xD3, 0x30, 0xFE, 0x05}}, {0xA00A, {0xD7, 3, 4, 0xC4, 0}}}, {}); }
// B at A200 goes on at A213 through FE 10; nothing else names A213. A000-A1FF is free.
ImageBuilder reachImage() { return image({{0xA200, {0xD7, 1, 2, 0xFE, 0x10}}, {0xA213, {0xD7, 3, 4, 0xC4, 0}}}, {0xA200}); }
// A100 goes on at A180 through FE 7D; A105-A17F hold another sequence, so no
// free run lies within the jump's reach. A190 is a third sequence.
ImageBuilder twoGrowImage() {
    Bytes blocks(0x7B - 2, 0x30);
    blocks.insert(blocks.end(), {0xC4, 0x00});
    return image({{0xA100, {0xD7, 1, 2, 0xFE, 0x7D}}, {0xA105, blocks}, {0xA180, {0xD7, 7, 8, 0xC4, 0}}, {0xA190, {0xD7, 5, 6, 0xC4, 0}}},
                 {0xA100, 0xA190, 0xA105});
}
// The closing jump leads to A003, the sequence's second command (so A003 is a sequence too).
ImageBuilder ownMiddleImage() { return image({{0xA000, {0xD7, 1, 2, 0xD7, 3, 4, 0xFF, 0x03, 0xA0}}}, {0xA000}); }
// Lock-ups in the middle of A000 and of A020, which goes on at A040.
ImageBuilder lockUpImage() {
    return image({{0xA000, {0xD7, 1, 2, 0xDE, 0xF8, 0, 0, 0xF9, 0xC4, 0}},
                  {0xA020, {0xD7, 1, 2, 0xDE, 0xF8, 0, 0, 0xF9, 0xFF, 0x40, 0xA0}},
                  {0xA040, {0xD7, 3, 4, 0xC4, 0}}},
                 {0xA000, 0xA020});
}
// FE FC at A007 loops back to A003 (FC FF E0).
ImageBuilder loopImage() { return image({{0xA000, {0xD7, 1, 2, 0xFC, 0xFF, 0xE0, 0xDD, 0xFE, 0xFC}}}, {0xA000}); }
// Pointer 2 names a sequence at 8100, outside the area.
ImageBuilder outsideImage() {
    return image({{0xA000, {0xC4, 0}}, {0x8100, {0xD7, 1, 2, 0xC4, 0}}}, {0xA000, test::kDeadAddress, 0x8100});
}
// 8103 lies inside 8100, both outside the area (pointers 2 and 3).
ImageBuilder outsideOverlapImage() {
    return image({{0xA000, {0xC4, 0}}, {0x8100, {0xD7, 1, 2, 0xD7, 3, 4, 0xC4, 0}}}, {0xA000, test::kDeadAddress, 0x8100, 0x8103});
}
// Plain sequences ending in the stances.
ImageBuilder stanceImage() { return image({{0xA000, {0xD7, 1, 2, 0xEA}}, {0xA010, {0xD7, 1, 2, 0xEC}}}, {0xA000, 0xA010}); }
// A003 (pointer 1) lies inside A000 (pointer 0).
ImageBuilder overlapImage() { return image({{0xA000, {0xD7, 1, 2, 0xD7, 3, 4, 0xC4, 0}}}, {0xA000, 0xA003}); }
// Pointer 1 enters A000 at its first command's second value, read as a Block (30).
ImageBuilder valueEnteredImage() { return image({{0xA000, {0xD7, 5, 0x30, 0xC4, 0}}}, {0xA000, 0xA002}); }
// A020's closing jump leads to A012, A010's first command's second value, read as a Block (30).
ImageBuilder valueJumpedIntoImage() { return image({{0xA010, {0xD7, 5, 0x30, 0xC4, 0}}, {0xA020, {0x30, 0xFF, 0x12, 0xA0}}}, {0xA010, 0xA020}); }
// 30 FE 05 goes on at A006.
ImageBuilder copyImage() { return image({{0xA000, {0x30, 0xFE, 0x05}}, {0xA006, {0xD7, 1, 2, 0xC4, 0}}}, {0xA000}); }
// Five moves and a block, then FE F0 at A010 loops back to A000.
ImageBuilder longLoopImage() {
    return image({{0xA000, {0xD7, 1, 2, 0xD7, 3, 4, 0xD7, 5, 6, 0xD7, 7, 8, 0xD7, 9, 10, 0x30, 0xFE, 0xF0}}}, {0xA000});
}

TEST(LayoutCases, LongSnapEndKeepsItsCommandsAndWhatTheGameRanAfterIt) {
    struct Case {
        const char* what;
        ImageBuilder image;
        std::function<void(Playbook&)> edit;
        AreaEntry checked;
        std::vector<AreaEntry> sharing;  // entries that must name what `checked` names
    };
    const std::vector<Case> cases{
        {"a command inserted in front", longSnapImage().pointer(0, 0xA000), [](Playbook& pb) { grow(pb, 0xA000_seq); }, pointerEntry(0), {}},
        {"its first command removed", longSnapImage().pointer(0, 0xA000),
         [](Playbook& pb) { ASSERT_TRUE(pb.sequences.at(0xA000_seq).removeCommand(0)); }, pointerEntry(0), {}},
        {"a position of five formations", longSnapImage().formation(4, {0xA000}).formation(5, {0xA000}).formation(6, {0xA000})
                                              .formation(7, {0xA000}).formation(8, {0xA000}),
         [](Playbook& pb) { grow(pb, 0xA000_seq); }, formationEntry(4, 0),
         {formationEntry(5, 0), formationEntry(6, 0), formationEntry(7, 0), formationEntry(8, 0)}},
        {"a new sequence going on at A004", longSnapImage().pointer(0, 0xA000),
         [](Playbook& pb) {
             const SeqKey key = addEmptySequence(pb, 0xC4, false);
             pb.sequences.at(key).setCommands({{0xD3, {}}});
             pb.sequences.at(key).continuation(0xA004);
             setEntryTarget(pb, pointerEntry(1), key);
         },
         pointerEntry(1), {}},
    };
    eachCase(cases, [](const Case& c) {
        DataDir data;
        auto o = test::openBuilt(c.image, data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        const Bytes before = o.file.read();
        c.edit(o.pb);
        const clsSequence& edited = seqOf(o.pb, c.checked);
        const std::string text = edited.commandString(names());
        Codes expected;  // the edited commands, then what the game ran after the long snap
        for (int i = 0; i < edited.commandCount(); ++i) expected.push_back(edited.command(i));
        for (int code : gamePath(before, 0xA004).codes) expected.push_back(code);
        ASSERT_EQ(Codes(expected.end() - 4, expected.end()), (Codes{0xD3, 0x30, 0xD7, 0xC4}));
        ASSERT_EQ(trySave(o), "");
        const clsSequence& back = seqOf(o.pb, c.checked);
        EXPECT_EQ(back.commandString(names()), text);
        EXPECT_EQ(back.command(back.commandCount() - 1), 0xD3);
        EXPECT_EQ(gamePath(o.pb.openedBytes, targetOf(o.pb, c.checked).address()).codes, expected);
        for (const AreaEntry& e : c.sharing) EXPECT_EQ(targetOf(o.pb, e), targetOf(o.pb, c.checked)) << e.name();
    });
}

// After the long snap at A003 the game runs C7 (a branch into A008, the
// middle of the jump FF D7 A0 after it) and that jump to A0D7; from A008 it
// reads D7 A0 00, which runs past the jump's bytes, then C4 00. Moved, the
// sequence takes C7 and the jump along; the branch still leads to A008 (its
// copy would read the bytes after the copy as D7's values). Found by the save
// fuzzer, with a new sequence laid right after the copy.
TEST(LayoutCases, ABranchIntoTheMiddleOfACommandCopiedAfterALongSnapStillLeadsToTheOriginal) {
    DataDir data;
    Bytes blocks(0xA0D5 - 0xA00D, 0x30);  // up to A0D8 all is used: a moved copy stands out of a relative jump's reach of A004
    blocks.insert(blocks.end(), {0xC4, 0x00});
    auto o = test::openBuilt(image({{0xA000, {0xD7, 1, 2, 0xD3, 0xC7, 0x08, 0xA0, 0xFF, 0xD7, 0xA0, 0x00, 0xC4, 0x00}},
                                    {0xA00D, blocks},
                                    {0xA0D7, {0xC4, 0x00}}},
                                   {0xA000, 0xA00D}),
                             data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    grow(o.pb, 0xA000_seq);
    // A new sequence wants the bytes right after wherever the copy ends.
    const SeqKey made = addEmptySequence(o.pb, 0xC4, false);
    o.pb.sequences.at(made).setCommands({{0xD7, {9, 9}}, {0xC4, {0}}});
    setEntryTarget(o.pb, pointerEntry(2), made);
    SaveSummary summary;
    ASSERT_EQ(trySave(o, &summary), "");
    const int32_t moved = targetOf(o.pb, pointerEntry(0)).address();
    ASSERT_NE(moved, 0xA000) << summary.text();
    const Bytes& bytes = o.pb.openedBytes;
    const int32_t snap = moved + static_cast<int32_t>(o.pb.sequences.at(SeqKey::at(moved)).byteSize()) - 1;
    ASSERT_EQ(at(bytes, snap, 1), (Bytes{0xD3}));
    EXPECT_EQ(at(bytes, snap + 1, 6), (Bytes{0xC7, 0x08, 0xA0, 0xFF, 0xD7, 0xA0})) << "the branch leads to the original A008";
    EXPECT_EQ(at(bytes, 0xA004, 9), (Bytes{0xC7, 0x08, 0xA0, 0xFF, 0xD7, 0xA0, 0x00, 0xC4, 0x00})) << "the original stays";
}

// A020 branches out of the area to the game's own code at 9000, which no
// editor sequence holds and which branches back into the middle of A000's
// D7 30 C4: from A007 the game runs 30 and C4 C4. Changing where A000's
// branch leads leaves those bytes as they were, so A000 is rewritten in
// place and the game still runs them from A007 (found by the save fuzzer:
// run seed 0xfbfcf7c506d6f292, an internal error).
TEST(LayoutCases, AWayInFromOutsideTheAreaToTheMiddleOfACommandRunsAsBefore) {
    DataDir data;
    auto o = test::openBuilt(ImageBuilder()
                                 .bytesAt(0xA000, {0xD7, 1, 2, 0xCA, 0x25, 0xA0, 0xD7, 0x30, 0xC4, 0xC4, 0x00})
                                 .bytesAt(0xA020, {0xC7, 0x00, 0x90, 0xC4, 0x00, 0xC4, 0x00, 0xC4, 0x00})
                                 .bytesAt(0x9000, {0xC7, 0x07, 0xA0, 0xC4, 0x00})
                                 .pointer(0, 0xA000)
                                 .pointer(1, 0xA020)
                                 .pointer(2, 0xA027),
                             data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    ASSERT_FALSE(o.pb.sequences.contains(SeqKey::at(0x9000))) << "the game's own code, no sequence of the editor's";
    const Bytes before = o.file.read();
    o.pb.sequences.at(0xA000_seq).data(1, 0, 0x27);  // the branch now leads to A027
    SaveSummary summary;
    ASSERT_EQ(trySave(o, &summary), "");
    EXPECT_EQ(summary.inPlace, 1) << summary.text();
    EXPECT_TRUE(summary.moved.empty()) << summary.text();
    const Bytes& after = o.pb.openedBytes;
    EXPECT_EQ(at(after, 0xA003, 3), (Bytes{0xCA, 0x27, 0xA0}));
    EXPECT_EQ(at(after, 0xA006, 5), at(before, 0xA006, 5));
    EXPECT_EQ(gamePath(after, 0xA007).codes, gamePath(before, 0xA007).codes);
}

TEST(LayoutCases, ClosingJumpIntoItsOwnMiddleStillLeadsThere) {
    struct Case {
        const char* what;
        std::function<void(clsSequence&)> edit;
        int32_t loopAt;  // bytes from the start to the command the jump leads to
        Codes runs;
    };
    const std::vector<Case> cases{
        {"a data value changed", [](clsSequence& s) { s.data(0, 0, 5); }, 3, {0xD7, 0xD7}},
        {"a command inserted", [](clsSequence& s) { ASSERT_EQ(s.insertCommand(-1, 0xD7), clsSequence::Insert::Done); }, 6,
         {0xD7, 0xD7, 0xD7}},
    };
    eachCase(cases, [](const Case& c) {
        DataDir data;
        auto o = test::openBuilt(ownMiddleImage(), data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        c.edit(o.pb.sequences.at(0xA000_seq));
        const std::string text = layoutFreeText(o.pb.sequences.at(0xA000_seq));
        ASSERT_EQ(trySave(o), "");
        const clsSequence& s = seqOf(o.pb, pointerEntry(0));
        EXPECT_EQ(layoutFreeText(s), text);
        EXPECT_EQ(s.nextSequence(), s.address() + c.loopAt);
        const GamePath path = gamePath(o.pb.openedBytes, s.address());
        EXPECT_EQ(path.codes, c.runs);
        EXPECT_EQ(path.loopsTo, s.address() + c.loopAt);
    });
}

// Grown sequences and the ones leading to them: what each pointer's chain
// shows and what the game runs from it stay as edited, and no two of the
// sequences the pointers name share a byte.
TEST(LayoutCases, EditedChainsReopenAsEditedAndRunTheSame) {
    struct Case {
        const char* what;
        ImageBuilder image;
        std::function<void(Playbook&)> edit;
        std::vector<std::pair<int, Codes>> runs;  // pointer, what the game runs from it
    };
    const std::vector<Case> cases{
        {"a sequence reached only through a relative jump grows", reachImage(), [](Playbook& pb) { grow(pb, 0xA213_seq); },
         {{0, {0xD7, 0xD7, 0xD7, 0xC4}}}},
        {"two grow, one with a jump that cannot stay relative", twoGrowImage(),
         [](Playbook& pb) {
             grow(pb, 0xA100_seq);
             grow(pb, 0xA190_seq);
         },
         {{0, {0xD7, 0xD7, 0xD7, 0xC4}}, {1, {0xD7, 0xD7, 0xC4}}}},
        {"lock-ups after a changed value", lockUpImage(), [](Playbook& pb) { pb.sequences.at(0xA000_seq).data(0, 0, 5); },
         {{0, {0xD7, 0xDE}}, {1, {0xD7, 0xDE}}}},
        {"lock-ups after an inserted command", lockUpImage(), [](Playbook& pb) { grow(pb, 0xA000_seq); },
         {{0, {0xD7, 0xD7, 0xDE}}, {1, {0xD7, 0xDE}}}},
        {"lock-ups in a sequence whose closing jump names one that moved", lockUpImage(), [](Playbook& pb) { grow(pb, 0xA040_seq); },
         {{0, {0xD7, 0xDE}}, {1, {0xD7, 0xDE}}}},
    };
    eachCase(cases, [](const Case& c) {
        DataDir data;
        auto o = test::openBuilt(c.image, data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        c.edit(o.pb);
        std::vector<std::string> shown;
        for (const auto& [pointer, runs] : c.runs) shown.push_back(chainText(o.pb, o.pb.seqPointers[static_cast<size_t>(pointer)]));
        ASSERT_EQ(trySave(o), "");
        for (size_t k = 0; k < c.runs.size(); ++k) {
            const auto& [pointer, runs] = c.runs[k];
            const clsSequence& s = seqOf(o.pb, pointerEntry(pointer));
            EXPECT_EQ(chainText(o.pb, s.key()), shown[k]) << "pointer " << pointer;
            EXPECT_EQ(gamePath(o.pb.openedBytes, s.address()).codes, runs) << "pointer " << pointer;
            for (size_t l = 0; l < k; ++l) {
                const clsSequence& t = seqOf(o.pb, pointerEntry(c.runs[l].first));
                EXPECT_TRUE(s.address() + s.byteSize() <= t.address() || t.address() + t.byteSize() <= s.address())
                    << s.AddressRange() << " and " << t.AddressRange();
            }
        }
    });
}

TEST(LayoutCases, LoopBackIntoTheMiddleFollowsItsCommand) {
    struct Case {
        const char* what;
        int inserted;  // commands inserted at the top after the first was removed
        Codes runs;
    };
    const std::vector<Case> cases{{"first command removed", 0, {0xFC, 0xDD}}, {"and two inserted", 2, {0xD7, 0xD7, 0xFC, 0xDD}}};
    eachCase(cases, [](const Case& c) {
        DataDir data;
        auto o = test::openBuilt(loopImage(), data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        clsSequence& s = o.pb.sequences.at(0xA000_seq);
        ASSERT_TRUE(s.removeCommand(0));
        for (int i = 0; i < c.inserted; ++i) ASSERT_EQ(s.insertCommand(-1, 0xD7), clsSequence::Insert::Done);
        const std::string chain = chainText(o.pb, 0xA000_seq);
        ASSERT_EQ(trySave(o), "");
        const clsSequence& back = seqOf(o.pb, pointerEntry(0));
        EXPECT_EQ(chainText(o.pb, back.key()), chain);
        const GamePath path = gamePath(o.pb.openedBytes, back.address());
        EXPECT_EQ(path.codes, c.runs);
        ASSERT_GE(path.loopsTo, back.address());
        ASSERT_LT(path.loopsTo, back.address() + back.byteSize());
        EXPECT_EQ(at(o.pb.openedBytes, path.loopsTo, 3), (Bytes{0xFC, 0xFF, 0xE0})) << "the loop leads elsewhere";
    });
}

TEST(LayoutCases, KickFormationNamingAPlainSequenceWithAStanceIsRefusedInWords) {
    // Named directly, or through a new sequence (read the kick way) whose closing jump leads there.
    for (const auto& [formation, key, throughNew] : {std::tuple{0, 0xA000, false}, std::tuple{3, 0xA010, false}, std::tuple{1, 0xA010, true}}) {
        SCOPED_TRACE(formation);
        DataDir data;
        auto o = test::openBuilt(stanceImage(), data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        SeqKey named = SeqKey::at(key);
        if (throughNew) {
            named = addEmptySequence(o.pb, 0xC4, true);
            o.pb.sequences.at(named).setCommands({{0xD7, {1, 2}}, {0xFF, {key & 0xFF, key >> 8}}});
            ASSERT_EQ(o.pb.sequences.at(named).nextSequence(), key);
        }
        setEntryTarget(o.pb, formationEntry(formation, 0), named);
        expectRefused(o, Refusal::MisreadEntry, sequenceName(SeqKey::at(key)) + " is read the other way");
    }
}

// A new sequence for a kick formation's position jumps to A020, where no
// sequence starts: the open after the save would read it there the kick way,
// where its stance goes on into a jump below the image. Refused in words.
TEST(LayoutCases, AChainRunningOnToBytesTheOpenCannotReadIsRefusedInWords) {
    DataDir data;
    auto o = test::openBuilt(stanceImage().bytesAt(0xA020, {0xEC, 0xFF, 0x00, 0x05}), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    ASSERT_FALSE(o.pb.sequences.contains(0xA020_seq));
    const SeqKey made = addEmptySequence(o.pb, 0xC4, true);
    o.pb.sequences.at(made).setCommands({{0xD7, {1, 2}}, {0xFF, {0x20, 0xA0}}});
    setEntryTarget(o.pb, formationEntry(1, 0), made);
    expectRefused(o, Refusal::WouldNotReopen, "formation 1 QB would run on to A020, which no sequence starts");
}

// A210 (D7, FE F0) loops back to A203, the second command of the plain
// sequence A200, whose stance the game goes on past into FF 00 05. A210
// grows and must move. Where a free run within the loop back's reach exists
// it goes there and its loop back stays one. Where none does, the loop back
// is made absolute, a way on for the editor: the open after the save reads a
// sequence at A203, the way A210 is read. Read the plain way that is the
// stance's end; read the kick formations' way it runs on below the image,
// which is refused in words.
TEST(LayoutCases, ALoopBackIntoAnotherSequenceStaysOneOrIsRefusedInWords) {
    struct Case {
        const char* what;
        bool kick;      // A210 is named by a kick formation (else by a pointer)
        bool crowded;   // a sequence fills the bytes after A210 that the loop back reaches
        bool saves;
    };
    const std::vector<Case> cases{
        {"kick, a free run within reach", true, false, true},
        {"plain, a free run within reach", false, false, true},
        {"plain, none within reach", false, true, true},
        {"kick, none within reach", true, true, false},
    };
    eachCase(cases, [](const Case& c) {
        ImageBuilder b = image({{0xA200, {0xD7, 1, 2, 0xD7, 3, 4, 0xEA, 0xFF, 0x00, 0x05}}, {0xA210, {0xD7, 5, 6, 0xFE, 0xF0}}}, {0xA200});
        if (c.kick) b.formation(0, {0xA210});
        else b.pointer(2, 0xA210);
        if (c.crowded) {
            Bytes blocks(0x8B, 0x30);
            blocks.insert(blocks.end(), {0xC4, 0x00});
            b.bytesAt(0xA215, blocks).pointer(1, 0xA215);
        }
        DataDir data;
        auto o = test::openBuilt(b, data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        ASSERT_FALSE(o.pb.sequences.contains(0xA203_seq));
        grow(o.pb, 0xA210_seq);
        const AreaEntry entry = c.kick ? formationEntry(0, 0) : pointerEntry(2);
        if (!c.saves) {
            expectRefused(o, Refusal::WouldNotReopen, "A210 must move where its loop back cannot reach A203");
            return;
        }
        ASSERT_EQ(trySave(o), "");
        const clsSequence& moved = seqOf(o.pb, entry);
        ASSERT_EQ(moved.commandCount(), 3);
        EXPECT_EQ(moved.fieldTarget(2), 0xA203);
        EXPECT_EQ(moved.command(2), c.crowded ? 0xFF : 0xFE);
        EXPECT_EQ(o.pb.sequences.contains(0xA203_seq), c.crowded) << "the open reads on at A203 only after an absolute jump";
        const GamePath path = gamePath(o.pb.openedBytes, moved.address());
        EXPECT_EQ(path.codes, (Codes{0xD7, 0xD7, 0xD7, 0xEA}));
    });
}

// A100 (D7, DE, FE EC) loops back to A0F0, a free byte (the game hangs at DE
// first). Grown, it moves where the loop back still reaches A0F0 from after
// it: never over A0F0 itself, which would make it loop into its own copy.
TEST(LayoutCases, AMovedSequenceIsNotPlacedOverItsOwnLoopBacksTarget) {
    DataDir data;
    auto o = test::openBuilt(image({{0xA100, {0xD7, 1, 2, 0xDE, 0xFE, 0xEC}}, {0xA106, {0xD7, 3, 4, 0xC4, 0}}}, {0xA100, 0xA106}), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    ASSERT_EQ(o.pb.sequences.at(0xA100_seq).fieldTarget(2), 0xA0F0);
    grow(o.pb, 0xA100_seq);
    ASSERT_EQ(trySave(o), "");
    const clsSequence& moved = seqOf(o.pb, pointerEntry(0));
    EXPECT_GT(moved.address(), 0xA0F0);
    EXPECT_EQ(moved.command(moved.commandCount() - 1), 0xFE);
    EXPECT_EQ(moved.fieldTarget(moved.commandCount() - 1), 0xA0F0);
}

// A data edit that fits is written where the sequence stands: one byte
// changes, no entry, nothing moves. A command two overlapping sequences both
// show is one command: changed in either, it is changed where the game runs
// it, and both show the change (a moved copy of one would run nowhere: the
// game reaches that command only through the other).
TEST(LayoutCases, DataEditIsWrittenInPlace) {
    struct Case {
        const char* what;
        ImageBuilder image;
        int32_t key;
        int pos, index;     // the data value changed
        int32_t changedAt;  // the one byte that changes
        int inPlace;        // sequences written in place: those showing the changed command
    };
    const std::vector<Case> cases{
        {"another entry names its second command", overlapImage(), 0xA000, 0, 1, 0xA002, 1},
        {"the command another entry names, changed there", overlapImage(), 0xA003, 0, 0, 0xA004, 2},
        {"the same command, changed in the sequence around it", overlapImage(), 0xA000, 1, 1, 0xA005, 2},
        {"its closing jump names its second command", ownMiddleImage(), 0xA000, 0, 0, 0xA001, 1},
        {"the command its closing jump names, changed in the sequence read from there", ownMiddleImage(), 0xA003, 0, 0, 0xA004, 2},
        {"the command its closing jump names, changed in the sequence around it", ownMiddleImage(), 0xA000, 1, 1, 0xA005, 2},
        {"it lies outside the area", outsideImage(), 0x8100, 0, 0, 0x8101, 1},
        {"another entry enters the middle of a command, reading none of the changed bytes", valueEnteredImage(), 0xA000, 0, 0, 0xA001, 1},
        {"another sequence's jump leads into the middle of a command, reading none of the changed bytes", valueJumpedIntoImage(), 0xA010, 0, 0,
         0xA011, 1},
    };
    eachCase(cases, [](const Case& c) {
        DataDir data;
        auto o = test::openBuilt(c.image, data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        ASSERT_TRUE(o.pb.sequences.contains(SeqKey::at(c.key)));
        ASSERT_GE(o.pb.sequences.size(), 2u) << "the other sequence is there";
        const Bytes before = o.file.read();
        o.pb.sequences.at(SeqKey::at(c.key)).data(c.pos, c.index, 9);
        SaveSummary s;
        ASSERT_EQ(trySave(o, &s), "");
        EXPECT_EQ(differences(before, o.file.read()), std::vector<int32_t>{offsetOfAddress(c.changedAt)});
        EXPECT_EQ(at(o.file.read(), c.changedAt, 1), Bytes{9});
        EXPECT_TRUE(s.moved.empty());
        EXPECT_EQ(s.inPlace, c.inPlace) << s.text();
        EXPECT_EQ(s.leftOnOldCopies, 0) << s.text();
        // Every sequence holding the byte reads the new value there.
        for (const auto& [key, seq] : o.pb.sequences) {
            if (c.changedAt < key.address() || c.changedAt >= key.address() + seq.byteSize()) continue;
            EXPECT_EQ(seq.encode()[static_cast<size_t>(c.changedAt - key.address())], 9) << hex4(key.address());
        }
    });
}

// The same entry into the middle of a command, but the change is to the
// byte it reads as a command of its own: that entry keeps what it ran (the
// old bytes stay), and the changed sequence runs from a copy.
TEST(LayoutCases, AChangedByteAnotherEntryReadsMovesTheSequence) {
    DataDir data;
    auto o = test::openBuilt(valueEnteredImage(), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    o.pb.sequences.at(0xA000_seq).data(0, 1, 0x31);
    SaveSummary s;
    ASSERT_EQ(trySave(o, &s), "");
    EXPECT_EQ(s.moved.size(), 1u) << s.text();
    EXPECT_EQ(at(o.file.read(), 0xA002, 1), Bytes{0x30}) << "pointer 1 still runs its Block";
    EXPECT_EQ(seqOf(o.pb, pointerEntry(0)).commands()[0].data[1], 0x31);
}

// A command two sequences show, changed in both: the same way, it is one
// change (also for Full Save, which writes each sequence apart); two
// different ways, each sequence keeps its own, in copies of their own.
TEST(LayoutCases, ACommandTwoSequencesShowIsOneCommand) {
    {
        DataDir data;
        auto o = test::openBuilt(ownMiddleImage(), data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        o.pb.sequences.at(0xA003_seq).data(0, 0, 9);
        fullSave(o.pb);
        const clsSequence& first = seqOf(o.pb, pointerEntry(0));
        ASSERT_EQ(first.commandCount(), 3);
        EXPECT_EQ(first.commands()[1].data[0], 9) << "the sequence around it shows the change";
        const clsSequence& loop = o.pb.sequences.at(SeqKey::at(first.nextSequence()));
        EXPECT_EQ(loop.commands()[0].data[0], 9);
    }
    DataDir data;
    auto o = test::openBuilt(overlapImage(), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    o.pb.sequences.at(0xA000_seq).data(1, 0, 9);
    o.pb.sequences.at(0xA003_seq).data(0, 0, 7);
    SaveSummary s;
    ASSERT_EQ(trySave(o, &s), "");
    EXPECT_EQ(s.moved.size(), 2u) << s.text();
    EXPECT_EQ(seqOf(o.pb, pointerEntry(0)).commands()[1].data[0], 9);
    EXPECT_EQ(seqOf(o.pb, pointerEntry(1)).commands()[0].data[0], 7);
}

// Where one command's new value cannot be written once for every sequence
// showing it, each keeps what it reads: the old bytes stay, the changed
// sequence moves. A COM pass at B000 reads its receiver's address in the
// bytes B003's Random Pause shows as values; outside the area overlapping
// sequences are not written in place; a sequence that grows moves, and a
// branch into its old copy (from B020) runs the old bytes, not half an edit.
TEST(LayoutCases, ACommandOnlySomeReadersCanTakeKeepsItsOldBytes) {
    struct Case {
        const char* what;
        ImageBuilder image;
        std::function<void(Playbook&)> edit;
        int32_t keptFrom, keptCount;  // bytes the save leaves as they were
        size_t moved;
    };
    const std::vector<Case> cases{
        {"a COM pass reads the value as its receiver's address",
         image({{0xB000, {0x92, 0x43, 0x64, 0xF5, 0x06, 0xA1, 0xE4}}, {0xA106, {0xD7, 1, 2, 0xC4, 0}}}, {0xB000, 0xB003}),
         [](Playbook& pb) { pb.sequences.at(0xB003_seq).data(0, 0, 13); }, 0xB000, 7, 1},
        {"outside the area", outsideOverlapImage(), [](Playbook& pb) { pb.sequences.at(0x8103_seq).data(0, 0, 9); }, 0x8100, 8, 1},
        {"the other sequence grows",
         image({{0xB000, {0xD7, 1, 2, 0xD7, 3, 4, 0xE4}}, {0xB020, {0xC7, 0x03, 0xB0, 0xD7, 1, 1, 0xE4}}}, {0xB020, 0xB000, 0xB003}),
         [](Playbook& pb) {
             pb.sequences.at(0xB000_seq).data(1, 0, 5);
             grow(pb, 0xB003_seq);
         },
         0xB000, 7, 2},
    };
    eachCase(cases, [](const Case& c) {
        DataDir data;
        auto o = test::openBuilt(c.image, data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        const Bytes before = o.file.read();
        c.edit(o.pb);
        SaveSummary s;
        ASSERT_EQ(trySave(o, &s), "");
        EXPECT_EQ(at(o.file.read(), c.keptFrom, c.keptCount), at(before, c.keptFrom, c.keptCount));
        EXPECT_EQ(s.moved.size(), c.moved) << s.text();
    });
}

// A091's Random Pause holds, in its bytes A093-A094, the address the COM
// pass at A090 hands its receiver (A020). Changing them is a change of where
// the receiver goes: to a command the game runs it saves, elsewhere it is
// refused in words and nothing is written.
TEST(LayoutCases, BytesACOMPassReadsAsItsReceiverLeadOnlyToCommands) {
    const ImageBuilder built = image({{0xA000, {0xD7, 1, 2, 0xC4, 0}},
                                      {0xA010, {0x30, 0xC4, 0}},
                                      {0xA020, {0xD7, 3, 4, 0xC4, 0}},
                                      {0xA090, {0x91, 0x11, 0xF5, 0x20, 0xA0, 0xE4, 0xC4, 0}}},
                                     {0xA000, 0xA010, 0xA020, 0xA090});
    for (const auto& [high, ok] : {std::pair{0xA0, true}, std::pair{0xB0, false}}) {
        SCOPED_TRACE(high);
        DataDir data;
        auto o = test::openBuilt(built, data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        const Bytes before = o.file.read();
        o.pb.sequences.at(0xA090_seq).data(1, 0, 0x10);  // receiver A010, or B010 where nothing runs
        o.pb.sequences.at(0xA090_seq).data(1, 1, static_cast<int16_t>(high));
        const std::string refusal = trySave(o);
        if (ok) {
            ASSERT_EQ(refusal, "");
            EXPECT_EQ(at(o.file.read(), 0xA093, 2), (Bytes{0x10, 0xA0}));
        } else {
            EXPECT_NE(refusal.find("the address the COM pass at A090 hands its receiver (A020)"), std::string::npos) << refusal;
            EXPECT_NE(refusal.find("B010, where the game runs no command"), std::string::npos) << refusal;
            EXPECT_EQ(o.file.read(), before);
        }
    }
}

// The game goes on after A000's stance into A004, and reads FF FF 10 there: a
// jump out of the area through the first bytes of A005's jump. When A010
// grows and moves, A005's jump cannot follow it where it stands (the game's
// jump at A004 would lead elsewhere): A005 moves too, and A004 keeps its bytes.
TEST(LayoutCases, JumpWhoseBytesTheGameReadsOtherwiseMovesRatherThanChangeThem) {
    DataDir data;
    auto o = test::openBuilt(image({{0xA000, {0xD7, 1, 2, 0xEC, 0xFF}}, {0xA005, {0xFF, 0x10, 0xA0}}, {0xA010, {0xD7, 3, 4, 0xC4, 0}}},
                                   {0xA000, 0xA005, 0xA010}),
                             data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    const Bytes before = o.file.read();
    grow(o.pb, 0xA010_seq);
    const std::string chain = chainText(o.pb, 0xA005_seq);
    ASSERT_EQ(trySave(o), "");
    EXPECT_EQ(at(o.file.read(), 0xA004, 4), at(before, 0xA004, 4));
    EXPECT_NE(targetOf(o.pb, pointerEntry(1)), 0xA005_seq);
    EXPECT_EQ(chainText(o.pb, targetOf(o.pb, pointerEntry(1))), chain);
}

// A000 hangs at its lock-up before the branch to its Human Control; the game
// never went on after it, so A009 on holds bytes it never ran. An edit that
// lets the game reach the Human Control (the lock-up removed, or the branch
// put in front of it) would run them: refused in words, nothing written.
TEST(LayoutCases, GameReachingAnEndALockUpKeptItFromIsRefusedInWords) {
    const ImageBuilder built = image({{0xA000, {0xD7, 1, 2, 0xDE, 0xC7, 0x08, 0xA0, 0x30, 0xE4, 0x31, 0x32}}}, {0xA000});
    struct Case {
        const char* what;
        std::function<bool(clsSequence&)> edit;
    };
    const std::vector<Case> cases{
        {"the lock-up removed", [](clsSequence& s) { return s.removeCommand(1); }},
        {"the branch put in front of the lock-up", [](clsSequence& s) { return s.swapCommands(1, 2); }},
    };
    eachCase(cases, [&](const Case& c) {
        DataDir data;
        auto o = test::openBuilt(built, data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        const Bytes before = o.file.read();
        ASSERT_TRUE(c.edit(o.pb.sequences.at(0xA000_seq)));
        const std::string refusal = trySave(o);
        EXPECT_NE(refusal.find("after which the game goes on at A009, where it ran nothing before"), std::string::npos) << refusal;
        EXPECT_EQ(o.file.read(), before);
    });
    // The same outside the area: 9000 hangs before its Human Control, after which 9007 would lead into the area.
    DataDir data;
    auto o = test::openBuilt(image({{0xA000, {0xC4, 0}}, {0x9000, {0xD7, 1, 2, 0xF8, 0, 0, 0xE4, 0xFF, 0x30, 0xA0}}}, {0xA000, 0x9000}), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    const Bytes before = o.file.read();
    ASSERT_TRUE(o.pb.sequences.at(0x9000_seq).removeCommand(1));
    const std::string refusal = trySave(o);
    EXPECT_NE(refusal.find("after which the game goes on at 9007, where it ran nothing before"), std::string::npos) << refusal;
    EXPECT_EQ(o.file.read(), before);
}

// Play 0's first player reads his commands from the pointer table on (6E00).
// A save that moves A000 rewrites pointer 0, so the game would run other
// commands for him: refused in words, whether or not the open found a
// sequence there.
TEST(LayoutCases, AnEntryReadingTheTablesASaveRewritesIsRefusedInWords) {
    for (const int32_t at : {0x6E00, 0x6DFF}) {
        SCOPED_TRACE(at);
        DataDir data;
        auto o = test::openBuilt(image({{0xA000, {0xD7, 1, 2, 0xC4, 0}}}, {0xA000}).playPlayer(0, 0, at), data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        const Bytes before = o.file.read();
        grow(o.pb, 0xA000_seq);
        const std::string refusal = trySave(o);
        EXPECT_NE(refusal.find("this save rewrites"), std::string::npos) << refusal;
        EXPECT_EQ(o.file.read(), before);
    }
}

// After 9000's Human Control (pointer 1) the game jumps to 6DFF, the last
// byte of the play table, and reads FF 00 A0 there: a jump whose address is
// pointer 0. A save that moves A000 rewrites pointer 0, so that jump would
// lead elsewhere: refused in words, nothing written.
TEST(LayoutCases, TableBytesTheGameRunsAsCommandsAreNotRewritten) {
    DataDir data;
    auto o = test::openBuilt(image({{0xA000, {0xD7, 1, 2, 0xC4, 0}}, {0x9000, {0xD7, 3, 4, 0xE4, 0xFF, 0xFF, 0x6D}}}, {0xA000, 0x9000}),
                             data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    const Bytes before = o.file.read();
    grow(o.pb, 0xA000_seq);
    const std::string refusal = trySave(o);
    EXPECT_NE(refusal.find("the game runs the bytes at 6DFF as a command"), std::string::npos) << refusal;
    EXPECT_EQ(o.file.read(), before);
}

// Kick formation 0 names C000, where the open reads Blocks up to FFFF without
// an end (the kick reading goes on past a stance); D000 (pointer 1), which the
// plain reading ends at its stance, lies among those bytes. Changing D000's
// values where it stands would change what the game runs from C000: D000
// moves into the area instead, and C000 on keeps every byte.
TEST(LayoutCases, ASequenceAmongBytesAnEntryReadsWithoutAnEndMoves) {
    DataDir data;
    auto o = test::openBuilt(image({{0xA000, {0xD7, 1, 2, 0xC4, 0}}}, {0xA000, 0xD000})
                                 .fill(offsetOfAddress(0xC000), 0x4000, 0x30)
                                 .bytesAt(0xD000, {0xD7, 1, 2, 0xEA})
                                 .formation(0, {0xC000}),
                             data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    ASSERT_FALSE(o.pb.sequences.contains(0xC000_seq)) << "C000 starts no valid sequence";
    const Bytes before = o.file.read();
    o.pb.sequences.at(0xD000_seq).data(0, 0, 9);
    SaveSummary s;
    ASSERT_EQ(trySave(o, &s), "");
    EXPECT_EQ(at(o.file.read(), 0xC000, 0x3FFF), at(before, 0xC000, 0x3FFF));
    EXPECT_TRUE(inArea(targetOf(o.pb, pointerEntry(1)).address())) << s.text();
    EXPECT_EQ(seqOf(o.pb, pointerEntry(1)).data(0, 0), 9);
}

// The game hangs at A000's lock-up (F8), so it never ran A020, which the
// editor reads as A000's next sequence; A024 on is free. Pointer 2 is set to
// A020: the game now runs it and goes on after its Human Control at A024.
// A040 grows and moves: not into A024, which the game now runs.
TEST(LayoutCases, WhatTheGameNowRunsFromAnEditedEntryIsNoFreeRun) {
    Bytes first{0xD7, 1, 2, 0xF8, 0, 0};
    first.insert(first.end(), 0x20 - 6 - 3, 0x30);
    first.insert(first.end(), {0xFF, 0x20, 0xA0});
    DataDir data;
    auto o = test::openBuilt(image({{0xA000, first}, {0xA020, {0xD7, 3, 4, 0xE4}}, {0xA040, {0xD7, 5, 6, 0xC4, 0}}}, {0xA000, 0xA040}),
                             data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    ASSERT_TRUE(o.pb.sequences.contains(0xA020_seq));
    const Bytes before = o.file.read();
    setEntryTarget(o.pb, pointerEntry(2), 0xA020_seq);
    grow(o.pb, 0xA040_seq);
    SaveSummary s;
    ASSERT_EQ(trySave(o, &s), "");
    EXPECT_EQ(at(o.file.read(), 0xA024, 3), at(before, 0xA024, 3)) << s.text();
    EXPECT_GT(targetOf(o.pb, pointerEntry(1)), 0xA026_seq);
}

// A012 jumps out of the area to 9000, where the game runs a block and jumps
// back to A030: the game runs A030 though no sequence of the area leads there.
// A030 is no free run: a grown sequence moves past it.
TEST(LayoutCases, WhereTheGameComesBackFromOutsideTheAreaIsNoFreeRun) {
    DataDir data;
    auto o = test::openBuilt(image({{0xA000, {0xD7, 1, 2, 0xC4, 0}},
                                    {0xA010, {0x30, 0x30, 0xFF, 0x00, 0x90}},
                                    {0x9000, {0x30, 0xFF, 0x30, 0xA0}},
                                    {0xA030, {0xD7, 3, 4, 0xC4, 0}}},
                                   {0xA000, 0xA010}),
                             data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    const Bytes before = o.file.read();
    for (int i = 0; i < 8; ++i) grow(o.pb, 0xA000_seq);  // 29 bytes: only A015-A02F and past A034 are free
    SaveSummary s;
    ASSERT_EQ(trySave(o, &s), "");
    EXPECT_EQ(at(o.file.read(), 0xA030, 5), at(before, 0xA030, 5)) << s.text();
}

// An edit of bytes another path of the game reads cannot be written where the
// sequence stands: it moves, and what that path runs keeps its bytes.
//  - The game goes on after 9000's Human Control (pointer 1) into the
//    computer's logic at 9004, which jumps to A001, where the game reads 01 02
//    as a command of its own; no editor sequence shows that jump. A000's
//    first value is that byte.
//  - 8100, outside the area, is run from its start by pointer 2 and from its
//    second command by the branch at 8200 (pointer 3), which only the game
//    follows. The edit is of that second command: 8100 moves into the area.
TEST(LayoutCases, BytesAnotherPathReadsKeepTheirValues) {
    struct Case {
        const char* what;
        ImageBuilder image;
        int32_t key;
        int pos;
        int32_t kept;  // the bytes that stay, from here
        int size;
        AreaEntry entry;  // the entry that now names the moved copy
    };
    const std::vector<Case> cases{
        {"a jump from outside the area into its first value",
         image({{0xA000, {0xD7, 1, 2, 0xC4, 0}}, {0x9000, {0xD7, 3, 4, 0xE4, 0xFF, 0x01, 0xA0}}}, {0xA000, 0x9000}), 0xA000, 0, 0xA001, 2,
         pointerEntry(0)},
        {"a branch outside the area into its second command",
         image({{0xA000, {0xC4, 0}}, {0x8100, {0xD7, 1, 2, 0xD7, 3, 4, 0xC4, 0}}, {0x8200, {0xC7, 0x03, 0x81, 0xC4, 0}}},
               {0xA000, test::kDeadAddress, 0x8100, 0x8200}),
         0x8100, 1, 0x8100, 8, pointerEntry(2)},
    };
    eachCase(cases, [](const Case& c) {
        DataDir data;
        auto o = test::openBuilt(c.image, data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        ASSERT_FALSE(o.pb.sequences.contains(0x8103_seq)) << "only the game's branch enters there";
        const Bytes before = o.file.read();
        o.pb.sequences.at(SeqKey::at(c.key)).data(c.pos, 0, 9);
        SaveSummary s;
        ASSERT_EQ(trySave(o, &s), "");
        EXPECT_EQ(at(o.file.read(), c.kept, c.size), at(before, c.kept, c.size)) << s.text();
        const SeqKey moved = targetOf(o.pb, c.entry);
        EXPECT_NE(moved, SeqKey::at(c.key));
        ASSERT_TRUE(inArea(moved.address())) << s.text();
        EXPECT_EQ(o.pb.sequences.at(moved).data(c.pos, 0), 9);
        if (c.key == 0x8100) {
            EXPECT_EQ(targetOf(o.pb, pointerEntry(3)), 0x8200_seq);
        }
    });
}

TEST(LayoutCases, CopyOfARelativeContinuationShowsAndSavesIt) {
    DataDir data;
    auto o = test::openBuilt(copyImage(), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    const std::string original = o.pb.sequences.at(0xA000_seq).commandString(names());
    ASSERT_TRUE(original.ends_with("+R:A006; ")) << original;
    const SeqKey copy = addCopyOf(o.pb, 0xA000_seq);
    EXPECT_EQ(o.pb.sequences.at(copy).commandString(names()), original);
    EXPECT_EQ(o.pb.sequences.at(copy).nextSequence(), 0xA006);
    setEntryTarget(o.pb, pointerEntry(1), copy);
    const std::string chain = chainText(o.pb, copy);
    ASSERT_EQ(trySave(o), "");
    EXPECT_EQ(chainText(o.pb, targetOf(o.pb, pointerEntry(1))), chain);
    EXPECT_EQ(seqOf(o.pb, pointerEntry(1)).nextSequence(), 0xA006);
}

TEST(LayoutCases, LoopBackOutOfReachAfterInsertsShowsWhatSaveWrites) {
    DataDir data;
    auto o = test::openBuilt(longLoopImage(), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    clsSequence& s = o.pb.sequences.at(0xA000_seq);
    ASSERT_EQ(s.command(5), 0x30);
    for (int i = 0; i < 50; ++i) ASSERT_EQ(s.insertCommand(5, 0xD7), clsSequence::Insert::Done);
    const int32_t size = s.byteSize();
    const std::string text = layoutFreeText(s);
    ASSERT_EQ(trySave(o), "");
    const clsSequence& back = seqOf(o.pb, pointerEntry(0));
    EXPECT_EQ(back.byteSize(), size);
    const std::string saved = layoutFreeText(back);
    EXPECT_TRUE(saved == text) << "shown ..." << text.substr(text.size() - 40) << " saved ..." << saved.substr(saved.size() - 40);
    EXPECT_EQ(gamePath(o.pb.openedBytes, back.address()).loopsTo, back.address()) << "the loop leads to the first move";
}

// Every image above opens into sequences that encode to the bytes they were read from.
TEST(LayoutCases, OpenedSequencesEncodeToTheirBytes) {
    const std::vector<std::pair<const char*, ImageBuilder>> images{
        {"long snap", longSnapImage().pointer(0, 0xA000).formation(4, {0xA000})}, {"reach", reachImage()},
        {"two grow", twoGrowImage()}, {"own middle", ownMiddleImage()}, {"lock-ups", lockUpImage()}, {"loop", loopImage()},
        {"outside", outsideImage()}, {"stances", stanceImage()}, {"overlap", overlapImage()}, {"copy", copyImage()},
        {"long loop", longLoopImage()}};
    for (const auto& [what, built] : images) {
        SCOPED_TRACE(what);
        DataDir data;
        auto o = test::openBuilt(built, data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        ASSERT_FALSE(o.pb.sequences.empty());
        expectRoundTrip(o.pb);
    }
}

// Full Save lays the sequences out from A000 in the order they were found,
// turns only a closing forward relative jump into FF with its target's new
// address, writes every other field as it stood, fills the rest with FF and
// remaps the table entries.
TEST(FullSaveExact, BytesAndEntriesAsComputedByHand) {
    DataDir data;
    auto o = test::openBuilt(ImageBuilder()
                                 .bytesAt(0xA200, {0xC7, 0x06, 0xA2, 0xD7, 0x01, 0x02, 0x30, 0xFE, 0xFF})  // C7 to its 30, FE FF back to it
                                 .bytesAt(0xA100, {0xD7, 0x03, 0x04, 0xFE, 0x40})                          // FE at A103 to A143
                                 .bytesAt(0xA143, {0xD7, 0x05, 0x06, 0xC4, 0x00})
                                 .formation(4, {0xA200})
                                 .pointer(0, 0xA100)
                                 .play(0, {0xA143, 0xFFFF, 0xA100}),
                             data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    ASSERT_EQ(o.pb.sequences.keys(), (std::vector<SeqKey>{0xA200_seq, 0xA100_seq, 0xA143_seq}));
    fullSave(o.pb);
    const Bytes after = o.file.read();
    EXPECT_EQ(at(after, 0xA000, 20), (Bytes{0xC7, 0x06, 0xA2, 0xD7, 0x01, 0x02, 0x30, 0xFE, 0xFF,  // as it stood
                                            0xD7, 0x03, 0x04, 0xFF, 0x0F, 0xA0,                    // to A143's new place
                                            0xD7, 0x05, 0x06, 0xC4, 0x00}));
    EXPECT_EQ(at(after, 0xA014, kSequenceAreaSize - 20), Bytes(kSequenceAreaSize - 20, 0xFF));
    auto word = [&](int32_t offset) { return after[static_cast<size_t>(offset)] + 256 * after[static_cast<size_t>(offset) + 1]; };
    EXPECT_EQ(word(formationEntryOffset(4, 0)), 0xA000);
    EXPECT_EQ(word(formationEntryOffset(4, 1)), test::kDeadAddress);
    EXPECT_EQ(word(pointerEntryOffset(0)), 0xA009);
    EXPECT_EQ(word(pointerEntryOffset(1)), test::kDeadAddress);
    EXPECT_EQ(word(playEntryOffset(0, 0)), 0xA00F);
    EXPECT_EQ(word(playEntryOffset(0, 1)), 0xFFFF);
    EXPECT_EQ(word(playEntryOffset(0, 2)), 0xA009);
    EXPECT_EQ(o.pb.sequences.keys(), (std::vector<SeqKey>{0xA000_seq, 0xA009_seq, 0xA00F_seq}));
    fullSave(o.pb);
    EXPECT_EQ(o.file.read(), after) << "a second Full Save writes the same file";
}

// A command the game runs just before the area (here a jump at 9FFF, reached
// by a branch) takes its operands from the area's first bytes: they are the
// game's, not free, and a sequence that has to move goes elsewhere.
TEST(SaveLayout, AreaBytesACommandBeforeTheAreaReadsAreNotFree) {
    DataDir data;
    auto o = test::openBuilt(ImageBuilder()
                                 .bytesAt(0x9FFF, {0xFF, 0x20, 0xA1})
                                 .bytesAt(0xA120, {0xC7, 0xFF, 0x9F, 0xC4, 0x00})
                                 .bytesAt(0xA200, {0xD7, 0x01, 0x01, 0xC4, 0x00})
                                 .pointer(0, 0xA120)
                                 .pointer(1, 0xA200),
                             data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    ASSERT_FALSE(o.pb.sequences.contains(0x9FFF_seq)) << "only the game's branch goes there";
    grow(o.pb, 0xA200_seq);
    SaveSummary s;
    ASSERT_EQ(trySave(o, &s), "");
    ASSERT_EQ(s.moved.size(), 1u) << s.text();
    EXPECT_NE(s.moved[0].second, 0xA000) << s.text();
    EXPECT_EQ(at(o.file.read(), 0x9FFF, 3), (Bytes{0xFF, 0x20, 0xA1}));
}

// A sequence whose Human Control ends the area: the game ran off its end
// after it before (a fault `zpe check` names), and a data value changed in it
// changes nothing of that, so it is written in place, not refused as though
// the game now went on somewhere new.
TEST(SaveLayout, ADataChangeInASequenceTheGameRunsOffTheAreaFromStaysInPlace) {
    DataDir data;
    // Every other entry ends at A000 (none enters the bytes the builder's dead entry had).
    ImageBuilder b;
    b.bytesAt(0xA000, {0xC4, 0x00}).bytesAt(0xBFF9, {0xD7, 0x00, 0x10, 0xD7, 0x00, 0x10, 0xE4});
    for (int f = 0; f < test::kDefaultFormationCount; ++f)
        for (int j = 0; j < kPlayersPerRecord; ++j) b.formationPlayer(f, j, 0xA000);
    for (int p = 0; p < kPlayCount; ++p)
        for (int j = 0; j < kPlayersPerRecord; ++j) b.playPlayer(p, j, 0xA000);
    for (int k = 1; k < kPointerCount; ++k) b.pointer(k, 0xA000);
    auto o = test::openBuilt(b.pointer(0, 0xBFF9), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    o.pb.sequences.at(0xBFF9_seq).data(0, 0, 1);
    SaveSummary s;
    ASSERT_EQ(trySave(o, &s), "");
    EXPECT_TRUE(s.moved.empty()) << s.text();
    EXPECT_EQ(at(o.file.read(), 0xBFF9, 7), (Bytes{0xD7, 0x01, 0x10, 0xD7, 0x00, 0x10, 0xE4}));
}

// A moved sequence the game still falls into from the command before it
// (the computer's logic after a Human Control) keeps a reference on its old
// copy, and the summary counts it as it counts a branch.
TEST(SaveLayout, AFallThroughIntoAMovedSequencesOldStartIsALeftReference) {
    DataDir data;
    auto o = test::openBuilt(ImageBuilder()
                                 .bytesAt(0xA000, {0xD7, 0x01, 0x01, 0xE4})
                                 .bytesAt(0xA004, {0xD7, 0x02, 0x02, 0xC4, 0x00})
                                 .pointer(0, 0xA000)
                                 .pointer(1, 0xA004),
                             data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    grow(o.pb, 0xA004_seq);
    SaveSummary s;
    ASSERT_EQ(trySave(o, &s), "");
    ASSERT_EQ(s.moved.size(), 1u) << s.text();
    EXPECT_EQ(s.leftOnOldCopies, 1) << s.text();
    EXPECT_EQ(at(o.file.read(), 0xA004, 5), (Bytes{0xD7, 0x02, 0x02, 0xC4, 0x00})) << "the old copy the game falls into stays";
}

}  // namespace
}  // namespace zpe
