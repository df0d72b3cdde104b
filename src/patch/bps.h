#pragma once
// BPS patches: "BPS1", the source, target and metadata sizes, actions that
// read from the source, the patch or what was already written, and the
// CRC-32 of the source, the target and the patch itself. Unlike IPS a BPS
// patch says which file it is for, so one applied to another image is refused.
// Also the one entry point that applies either kind, chosen by the header.
#include "save/ips.h"

#include <cstdint>
#include <span>
#include <vector>

namespace zpe {

// The CRC-32 of `bytes` (zlib's: the polynomial of PNG and of BPS).
[[nodiscard]] uint32_t crc32Of(std::span<const uint8_t> bytes);

// The patch that turns `source` into `target`: what stands in the same place
// is read from the source, what stands elsewhere in the source (eight bytes
// or more) is copied from there, everything else is carried in the patch.
[[nodiscard]] std::vector<uint8_t> makeBps(const std::vector<uint8_t>& source, const std::vector<uint8_t>& target);

// `source` with `patch` applied. Throws PatchError, naming the reason, for a
// patch whose own checksum fails, one made for another file ("this patch is
// for another image: source CRC32 1A2B3C4D, this image 5E6F7A8B"), an action
// reading or writing out of bounds, a target larger than `maxSize`, or a
// result whose size or checksum is not the one the patch promises.
[[nodiscard]] std::vector<uint8_t> applyBps(const std::vector<uint8_t>& source, const std::vector<uint8_t>& patch, int64_t maxSize);

// True when `patch` starts as a BPS patch does.
[[nodiscard]] bool isBps(const std::vector<uint8_t>& patch);
// Applies a BPS or an IPS patch, by its header.
[[nodiscard]] std::vector<uint8_t> applyPatch(const std::vector<uint8_t>& image, const std::vector<uint8_t>& patch, int64_t maxSize);

}  // namespace zpe
