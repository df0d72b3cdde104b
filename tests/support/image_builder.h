#pragma once
// Builds cartridge images for tests, stated by region and game address.
//
// A fresh builder makes an image of kDefaultImageSize bytes in which:
//  - every formation record (22 of them, and the records after them up to the
//    play table) and every pointer-table entry point at kDeadAddress, where the
//    bytes FF FF FF stand (a sequence that is not valid, so nothing is found);
//  - every play entry is 0xFFFF (no sequence);
//  - the sequence area 0xA000..0xBFFF holds 0xFF;
//  - slot s is named "SLOT s" with formation 4 and all play numbers 0.
// Tests then state only what matters to them:
//
//   auto file = ImageBuilder()
//       .bytesAt(0xA000, {0x30, 0x51, 0xFE, 0x05})
//       .formation(4, {0xA000, 0xA010})   // players 0 and 1; the rest keep kDeadAddress
//       .play(0, {0xA020})
//       .write();                           // a temporary file, removed with `file`
#include "model/image.h"
#include "support/seq_keys.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

namespace zpe::test {

constexpr int32_t kDefaultImageSize = 0x40010;  // header + 256 KiB of program data
constexpr int32_t kDeadAddress = 0xBFFD;       // holds FF FF FF in a fresh image
constexpr int kDefaultFormationCount = 22;

// A file in a private temporary folder, removed (with the folder) on destruction.
class TempFile {
public:
    explicit TempFile(const std::string& name = "image.nes");
    ~TempFile();
    TempFile(TempFile&& other) noexcept;
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;
    TempFile& operator=(TempFile&&) = delete;

    const std::string& path() const { return path_; }
    std::vector<uint8_t> read() const;
    void write(const std::vector<uint8_t>& bytes) const;

private:
    std::filesystem::path dir_;
    std::string path_;
};

// A private temporary folder, removed on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    void writeText(const std::string& name, const std::string& text) const;

private:
    std::string path_;
};

struct SlotSpec {
    std::string name;
    int formation = 4;
    std::array<int, 8> oPlays{};
    std::array<int, 8> dPlays{};
};

class ImageBuilder {
public:
    // A smaller size cuts the image (and its default contents) short.
    explicit ImageBuilder(int32_t size = kDefaultImageSize);

    // Raw bytes at a game address (file offset = address - 0x1FF0) or at a file offset.
    ImageBuilder& bytesAt(int32_t gameAddress, std::initializer_list<uint8_t> bytes);
    ImageBuilder& bytesAt(int32_t gameAddress, const std::vector<uint8_t>& bytes);
    ImageBuilder& bytesAtOffset(int32_t offset, const std::vector<uint8_t>& bytes);
    ImageBuilder& fill(int32_t offset, int32_t count, uint8_t value);
    ImageBuilder& word(int32_t offset, int32_t value);

    // Formation record k / play record p: addresses of players 0.. in order;
    // players not given keep their current address.
    ImageBuilder& formation(int k, std::initializer_list<int32_t> addresses);
    ImageBuilder& formationPlayer(int k, int player, int32_t address);
    ImageBuilder& play(int p, std::initializer_list<int32_t> addresses);
    ImageBuilder& playPlayer(int p, int player, int32_t address);
    ImageBuilder& pointer(int i, int32_t address);

    // Slot records.
    ImageBuilder& slot(int s, const SlotSpec& spec);
    ImageBuilder& slotNameBytes(int s, const std::string& fifteenBytes);  // raw name field
    ImageBuilder& rusher(int s, uint8_t value);
    ImageBuilder& gfx(int s, const std::vector<uint8_t>& bytes);

    ImageBuilder& truncate(int32_t size);

    const std::vector<uint8_t>& bytes() const { return bytes_; }
    Image image(const std::string& path = "test.nes") const { return Image(path, bytes_); }
    TempFile write(const std::string& name = "image.nes") const;

private:
    std::vector<uint8_t> bytes_;
};

// The whole contents of a file ("" / empty when it cannot be read).
std::string readFileText(const std::string& path);
std::vector<uint8_t> readFileBytes(const std::string& path);

// forms.txt text with `count` names "FORM 0", "FORM 1", ... (CR LF line ends).
std::string formsText(int count = kDefaultFormationCount);

}  // namespace zpe::test
