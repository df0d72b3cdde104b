#pragma once
// Byte access to a cartridge image: the address rule, the fixed regions and
// the six primitives. An Image holds the whole file in memory with one current
// position shared by reads and writes; operations that change the file build
// the new bytes in an Image and then replace the file in one step (file_io.h).
#include "model/image_bytes.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zpe {

// The byte at game address A lies at file offset A - 0x1FF0.
constexpr int32_t kAddressOffsetDelta = 0x1FF0;
constexpr int32_t offsetOfAddress(int32_t address) { return address - kAddressOffsetDelta; }
constexpr int32_t addressOfOffset(int32_t offset) { return offset + kAddressOffsetDelta; }

// Fixed regions (file offsets, header included).
constexpr int32_t kFormationTableOffset = 0x4010;
constexpr int32_t kPlayTableOffset = 0x4410;
constexpr int32_t kPointerTableOffset = 0x4E10;
constexpr int32_t kOffSlotTableOffset = 0x1D410;
constexpr int32_t kDefSlotTableOffset = 0x1DC10;
constexpr int32_t kRusherTableOffset = 0x27506;
constexpr int32_t kGfxTableOffset = 0x27546;

// The sequence area that Full Save owns.
constexpr int32_t kSequenceAreaAddress = 0xA000;
constexpr int32_t kSequenceAreaSize = 8192;
constexpr int32_t kSequenceAreaOffset = offsetOfAddress(kSequenceAreaAddress);  // 0x8010

// Record counts and sizes.
constexpr int kPlayersPerRecord = 11;
constexpr int kAddressRecordSize = 22;  // formation and play records
constexpr int kPlayCount = 116;
constexpr int kPointerCount = 192;
constexpr int kSlotCount = 64;
constexpr int kRunningSlotCount = 32;  // slots 0..31 run, 32..63 pass
constexpr int kSlotsPerGroup = 8;      // R1..R4 and P1..P4
constexpr int kPlaysPerSlot = 8;       // offensive and defensive play numbers of a slot
constexpr int kOffSlotRecordSize = 24;
constexpr int kDefSlotRecordSize = 8;
constexpr int kGfxRecordSize = 42;
constexpr int kSlotNameLength = 15;

// A play entry of 0xFFFF means "this player has no sequence".
constexpr int32_t kNoSequence = 0xFFFF;

// The image file: a 16-byte header (starting "NES" 1A) before the program
// data, or, as some dumps come, the same bytes without it. The editor works
// on the headed form (its offsets count the header); a headerless file is
// read with a blank header put in front and written back without it.
constexpr int32_t kHeaderSize = 16;
constexpr int32_t kBankUnit = 8192;  // program and graphics data come in multiples of 8 KiB
enum class ImageForm { Headed, Headerless, Neither };
// Headed: the "NES" 1A mark, or a size 16 more than a multiple of 8 KiB;
// headerless: no mark and a multiple of 8 KiB; anything else is neither.
[[nodiscard]] ImageForm imageForm(const std::vector<uint8_t>& fileBytes);
// What a user reads when a file is neither: what was expected, what was found.
[[nodiscard]] std::string neitherFormText(const std::vector<uint8_t>& fileBytes);
[[nodiscard]] std::vector<uint8_t> withHeader(const std::vector<uint8_t>& headerless);
[[nodiscard]] std::vector<uint8_t> withoutHeader(const std::vector<uint8_t>& headed);

class Image {
public:
    Image() = default;
    Image(std::string path, std::vector<uint8_t> bytes);
    // Reads `bytes` where they are; the first write makes the image its own copy.
    Image(std::string path, ImageBytes bytes);

    // Reads the whole file. Throws RomError when it cannot be opened or read.
    static Image open(const std::string& path);

    const std::string& path() const { return path_; }
    const std::vector<uint8_t>& bytes() const { return sharing_ ? shared_.vector() : bytes_; }
    // Hands the bytes over (the image is left empty); shared bytes not written to are copied.
    std::vector<uint8_t> takeBytes();
    // Hands the bytes over as shared bytes, without a copy (the image is left empty).
    ImageBytes takeShared();
    int32_t size() const { return static_cast<int32_t>(bytes().size()); }
    int32_t position() const { return pos_; }
    // Bytes from the current position to the end of the image (0 when beyond).
    int32_t remaining() const { return pos_ >= size() ? 0 : size() - pos_; }

    // Next read or write happens at `offset`. A negative offset is a RomError.
    void seekOffset(int32_t offset);
    // The byte at the current position (0..255); reading past the end is a RomError.
    int16_t readByte();
    // Little-endian word, 0..65535; reading past the end is a RomError.
    int32_t readWord();
    // Writes one byte, clamping the value into 0..255. Writing past the end grows
    // the image with zero bytes, as a file write past its end would.
    void writeByte(int32_t value);
    // Writes two bytes, low first, of the value clamped into 0..0xFFFF.
    void writeWord(int32_t value);

private:
    [[noreturn]] void fail(const std::string& what, int64_t offset) const;

    std::string path_;
    std::vector<uint8_t> bytes_;  // the image's own bytes
    ImageBytes shared_;           // or the bytes it was made from, until the first write
    bool sharing_ = false;
    int32_t pos_ = 0;
};

}  // namespace zpe
