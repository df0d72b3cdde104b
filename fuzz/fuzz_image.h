#pragma once
// The image a fuzz input stands for: its first bytes cover the formation,
// play and pointer tables, the next the sequence area, and what is left over
// the slot tables. Shared by the fuzzers that open whole images.
#include "model/image.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zpe::fuzz {

inline std::vector<uint8_t> imageFromInput(const uint8_t* data, size_t size) {
    std::vector<uint8_t> bytes(0x28000, 0xFF);
    const size_t tables = kPointerTableOffset + 2 * kPointerCount - kFormationTableOffset;
    for (size_t i = 0; i < size; ++i) {
        const size_t at = i < tables ? kFormationTableOffset + i
                                     : i < tables + kSequenceAreaSize ? kSequenceAreaOffset + (i - tables)
                                                                      : kOffSlotTableOffset + (i - tables - kSequenceAreaSize) % 0x200;
        bytes[at] = data[i];
    }
    return bytes;
}

// The input imageFromInput turns into an image holding `image`'s tables,
// sequence area and first 0x200 bytes of slot records.
inline std::vector<uint8_t> inputFromImage(const std::vector<uint8_t>& image) {
    const size_t tables = kPointerTableOffset + 2 * kPointerCount - kFormationTableOffset;
    std::vector<uint8_t> input;
    input.reserve(tables + kSequenceAreaSize + 0x200);
    input.insert(input.end(), image.begin() + kFormationTableOffset, image.begin() + kFormationTableOffset + static_cast<std::ptrdiff_t>(tables));
    input.insert(input.end(), image.begin() + kSequenceAreaOffset, image.begin() + kSequenceAreaOffset + kSequenceAreaSize);
    input.insert(input.end(), image.begin() + kOffSlotTableOffset, image.begin() + kOffSlotTableOffset + 0x200);
    return input;
}

inline std::vector<std::string> formationNames() { return std::vector<std::string>(22, "F"); }

}  // namespace zpe::fuzz
