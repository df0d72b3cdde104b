// IPS patches: written from two images, applied back, refused when broken.
#include "save/ips.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(Ips, RoundTripsLongRunsAndBothEnds) {
    Bytes original(0x30000, 0x11);
    Bytes edited = original;
    edited.front() = 0x22;
    edited.back() = 0x33;
    for (size_t i = 0x100; i < 0x100 + 0x1FFFF; ++i) edited[i] = 0x44;  // longer than one record holds
    const Bytes patch = makeIps(original, edited);
    EXPECT_EQ(Bytes(patch.begin(), patch.begin() + 5), (Bytes{'P', 'A', 'T', 'C', 'H'}));
    EXPECT_EQ(Bytes(patch.end() - 3, patch.end()), (Bytes{'E', 'O', 'F'}));
    // Records: byte 0, the run in two full records and a rest, the last byte.
    EXPECT_EQ(patch.size(), 5 + (5 + 1) + (5 + 0xFFFF) * 2 + (5 + 1) + (5 + 1) + 3);
    EXPECT_EQ(applyIps(original, patch, 1 << 22), edited);
    EXPECT_EQ(applyIps(original, makeIps(original, original), 1 << 22), original);
    const Bytes shorter(original.begin(), original.end() - 10);
    EXPECT_EQ(applyIps(original, makeIps(original, shorter), 1 << 22), shorter);
}

TEST(Ips, BrokenPatchesAreRefused) {
    const Bytes image(16, 0);
    const Bytes good = makeIps(image, Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2});
    for (size_t cut : {size_t{3}, size_t{7}, size_t{11}, good.size() - 2})
        EXPECT_THROW(static_cast<void>(applyIps(image, Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(cut)), 1 << 22)),
                     PatchError)
            << cut;
    EXPECT_THROW(static_cast<void>(applyIps(image, {'P', 'A', 'T', 'C', 'X', 'E', 'O', 'F'}, 1 << 22)), PatchError);
    // Three bytes after "EOF" that would cut nothing are not a real trailer.
    EXPECT_THROW(static_cast<void>(applyIps(image, {'P', 'A', 'T', 'C', 'H', 'E', 'O', 'F', 0, 0, 17}, 1 << 22)), PatchError);
    // A record far beyond the limit.
    EXPECT_THROW(static_cast<void>(applyIps(image, {'P', 'A', 'T', 'C', 'H', 0xFF, 0, 0, 0, 1, 9, 'E', 'O', 'F'}, 1 << 20)),
                 PatchError);
}

}  // namespace
}  // namespace zpe
