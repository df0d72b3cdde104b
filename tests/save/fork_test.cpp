// Who uses a sequence, and a copy of it for one entry.
#include "analysis/references.h"
#include "save/fork.h"
#include "save/saves.h"
#include "support/game_trace.h"
#include "support/playbook_fixture.h"

#include <gtest/gtest.h>

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
    const References a = referencesTo(o.pb, 0xA000);
    std::vector<std::string> names;
    for (const AreaEntry& e : a.entries) names.push_back(e.name());
    EXPECT_EQ(names, (std::vector<std::string>{"pointer 0", "play 0 player 0", "play 1 player 1", "formation 4 position 0"}));
    ASSERT_EQ(a.fields.size(), 1u);
    EXPECT_EQ(a.fields[0].at, 0xA010);
    EXPECT_EQ(a.fields[0].code, 0xC7);
    const References loop = referencesTo(o.pb, 0xA013);  // the F3 the loop back returns to
    ASSERT_EQ(loop.fields.size(), 1u);
    EXPECT_EQ(loop.fields[0].at, 0xA015);
}

TEST(Fork, OneEntryGetsItsOwnCopyAndNothingElseChanges) {
    DataDir data;
    for (const AreaEntry entry : {AreaEntry{AreaEntry::Table::Play, 1, 1, 0xA000}, AreaEntry{AreaEntry::Table::Formation, 4, 0, 0xA000},
                                  AreaEntry{AreaEntry::Table::Pointer, 1, 0, 0xA010}}) {
        SCOPED_TRACE(entry.name());
        auto o = test::openBuilt(sharedImage(), data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        const Playbook before = o.pb;
        const ForkSummary s = forkEntry(o.pb, entry, data.path());
        EXPECT_EQ(s.text().find(entry.name() + " now runs its own copy of " + hex4(entry.target) + " at "), 0u) << s.text();
        const std::vector<AreaEntry> was = playbookEntries(before), now = playbookEntries(o.pb);
        for (size_t e = 0; e < was.size(); ++e)
            if (was[e].name() != entry.name()) {
                EXPECT_EQ(now[e].target, was[e].target) << was[e].name();
            }
        const int32_t copy = s.to;
        EXPECT_EQ(gameCodes(o.pb, copy), gameCodes(before, entry.target)) << "the copy runs what the original ran";
        EXPECT_EQ(gameCodes(o.pb, entry.target), gameCodes(before, entry.target)) << "the original is as it was";
    }
    // Human Control's logic comes along: the copy of A000 is seven bytes, E4 DF FE FF included.
    auto o = test::openBuilt(sharedImage(), data);
    ASSERT_EQ(planFork(o.pb, {AreaEntry::Table::Play, 0, 0, 0xA000}).summary.size, 7);
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
        (void)forkEntry(o.pb, {AreaEntry::Table::Pointer, 2, 0, 0xA020}, data.path());  // the long path itself
        ADD_FAILURE() << "forked";
    } catch (const SaveError& e) {
        EXPECT_NE(std::string(e.what()).find("zpe compact makes room"), std::string::npos) << e.what();
    }
    EXPECT_EQ(o.file.read(), before);
}

}  // namespace
}  // namespace zpe
