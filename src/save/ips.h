#pragma once
// IPS patches, the form in which this hobby shares its changes: "PATCH", then
// records (a 3-byte big-endian offset, a 2-byte size and that many bytes, or
// size 0 with a 2-byte count and one byte repeated), then "EOF", optionally
// followed by a 3-byte size the patched file is cut to.
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace zpe {

// A patch that cannot be applied: the message says why and where.
class PatchError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The patch that turns `original` into `edited`: one record per run of
// differing bytes, runs longer than 0xFFFF bytes split. An `edited` shorter
// than `original` ends with the size to cut to.
[[nodiscard]] std::vector<uint8_t> makeIps(const std::vector<uint8_t>& original, const std::vector<uint8_t>& edited);

// `image` with `patch` applied. Throws PatchError for a patch without the
// header or the "EOF" trailer, a record cut short, a size after "EOF" larger
// than the file it would cut, or a result larger than `maxSize`; nothing is
// applied then.
[[nodiscard]] std::vector<uint8_t> applyIps(std::vector<uint8_t> image, const std::vector<uint8_t>& patch, int64_t maxSize);

}  // namespace zpe
