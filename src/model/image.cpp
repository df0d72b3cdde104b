#include "model/image.h"

#include "model/file_io.h"
#include "model/hex.h"
#include "model/rom_error.h"

#include <utility>

namespace zpe {

namespace {
bool hasMark(const std::vector<uint8_t>& b) { return b.size() >= 4 && b[0] == 'N' && b[1] == 'E' && b[2] == 'S' && b[3] == 0x1A; }
}  // namespace

ImageForm imageForm(const std::vector<uint8_t>& b) {
    if (hasMark(b) || (b.size() % kBankUnit == static_cast<size_t>(kHeaderSize))) return ImageForm::Headed;
    if (!b.empty() && b.size() % kBankUnit == 0) return ImageForm::Headerless;
    return ImageForm::Neither;
}

std::string neitherFormText(const std::vector<uint8_t>& b) {
    return "not an image of the game: expected a 16-byte header followed by a multiple of 8,192 bytes, or the same "
           "without the header; found " + thousands(static_cast<int64_t>(b.size())) + " bytes and no header (no \"NES\" mark)";
}

std::vector<uint8_t> withHeader(const std::vector<uint8_t>& headerless) {
    std::vector<uint8_t> out(static_cast<size_t>(kHeaderSize), 0);
    out.insert(out.end(), headerless.begin(), headerless.end());
    return out;
}

std::vector<uint8_t> withoutHeader(const std::vector<uint8_t>& headed) {
    if (headed.size() < static_cast<size_t>(kHeaderSize)) return {};
    return std::vector<uint8_t>(headed.begin() + kHeaderSize, headed.end());
}

Image::Image(std::string path, std::vector<uint8_t> bytes) : path_(std::move(path)), bytes_(std::move(bytes)) {}

Image::Image(std::string path, ImageBytes bytes) : path_(std::move(path)), shared_(std::move(bytes)), sharing_(true) {}

std::vector<uint8_t> Image::takeBytes() {
    std::vector<uint8_t> out = sharing_ ? shared_.vector() : std::move(bytes_);
    *this = Image(path_, std::vector<uint8_t>{});
    return out;
}

ImageBytes Image::takeShared() {
    ImageBytes out = sharing_ ? std::move(shared_) : ImageBytes(std::move(bytes_));
    *this = Image(path_, std::vector<uint8_t>{});
    return out;
}

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
    return bytes()[static_cast<size_t>(pos_++)];
}

int32_t Image::readWord() {
    if (remaining() < 2) fail("read past the end of the file", pos_);
    const std::vector<uint8_t>& b = bytes();
    const int32_t lo = b[static_cast<size_t>(pos_)];
    const int32_t hi = b[static_cast<size_t>(pos_) + 1];
    pos_ += 2;
    return lo + 256 * hi;
}

void Image::writeByte(int32_t value) {
    const uint8_t byte = value < 0 ? 0 : value > 255 ? 255 : static_cast<uint8_t>(value);
    if (pos_ == INT32_MAX) fail("write beyond any image", pos_);
    if (sharing_) {  // the shared bytes stay as they are for everyone else who holds them
        bytes_ = shared_.vector();
        shared_ = ImageBytes();
        sharing_ = false;
    }
    if (pos_ >= size()) bytes_.resize(static_cast<size_t>(pos_) + 1, 0);
    bytes_[static_cast<size_t>(pos_++)] = byte;
}

void Image::writeWord(int32_t value) {
    const int32_t word = value < 0 ? 0 : value > 0xFFFF ? 0xFFFF : value;
    writeByte(word & 0xFF);
    writeByte(word >> 8);
}

}  // namespace zpe
