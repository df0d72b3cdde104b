#include "model/image.h"

#include "model/file_io.h"
#include "model/hex.h"
#include "model/rom_error.h"

#include <utility>

namespace zpe {

Image::Image(std::string path, std::vector<uint8_t> bytes) : path_(std::move(path)), bytes_(std::move(bytes)) {}

Image Image::open(const std::string& path) { return Image(path, readWholeFile(path)); }

void Image::fail(const std::string& what, int64_t offset) const {
    // A position before the file is shown with its sign, never as a wrapped unsigned number.
    throw RomError(path_ + ": " + what + " at offset " + (offset < 0 ? "-0x" + hexPlain(-offset) : "0x" + hexPlain(offset)));
}

void Image::seekOffset(int32_t offset) {
    if (offset < 0) fail("position before the start of the file", offset);
    pos_ = offset;
}

int16_t Image::readByte() {
    if (pos_ >= size()) fail("read past the end of the file", pos_);
    return bytes_[static_cast<size_t>(pos_++)];
}

int32_t Image::readWord() {
    if (remaining() < 2) fail("read past the end of the file", pos_);
    const int32_t lo = bytes_[static_cast<size_t>(pos_)];
    const int32_t hi = bytes_[static_cast<size_t>(pos_) + 1];
    pos_ += 2;
    return lo + 256 * hi;
}

void Image::writeByte(int32_t value) {
    const uint8_t byte = value < 0 ? 0 : value > 255 ? 255 : static_cast<uint8_t>(value);
    if (pos_ == INT32_MAX) fail("write beyond any image", pos_);
    if (pos_ >= size()) bytes_.resize(static_cast<size_t>(pos_) + 1, 0);
    bytes_[static_cast<size_t>(pos_++)] = byte;
}

void Image::writeWord(int32_t value) {
    const int32_t word = value < 0 ? 0 : value > 0xFFFF ? 0xFFFF : value;
    writeByte(word & 0xFF);
    writeByte(word >> 8);
}

}  // namespace zpe
