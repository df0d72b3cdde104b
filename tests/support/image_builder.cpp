#include "support/image_builder.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <unistd.h>

namespace zpe::test {

namespace {
std::filesystem::path makeTempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zpe-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a temporary folder");
    return pattern;
}
}  // namespace

TempFile::TempFile(const std::string& name) : dir_(makeTempDir()), path_((dir_ / name).string()) {}

TempFile::~TempFile() {
    if (dir_.empty()) return;
    std::error_code ec;
    std::filesystem::permissions(dir_, std::filesystem::perms::owner_all, std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(dir_, ec);
}

TempFile::TempFile(TempFile&& other) noexcept : dir_(std::move(other.dir_)), path_(std::move(other.path_)) {
    other.dir_.clear();
}

std::vector<uint8_t> TempFile::read() const { return readFileBytes(path_); }

void TempFile::write(const std::vector<uint8_t>& bytes) const {
    std::ofstream out(path_, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

TempDir::TempDir() : path_(makeTempDir().string()) {}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

void TempDir::writeText(const std::string& name, const std::string& text) const {
    const std::filesystem::path p = file(name);
    std::filesystem::create_directories(p.parent_path());
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out << text;
}

ImageBuilder::ImageBuilder(int32_t size) : bytes_(static_cast<size_t>(std::max(size, kDefaultImageSize)), 0) {
    fill(kSequenceAreaOffset, kSequenceAreaSize, 0xFF);
    for (int32_t off = kFormationTableOffset; off + kAddressRecordSize <= kPlayTableOffset; off += 2)
        word(off, kDeadAddress);
    for (int p = 0; p < kPlayCount; ++p)
        for (int j = 0; j < kPlayersPerRecord; ++j) playPlayer(p, j, kNoSequence);
    for (int i = 0; i < kPointerCount; ++i) pointer(i, kDeadAddress);
    for (int s = 0; s < kSlotCount; ++s) slot(s, SlotSpec{"SLOT " + std::to_string(s)});
    truncate(size);
}

ImageBuilder& ImageBuilder::bytesAtOffset(int32_t offset, const std::vector<uint8_t>& bytes) {
    if (offset < 0 || static_cast<size_t>(offset) + bytes.size() > bytes_.size())
        throw std::out_of_range("bytes outside the test image");
    std::copy(bytes.begin(), bytes.end(), bytes_.begin() + offset);
    return *this;
}

ImageBuilder& ImageBuilder::bytesAt(int32_t gameAddress, const std::vector<uint8_t>& bytes) {
    return bytesAtOffset(offsetOfAddress(gameAddress), bytes);
}

ImageBuilder& ImageBuilder::bytesAt(int32_t gameAddress, std::initializer_list<uint8_t> bytes) {
    return bytesAt(gameAddress, std::vector<uint8_t>(bytes));
}

ImageBuilder& ImageBuilder::fill(int32_t offset, int32_t count, uint8_t value) {
    return bytesAtOffset(offset, std::vector<uint8_t>(static_cast<size_t>(count), value));
}

ImageBuilder& ImageBuilder::word(int32_t offset, int32_t value) {
    return bytesAtOffset(offset, {static_cast<uint8_t>(value & 0xFF), static_cast<uint8_t>((value >> 8) & 0xFF)});
}

ImageBuilder& ImageBuilder::formation(int k, std::initializer_list<int32_t> addresses) {
    int j = 0;
    for (int32_t a : addresses) formationPlayer(k, j++, a);
    return *this;
}

ImageBuilder& ImageBuilder::formationPlayer(int k, int player, int32_t address) {
    return word(kFormationTableOffset + kAddressRecordSize * k + 2 * player, address);
}

ImageBuilder& ImageBuilder::play(int p, std::initializer_list<int32_t> addresses) {
    int j = 0;
    for (int32_t a : addresses) playPlayer(p, j++, a);
    return *this;
}

ImageBuilder& ImageBuilder::playPlayer(int p, int player, int32_t address) {
    return word(kPlayTableOffset + kAddressRecordSize * p + 2 * player, address);
}

ImageBuilder& ImageBuilder::pointer(int i, int32_t address) { return word(kPointerTableOffset + 2 * i, address); }

ImageBuilder& ImageBuilder::slot(int s, const SlotSpec& spec) {
    std::string name = spec.name;
    name.resize(kSlotNameLength, ' ');
    slotNameBytes(s, name);
    std::vector<uint8_t> rest{static_cast<uint8_t>(spec.formation)};
    for (int v : spec.oPlays) rest.push_back(static_cast<uint8_t>(v));
    bytesAtOffset(kOffSlotTableOffset + kOffSlotRecordSize * s + kSlotNameLength, rest);
    std::vector<uint8_t> def;
    for (int v : spec.dPlays) def.push_back(static_cast<uint8_t>(v));
    return bytesAtOffset(kDefSlotTableOffset + kDefSlotRecordSize * s, def);
}

ImageBuilder& ImageBuilder::slotNameBytes(int s, const std::string& fifteenBytes) {
    if (fifteenBytes.size() != static_cast<size_t>(kSlotNameLength)) throw std::invalid_argument("name field is 15 bytes");
    return bytesAtOffset(kOffSlotTableOffset + kOffSlotRecordSize * s,
                         std::vector<uint8_t>(fifteenBytes.begin(), fifteenBytes.end()));
}

ImageBuilder& ImageBuilder::rusher(int s, uint8_t value) { return bytesAtOffset(kRusherTableOffset + s, {value}); }

ImageBuilder& ImageBuilder::gfx(int s, const std::vector<uint8_t>& bytes) {
    return bytesAtOffset(kGfxTableOffset + kGfxRecordSize * s, bytes);
}

ImageBuilder& ImageBuilder::truncate(int32_t size) {
    bytes_.resize(static_cast<size_t>(size));
    return *this;
}

TempFile ImageBuilder::write(const std::string& name) const {
    TempFile file(name);
    file.write(bytes_);
    return file;
}

std::vector<uint8_t> readFileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string readFileText(const std::string& path) {
    const auto bytes = readFileBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

std::string formsText(int count) {
    std::string text;
    for (int k = 0; k < count; ++k) text += "FORM " + std::to_string(k) + "\r\n";
    return text;
}

}  // namespace zpe::test
