// Who uses a sequence, and a copy of it for one entry.
#include "analysis/entries.h"
#include "analysis/references.h"
#include "save/compact.h"
#include "save/fork.h"
#include "save/save_changes.h"
#include "save/saves.h"
#include "support/game_trace.h"
#include "support/playbook_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace zpe {
namespace {

using test::DataDir;
using test::ImageBuilder;
using Bytes = std::vector<uint8_t>;
using test::gameCodes;

// A000 (Human Control, then the computer's logic at A004) is used by plays 0
// and 1, pointer 0 and formation 4; A010 branches to it and loops on itself.
ImageBuilder sharedImage() {
    return ImageBuilder()
        .bytesAt(0xA000, {0xD7, 0x01, 0x02, 0xE4, 0xDF, 0xFE, 0xFF})
        .bytesAt(0xA010, {0xC7, 0x00, 0xA0, 0xF3, 0x05, 0xFE, 0xFE})
        .pointer(0, 0xA000).pointer(1, 0xA010)
        .play(0, {0xA000}).play(1, {0xA010, 0xA000})
        .formation(4, {0xA000});
}


TEST(References, EntriesInTableOrderAndEveryFieldThatLeadsThere) {
    DataDir data;
    auto o = test::openBuilt(sharedImage(), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    const References a = referencesTo(o.pb, 0xA000_seq);
    std::vector<std::string> names;
    for (const AreaEntry& e : a.entries) names.push_back(e.name());
    EXPECT_EQ(names, (std::vector<std::string>{"pointer 0", "play 0 (0) QB", "play 1 (1) RB", "formation 4 QB"}));
    ASSERT_EQ(a.fields.size(), 1u);
    EXPECT_EQ(a.fields[0].at, 0xA010);
    EXPECT_EQ(a.fields[0].code, 0xC7);
    const References loop = referencesTo(o.pb, 0xA013_seq);  // the F3 the loop back returns to
    ASSERT_EQ(loop.fields.size(), 1u);
    EXPECT_EQ(loop.fields[0].at, 0xA015);
}

TEST(Fork, OneEntryGetsItsOwnCopyAndNothingElseChanges) {
    DataDir data;
    for (const AreaEntry entry : {AreaEntry{AreaEntry::Table::Play, 1, 1, 0xA000_seq}, AreaEntry{AreaEntry::Table::Formation, 4, 0, 0xA000_seq},
                                  AreaEntry{AreaEntry::Table::Pointer, 1, 0, 0xA010_seq}}) {
        SCOPED_TRACE(entry.name());
        auto o = test::openBuilt(sharedImage(), data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        const Playbook before = o.pb;
        const ForkSummary s = forkEntry(o.pb, entry, data.path());
        EXPECT_EQ(s.text().find(entry.name() + " now runs its own copy of " + hex4(entry.target.address()) + " at "), 0u) << s.text();
        const std::vector<AreaEntry> was = playbookEntries(before), now = playbookEntries(o.pb);
        for (size_t e = 0; e < was.size(); ++e)
            if (was[e].name() != entry.name()) {
                EXPECT_EQ(now[e].target, was[e].target) << was[e].name();
            }
        const int32_t copy = s.to;
        EXPECT_EQ(test::runOrder(o.pb, copy), test::runOrder(before, entry.target.address())) << "the copy runs what the original ran";
        EXPECT_EQ(gameCodes(o.pb, entry.target), gameCodes(before, entry.target)) << "the original is as it was";
    }
    // Human Control's logic is where the copy goes on: after its four bytes a
    // relative jump back to A004, two bytes, in the free run right after A000.
    auto o = test::openBuilt(sharedImage(), data);
    const ForkPlan plan = planFork(o.pb, {AreaEntry::Table::Play, 0, 0, 0xA000_seq});
    EXPECT_EQ(plan.summary.size, 6);
    EXPECT_EQ(plan.summary.to, 0xA007);
}

TEST(Fork, RefusedWhenNoFreeRunHoldsTheCopy) {
    DataDir data;
    ImageBuilder full = sharedImage();
    std::vector<uint8_t> stand;
    for (int i = 0; i < 8192 - 0x20; i += 2) stand.insert(stand.end(), {0xF3, 0x01});  // one long path the game runs
    stand[stand.size() - 2] = 0xE4;
    stand[stand.size() - 1] = 0xC2;
    full.bytesAt(0xA020, stand).pointer(2, 0xA020);
    auto o = test::openBuilt(full, data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    const Bytes before = o.file.read();
    try {
        (void)forkEntry(o.pb, {AreaEntry::Table::Pointer, 2, 0, 0xA020_seq}, data.path());  // the long path itself
        ADD_FAILURE() << "forked";
    } catch (const SaveError& e) {
        EXPECT_NE(std::string(e.what()).find("zpe compact makes room"), std::string::npos) << e.what();
    }
    EXPECT_EQ(o.file.read(), before);
}

// The editor's own copies and new sequences: made in the model, placed by Save,
// read back before they land.
TEST(NewSequences, ACopyForOneEntryAnEmptyOneAndAnotherEntryThroughSave) {
    DataDir data;
    auto o = test::openBuilt(sharedImage(), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    const Playbook before = o.pb;
    const AreaEntry qb{AreaEntry::Table::Play, 1, 1, 0xA000_seq}, rb{AreaEntry::Table::Play, 0, 1, {}};
    const AreaEntry other{AreaEntry::Table::Play, 0, 2, {}};

    // Play 1's player 1 gets a copy of A000 with another first step; the copy
    // keeps the computer's logic after Human Control by a jump back to A004.
    const SeqKey copy = addCopyOf(o.pb, 0xA000_seq);
    setEntryTarget(o.pb, qb, copy);
    o.pb.sequences.at(copy).data(0, 0, 9);
    EXPECT_EQ(entriesNaming(o.pb, 0xA000_seq).size(), 3u);
    // Player 1 of play 0 gets a new sequence: a step, then the end chosen.
    const int16_t end = newSequenceEnds(false).front();
    const SeqKey made = addEmptySequence(o.pb, end, false);
    ASSERT_EQ(o.pb.sequences.at(made).insertCommand(-1, 0xD7), clsSequence::Insert::Done);
    setEntryTarget(o.pb, rb, made);
    setEntryTarget(o.pb, other, 0xA010_seq);  // and player 2 runs A010
    (void)addCopyOf(o.pb, 0xA010_seq);       // a copy nothing names is not written
    EXPECT_THROW((void)addEmptySequence(o.pb, 0xE4, false), std::invalid_argument);  // the game goes on after it

    const SaveSummary s = saveChanges(o.pb);
    ASSERT_EQ(s.placed.size(), 2u) << s.text();
    const SeqKey copyAt = o.pb.plays[1].seqAddress(1), madeAt = o.pb.plays[0].seqAddress(1);
    EXPECT_EQ(copyAt, SeqKey::at(s.placed[0].second));
    EXPECT_EQ(madeAt, SeqKey::at(s.placed[1].second));
    EXPECT_EQ(o.pb.plays[0].seqAddress(2), 0xA010_seq);
    // The copy runs what A000 ran, its first step changed; A000 and every other entry are as they were.
    std::vector<uint8_t> runs = gameCodes(o.pb, copyAt), ran = gameCodes(before, 0xA000);
    ran.push_back(0xFF);  // the jump back to the logic after Human Control, relative or absolute
    std::replace(runs.begin(), runs.end(), uint8_t{0xFE}, uint8_t{0xFF});
    std::replace(ran.begin(), ran.end(), uint8_t{0xFE}, uint8_t{0xFF});
    std::sort(runs.begin(), runs.end());
    std::sort(ran.begin(), ran.end());
    EXPECT_EQ(runs, ran);
    EXPECT_EQ(o.pb.sequences.at(copyAt).data(0, 0), 9);
    EXPECT_EQ(gameCodes(o.pb, 0xA000), gameCodes(before, 0xA000));
    EXPECT_EQ(gameCodes(o.pb, madeAt), (std::vector<uint8_t>{0xD7, static_cast<uint8_t>(end)}));
    const std::vector<AreaEntry> was = playbookEntries(before), now = playbookEntries(o.pb);
    for (const AreaEntry& e : now)
        if (e.name() != qb.name() && e.name() != rb.name() && e.name() != other.name()) {
            EXPECT_EQ(e.target, std::find_if(was.begin(), was.end(), [&](const AreaEntry& w) { return w.name() == e.name(); })->target) << e.name();
        }
}

TEST(NewSequences, CompactAndSaveCarriesThemAndWhereTheyGoOn) {
    DataDir data;
    // A040 (Human Control, then the computer's logic at A044) behind 64 bytes nothing uses: compaction moves both to A000.
    const ImageBuilder image = ImageBuilder()
                                   .bytesAt(0xA040, {0xD7, 0x01, 0x02, 0xE4, 0xDF, 0xFE, 0xFF})
                                   .pointer(0, 0xA040)
                                   .play(0, {0xA040})
                                   .play(1, {0xA040});
    auto o = test::openBuilt(image, data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    const Playbook before = o.pb;
    setEntryTarget(o.pb, {AreaEntry::Table::Play, 1, 0, {}}, addCopyOf(o.pb, 0xA040_seq));
    const CompactSaveSummary s = compactAndSave(o.pb, data.path());
    ASSERT_EQ(s.saved.placed.size(), 1u);
    EXPECT_EQ(o.pb.plays[0].seqAddress(0), 0xA000_seq);
    std::vector<uint8_t> runs = gameCodes(o.pb, o.pb.plays[1].seqAddress(0)), ran = gameCodes(before, 0xA040);
    ran.push_back(0xFF);
    std::replace(runs.begin(), runs.end(), uint8_t{0xFE}, uint8_t{0xFF});
    std::replace(ran.begin(), ran.end(), uint8_t{0xFE}, uint8_t{0xFF});
    std::sort(runs.begin(), runs.end());
    std::sort(ran.begin(), ran.end());
    EXPECT_EQ(runs, ran) << "the copy goes on where A000's logic now stands";
}

}  // namespace
}  // namespace zpe
