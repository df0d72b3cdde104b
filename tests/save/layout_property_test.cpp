// Over the fuzzers' structured images (Long Snap, Human Control, lock-ups,
// overlapping, outside-area and kick sequences, loops into the middle):
// every sequence encodes to the bytes it was read from; after edits, what the
// model shows (text, size, follow-on) is what its bytes read back as; and a
// Save either refuses in words or writes bytes whose every written sequence
// reads back as the model holds it.
#include "../../fuzz/fuzz_image.h"
#include "../../fuzz/structured_image.h"
#include "playbook/open_rom.h"
#include "save/save_changes.h"
#include "save/verify_write.h"
#include "sequence/catalogue.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

std::vector<uint8_t> bytesAt(const std::vector<uint8_t>& image, int32_t address, int32_t size) {
    const auto o = static_cast<size_t>(offsetOfAddress(address));
    return std::vector<uint8_t>(image.begin() + static_cast<std::ptrdiff_t>(o),
                                image.begin() + static_cast<std::ptrdiff_t>(o) + size);
}

// `seq`'s own bytes decoded again where it stands, read the same way.
clsSequence readBack(const clsSequence& seq) {
    std::vector<uint8_t> image(static_cast<size_t>(offsetOfAddress(seq.address())), 0);
    const std::vector<uint8_t> bytes = seq.encode();
    image.insert(image.end(), bytes.begin(), bytes.end());
    Image img("back", image);
    img.seekOffset(offsetOfAddress(seq.address()));
    clsSequence back;
    back.reset(seq.address());
    back.load(img, seq.kick());
    return back;
}

void expectShownIsWritten(const clsSequence& seq, const std::string& where) {
    const CmdNames names = defaultCmdNames();
    const clsSequence back = readBack(seq);
    EXPECT_EQ(static_cast<int32_t>(seq.encode().size()), seq.byteSize()) << where;
    EXPECT_EQ(back.byteSize(), seq.byteSize()) << where;
    EXPECT_EQ(back.commandString(names), seq.commandString(names)) << where;
    EXPECT_EQ(back.nextSequence(), seq.nextSequence()) << where;
}

TEST(LayoutProperty, DecodeEditEncodeDecodeAgreeAndSavesReadBack) {
    uint64_t state = 0x5EED;
    auto next = [&](uint32_t bound) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return static_cast<uint32_t>(state % bound);
    };
    int saved = 0;
    for (uint64_t seed = 1; seed <= 40; ++seed) {
        const fuzz::StructuredImage built = fuzz::structuredImage(seed);
        Image image("property.nes", built.bytes);
        Playbook pb = loadPlaybook(image, fuzz::formationNames());
        pb.openedBytes = built.bytes;
        pb.openComplete = true;
        std::vector<SeqKey> placed;
        for (const auto& [key, seq] : pb.sequences) {
            if (seq.address() < kSequenceAreaAddress - 0x2000) continue;
            EXPECT_EQ(seq.encode(), bytesAt(built.bytes, key.address(), seq.byteSize())) << "seed " << seed << " sequence " << hex4(key.address());
            placed.push_back(key);
        }
        ASSERT_FALSE(placed.empty());
        for (int e = 0; e < 12; ++e) {
            clsSequence& seq = pb.sequences.at(placed[next(static_cast<uint32_t>(placed.size()))]);
            const int pos = static_cast<int>(next(static_cast<uint32_t>(seq.commandCount())));
            switch (next(3)) {
            case 0: (void)seq.insertCommand(pos - 1, 0xD7); break;
            case 1: (void)seq.removeCommand(pos); break;
            default:
                if (seq.dataLen(pos) > 0)
                    seq.data(pos, 0, static_cast<int16_t>(next(seq.command(pos) < 0xC0 ? 16 : 256)));
                break;
            }
            ASSERT_EQ(seq.verify(), "") << "seed " << seed;
            expectShownIsWritten(seq, "seed " + std::to_string(seed) + " sequence " + hex4(seq.address()));
        }
        try {
            (void)planSave(pb, built.bytes);  // its own check reads every written sequence back
            ++saved;
        } catch (const VerifyError& err) {
            ADD_FAILURE() << "seed " << seed << ": " << err.what();
        } catch (const SaveError&) {
            // a refusal in words: no room, a COM pass that would move, ...
        }
    }
    EXPECT_GT(saved, 10) << "most edits save";
}

}  // namespace
}  // namespace zpe
