#include "save/ips.h"

#include <algorithm>
#include <string>

namespace zpe {

namespace {

constexpr uint8_t kHeader[] = {'P', 'A', 'T', 'C', 'H'};
constexpr uint8_t kTrailer[] = {'E', 'O', 'F'};
constexpr uint32_t kEofOffset = 0x454F46;  // a record at this offset would read as the trailer
constexpr size_t kMaxRecord = 0xFFFF;
constexpr uint32_t kMaxOffset = 0xFFFFFF;

void put24(std::vector<uint8_t>& out, uint32_t v) {
    out.push_back(static_cast<uint8_t>(v >> 16));
    out.push_back(static_cast<uint8_t>(v >> 8));
    out.push_back(static_cast<uint8_t>(v));
}

std::string at(size_t offset) { return "at byte " + std::to_string(offset) + " of the patch"; }

}  // namespace

std::vector<uint8_t> makeIps(const std::vector<uint8_t>& original, const std::vector<uint8_t>& edited) {
    if (edited.size() > kMaxOffset + 1) throw PatchError("the image is too large for an IPS patch");
    std::vector<uint8_t> out(std::begin(kHeader), std::end(kHeader));
    size_t i = 0;
    while (i < edited.size()) {
        if (i < original.size() && original[i] == edited[i]) {
            ++i;
            continue;
        }
        size_t start = i;
        while (i < edited.size() && !(i < original.size() && original[i] == edited[i]) && i - start < kMaxRecord) ++i;
        if (start == kEofOffset) --start;  // take one equal byte more rather than write "EOF" as an offset
        const size_t size = i - start;
        put24(out, static_cast<uint32_t>(start));
        out.push_back(static_cast<uint8_t>(size >> 8));
        out.push_back(static_cast<uint8_t>(size));
        out.insert(out.end(), edited.begin() + static_cast<std::ptrdiff_t>(start), edited.begin() + static_cast<std::ptrdiff_t>(i));
    }
    out.insert(out.end(), std::begin(kTrailer), std::end(kTrailer));
    if (edited.size() < original.size()) put24(out, static_cast<uint32_t>(edited.size()));
    return out;
}

std::vector<uint8_t> applyIps(std::vector<uint8_t> image, const std::vector<uint8_t>& patch, int64_t maxSize) {
    if (patch.size() < 5 || !std::equal(std::begin(kHeader), std::end(kHeader), patch.begin()))
        throw PatchError("not an IPS patch (no \"PATCH\" header)");
    size_t p = 5;
    auto need = [&](size_t n) {
        if (patch.size() - p < n) throw PatchError("the patch ends inside a record " + at(p));
    };
    for (;;) {
        if (patch.size() - p >= 3 && std::equal(std::begin(kTrailer), std::end(kTrailer), patch.begin() + static_cast<std::ptrdiff_t>(p))) {
            p += 3;
            if (patch.size() - p == 3) {
                const size_t cut = (size_t{patch[p]} << 16) | (size_t{patch[p + 1]} << 8) | patch[p + 2];
                // The three bytes after "EOF" cut the file; a size beyond it cuts nothing, so they are not that.
                if (cut > image.size())
                    throw PatchError("the size after the \"EOF\" trailer (" + std::to_string(cut) + " bytes) is larger than the file (" +
                                     std::to_string(image.size()) + " bytes): not a real trailer");
                image.resize(cut);
            } else if (p != patch.size()) {
                throw PatchError("unexpected bytes after the \"EOF\" trailer " + at(p));
            }
            return image;
        }
        if (p == patch.size()) throw PatchError("the patch has no \"EOF\" trailer");
        need(5);
        const size_t offset = (size_t{patch[p]} << 16) | (size_t{patch[p + 1]} << 8) | patch[p + 2];
        size_t size = (size_t{patch[p + 3]} << 8) | patch[p + 4];
        p += 5;
        bool rle = false;
        uint8_t fill = 0;
        if (size == 0) {
            need(3);
            size = (size_t{patch[p]} << 8) | patch[p + 1];
            fill = patch[p + 2];
            rle = true;
            p += 3;
        } else {
            need(size);
        }
        if (static_cast<int64_t>(offset + size) > maxSize)
            throw PatchError("a record " + at(p) + " writes past " + std::to_string(maxSize) + " bytes");
        if (image.size() < offset + size) image.resize(offset + size, 0);
        if (rle) {
            std::fill_n(image.begin() + static_cast<std::ptrdiff_t>(offset), size, fill);
        } else {
            std::copy_n(patch.begin() + static_cast<std::ptrdiff_t>(p), size, image.begin() + static_cast<std::ptrdiff_t>(offset));
            p += size;
        }
    }
}

}  // namespace zpe
