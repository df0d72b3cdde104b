#include "patch/bps.h"

#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace zpe {

namespace {

constexpr uint8_t kMagic[] = {'B', 'P', 'S', '1'};
constexpr size_t kFooterSize = 12;
enum Action : uint64_t { SourceRead = 0, TargetRead = 1, SourceCopy = 2, TargetCopy = 3 };
// A copy from elsewhere in the source pays when it is at least this long.
constexpr size_t kMinCopy = 8;

std::string crcText(uint32_t crc) {
    char text[9];
    std::snprintf(text, sizeof text, "%08X", crc);
    return text;
}

void putNumber(std::vector<uint8_t>& out, uint64_t value) {
    for (;;) {
        const auto x = static_cast<uint8_t>(value & 0x7F);
        value >>= 7;
        if (value == 0) {
            out.push_back(0x80 | x);
            return;
        }
        out.push_back(x);
        --value;
    }
}

void put32(std::vector<uint8_t>& out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

uint32_t get32(const std::vector<uint8_t>& in, size_t at) {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v |= static_cast<uint32_t>(in[at + static_cast<size_t>(i)]) << (8 * i);
    return v;
}

// Reads the patch's numbers and bytes, never past `end`.
struct Reader {
    const std::vector<uint8_t>& patch;
    size_t p;
    size_t end;
    uint64_t number() {
        uint64_t value = 0, shift = 1;
        for (int n = 0;; ++n) {
            if (p >= end) throw PatchError("the patch ends inside a number at byte " + std::to_string(p));
            if (n > 8) throw PatchError("a number at byte " + std::to_string(p) + " is too large");
            const uint8_t x = patch[p++];
            value += (x & 0x7F) * shift;
            if (x & 0x80) return value;
            shift <<= 7;
            value += shift;
        }
    }
};

void action(std::vector<uint8_t>& out, Action kind, size_t length) { putNumber(out, ((length - 1) << 2) | kind); }

}  // namespace

uint32_t crc32Of(std::span<const uint8_t> bytes) {
    uLong crc = crc32(0L, Z_NULL, 0);
    // zlib takes at most 4 GiB at a time.
    for (size_t at = 0; at < bytes.size();) {
        const size_t n = std::min<size_t>(bytes.size() - at, 1u << 30);
        crc = crc32(crc, bytes.data() + at, static_cast<uInt>(n));
        at += n;
    }
    return static_cast<uint32_t>(crc);
}

bool isBps(const std::vector<uint8_t>& patch) {
    return patch.size() >= 4 && std::equal(std::begin(kMagic), std::end(kMagic), patch.begin());
}

std::vector<uint8_t> makeBps(const std::vector<uint8_t>& source, const std::vector<uint8_t>& target) {
    std::vector<uint8_t> out(std::begin(kMagic), std::end(kMagic));
    putNumber(out, source.size());
    putNumber(out, target.size());
    putNumber(out, 0);  // no metadata

    // Where the eight-byte runs starting at every fourth byte of the source
    // stand (the first of equal ones), in a flat table with open addressing:
    // time and memory grow linearly with the source (a quarter of its
    // positions, 32 bits each, the table half full). A copy from any other
    // place is still found, at most three bytes later.
    auto key = [](const std::vector<uint8_t>& b, size_t at) {
        uint64_t k = 0;
        for (size_t i = 0; i < kMinCopy; ++i) k = (k << 8) | b[at + i];
        return k;
    };
    constexpr size_t kStride = 4;
    size_t slots = 16;
    while (slots < 2 * (source.size() / kStride + 1)) slots *= 2;
    std::vector<uint32_t> table(slots, 0);  // a source place + 1; 0: empty
    auto slotOf = [&](uint64_t k) { return static_cast<size_t>((k * 0x9E3779B97F4A7C15ULL) >> 20) & (slots - 1); };
    for (size_t i = 0; i + kMinCopy <= source.size(); i += kStride) {
        const uint64_t k = key(source, i);
        size_t s = slotOf(k);
        while (table[s] != 0 && key(source, table[s] - 1) != k) s = (s + 1) & (slots - 1);
        if (table[s] == 0) table[s] = static_cast<uint32_t>(i + 1);
    }
    auto find = [&](uint64_t k) -> int64_t {
        for (size_t s = slotOf(k); table[s] != 0; s = (s + 1) & (slots - 1))
            if (key(source, table[s] - 1) == k) return table[s] - 1;
        return -1;
    };

    size_t at = 0, literal = 0;  // literal: where the bytes not yet written out start
    int64_t sourceCursor = 0;
    auto flushLiteral = [&] {
        if (literal == at) return;
        action(out, TargetRead, at - literal);
        out.insert(out.end(), target.begin() + static_cast<std::ptrdiff_t>(literal), target.begin() + static_cast<std::ptrdiff_t>(at));
    };
    while (at < target.size()) {
        size_t same = 0;  // bytes equal to the source's at the same place
        while (at + same < target.size() && at + same < source.size() && target[at + same] == source[at + same]) ++same;
        if (same >= 4 || (same > 0 && at + same == target.size())) {
            flushLiteral();
            action(out, SourceRead, same);
            at += same;
            literal = at;
            continue;
        }
        if (at + kMinCopy <= target.size()) {
            if (const int64_t found = find(key(target, at)); found >= 0) {
                size_t from = static_cast<size_t>(found), length = 0;
                while (at + length < target.size() && from + length < source.size() && target[at + length] == source[from + length])
                    ++length;
                flushLiteral();
                action(out, SourceCopy, length);
                const int64_t offset = static_cast<int64_t>(from) - sourceCursor;
                putNumber(out, (static_cast<uint64_t>(offset < 0 ? -offset : offset) << 1) | (offset < 0 ? 1 : 0));
                sourceCursor = static_cast<int64_t>(from + length);
                at += length;
                literal = at;
                continue;
            }
        }
        ++at;  // carried in the patch
    }
    flushLiteral();
    put32(out, crc32Of(source));
    put32(out, crc32Of(target));
    put32(out, crc32Of(out));
    return out;
}

std::vector<uint8_t> applyBps(const std::vector<uint8_t>& source, const std::vector<uint8_t>& patch, int64_t maxSize) {
    if (!isBps(patch)) throw PatchError("not a BPS patch (no \"BPS1\" header)");
    if (patch.size() < 4 + 3 + kFooterSize) throw PatchError("the patch is too short to be a BPS patch");
    const size_t end = patch.size() - kFooterSize;
    const uint32_t patchCrc = get32(patch, patch.size() - 4);
    if (crc32Of(std::span<const uint8_t>(patch).first(patch.size() - 4)) != patchCrc)
        throw PatchError("the patch is damaged (its own CRC32 does not match)");
    const uint32_t sourceCrc = get32(patch, end), targetCrc = get32(patch, end + 4);

    Reader in{patch, 4, end};
    const uint64_t sourceSize = in.number(), targetSize = in.number(), metadataSize = in.number();
    if (metadataSize > end - in.p) throw PatchError("the patch's metadata runs past its end");
    in.p += metadataSize;
    const uint32_t thisCrc = crc32Of(source);
    if (sourceSize != source.size() || sourceCrc != thisCrc)
        throw PatchError("this patch is for another image: source CRC32 " + crcText(sourceCrc) + ", this image " + crcText(thisCrc) +
                         (sourceSize != source.size() ? " (" + std::to_string(sourceSize) + " bytes, this image " +
                                                            std::to_string(source.size()) + ")"
                                                      : ""));
    if (targetSize > static_cast<uint64_t>(maxSize))
        throw PatchError("the patch makes a file of " + std::to_string(targetSize) + " bytes, more than " + std::to_string(maxSize));

    std::vector<uint8_t> target(static_cast<size_t>(targetSize));
    size_t written = 0;
    int64_t sourceCursor = 0, targetCursor = 0;
    auto cursor = [&](int64_t& c, size_t length, size_t limit, const char* what) {
        const uint64_t v = in.number();
        const auto offset = static_cast<int64_t>(v >> 1);
        c += (v & 1) ? -offset : offset;
        if (c < 0 || static_cast<uint64_t>(c) + length > limit)
            throw PatchError(std::string("a copy from the ") + what + " at byte " + std::to_string(in.p) + " reaches outside it");
    };
    while (in.p < end) {
        const size_t actionAt = in.p;
        const uint64_t n = in.number();
        const auto kind = static_cast<Action>(n & 3);
        const uint64_t length = (n >> 2) + 1;
        if (length > target.size() - written)
            throw PatchError("an action at byte " + std::to_string(actionAt) + " writes past the target's " +
                             std::to_string(target.size()) + " bytes");
        const auto len = static_cast<size_t>(length);
        switch (kind) {
        case SourceRead:
            if (written + len > source.size())
                throw PatchError("an action at byte " + std::to_string(actionAt) + " reads past the source's end");
            std::copy_n(source.begin() + static_cast<std::ptrdiff_t>(written), len, target.begin() + static_cast<std::ptrdiff_t>(written));
            break;
        case TargetRead:
            if (len > end - in.p) throw PatchError("the patch ends inside the bytes of an action at byte " + std::to_string(actionAt));
            std::copy_n(patch.begin() + static_cast<std::ptrdiff_t>(in.p), len, target.begin() + static_cast<std::ptrdiff_t>(written));
            in.p += len;
            break;
        case SourceCopy:
            cursor(sourceCursor, len, source.size(), "source");
            std::copy_n(source.begin() + sourceCursor, len, target.begin() + static_cast<std::ptrdiff_t>(written));
            sourceCursor += static_cast<int64_t>(len);
            break;
        case TargetCopy:
            cursor(targetCursor, 1, written, "target");  // byte by byte: the run may overlap what it writes
            for (size_t i = 0; i < len; ++i) target[written + i] = target[static_cast<size_t>(targetCursor++)];
            break;
        }
        written += len;
    }
    if (written != target.size())
        throw PatchError("the patch writes " + std::to_string(written) + " of the target's " + std::to_string(target.size()) + " bytes");
    if (crc32Of(target) != targetCrc)
        throw PatchError("the result's CRC32 " + crcText(crc32Of(target)) + " is not the " + crcText(targetCrc) + " the patch promises");
    return target;
}

std::vector<uint8_t> applyPatch(const std::vector<uint8_t>& image, const std::vector<uint8_t>& patch, int64_t maxSize) {
    return isBps(patch) ? applyBps(image, patch, maxSize) : applyIps(image, patch, maxSize);
}

}  // namespace zpe
