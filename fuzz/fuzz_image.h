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

inline std::vector<std::string> formationNames() { return std::vector<std::string>(22, "F"); }

}  // namespace zpe::fuzz
