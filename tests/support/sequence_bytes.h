#pragma once
// Decoding sequences stated inline as bytes:
//   auto seq = decodeBytes({0x30, 0x51, 0xFE, 0x05});          // at 0xA000
//   auto kick = decodeBytes({0xEA, 0xE4}, /*KR=*/true, 0xA100);
// The bytes are placed at the game address in an otherwise empty image that
// ends right after them, so a sequence without an end command runs into the end.
#include "model/image.h"
#include "support/seq_keys.h"
#include "sequence/sequence.h"

#include <cstdint>
#include <vector>

namespace zpe::test {

inline clsSequence decodeBytes(const std::vector<uint8_t>& bytes, bool KR = false, int32_t address = 0xA000) {
    std::vector<uint8_t> image(static_cast<size_t>(offsetOfAddress(address)), 0);
    image.insert(image.end(), bytes.begin(), bytes.end());
    Image img("inline.nes", std::move(image));
    clsSequence seq;
    seq.reset(address);
    img.seekOffset(offsetOfAddress(address));
    seq.load(img, KR);
    return seq;
}

}  // namespace zpe::test
