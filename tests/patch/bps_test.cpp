// BPS patches on the demo image: round trips (the same size, growing,
// shrinking, a slot swap), and refusals that name why.
#include "patch/bps.h"
#include "support/image_builder.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(Bps, RoundTripsOnTheDemoImageGrowingAndShrinking) {
    const Bytes demo = test::readFileBytes(ZPE_DEMO_IMAGE);
    ASSERT_GT(demo.size(), 0x10000u);
    Bytes edited = demo;
    for (size_t i = 0; i < 60; ++i) std::swap(edited[0x4010 + i], edited[0x4010 + 0x400 + i]);  // bytes moved elsewhere
    edited[0x8010] ^= 0xFF;
    Bytes grown = edited;
    grown.insert(grown.end(), 5000, 0xEA);
    const Bytes shrunk(edited.begin(), edited.begin() + 0x9000);
    for (const Bytes& target : {edited, grown, shrunk, demo}) {
        const Bytes patch = makeBps(demo, target);
        EXPECT_TRUE(isBps(patch));
        EXPECT_EQ(applyBps(demo, patch, 1 << 22), target);
        EXPECT_EQ(applyPatch(demo, patch, 1 << 22), target) << "chosen by its header";
    }
    // Moved bytes are copied from the source, not carried: a small patch.
    EXPECT_LT(makeBps(demo, edited).size(), 100u);
}

TEST(Bps, RefusedForAnotherImageADamagedPatchOrOutOfBounds) {
    const Bytes source(4096, 0x11);
    Bytes target = source;
    target[100] = 0x22;
    const Bytes patch = makeBps(source, target);
    Bytes other = source;
    other[5] = 0;
    auto refusal = [](const Bytes& image, const Bytes& p) {
        try {
            (void)applyBps(image, p, 1 << 22);
        } catch (const PatchError& e) {
            return std::string(e.what());
        }
        return std::string("applied");
    };
    EXPECT_EQ(refusal(other, patch).find("this patch is for another image: source CRC32 "), 0u) << refusal(other, patch);
    EXPECT_NE(refusal(other, patch).find(", this image "), std::string::npos);
    Bytes damaged = patch;
    damaged[8] ^= 1;
    EXPECT_EQ(refusal(source, damaged), "the patch is damaged (its own CRC32 does not match)");
    EXPECT_EQ(refusal(source, Bytes{'B', 'P', 'S', '1'}), "the patch is too short to be a BPS patch");
    // A well-formed patch (its own CRC right) that promises more than it writes.
    Bytes lying(patch.begin(), patch.end() - 12);
    lying[6] = 0x01;  // the target size 4096 (00 9F) becomes 4097 (01 9F): the same actions stop short
    lying.insert(lying.end(), patch.end() - 12, patch.end() - 4);
    const uint32_t crc = crc32Of(lying);
    for (int i = 0; i < 4; ++i) lying.push_back(static_cast<uint8_t>(crc >> (8 * i)));
    EXPECT_NE(refusal(source, lying).find("writes 4096 of the target's 4097 bytes"), std::string::npos) << refusal(source, lying);
}

}  // namespace
}  // namespace zpe
