#include "model/play_slot.h"

#include <stdexcept>

namespace zpe {

namespace {
int16_t clampByte(int32_t v) { return static_cast<int16_t>(v < 0 ? 0 : v > 255 ? 255 : v); }

// The offensive record: the name, then the formation byte, then the play numbers.
constexpr size_t kSlotFormationAt = kSlotNameLength;
constexpr size_t kSlotPlaysAt = kSlotFormationAt + 1;

template <size_t N>
size_t checkedIndex(int slot) {
    if (slot < 0 || static_cast<size_t>(slot) >= N)
        throw std::out_of_range("slot index " + std::to_string(slot) + " outside 0 to " + std::to_string(N - 1));
    return static_cast<size_t>(slot);
}
}  // namespace

void clsPlaySlot::clone(const clsPlaySlot& victim) { *this = victim; }

std::string slotNameLengthProblem(const std::string& bytes) {
    if (bytes.size() <= static_cast<size_t>(kSlotNameLength)) return "";
    return "longer than the " + std::to_string(kSlotNameLength) + " bytes a slot name holds";
}

std::string typedSlotNameProblem(const std::string& bytes) {
    if (std::string problem = slotNameLengthProblem(bytes); !problem.empty()) return problem;
    for (const char c : bytes) {
        const auto b = static_cast<unsigned char>(c);
        if (b < 0x20 || b == 0x7F || (b >= 0x80 && b < 0xA0)) return "holds a control character (a tab or a line break, say), which a slot name cannot store";
    }
    return "";
}

void clsPlaySlot::name(const std::string& value) {
    const auto first = value.find_first_not_of(' ');
    if (first == std::string::npos) {
        name_.clear();
        return;
    }
    const auto last = value.find_last_not_of(' ');
    name_ = value.substr(first, last - first + 1).substr(0, kSlotNameLength);
}

void clsPlaySlot::formation(int32_t value) { formation_ = clampByte(value); }

int16_t clsPlaySlot::oPlay(int slot) const { return oPlays_[checkedIndex<kPlaysPerSlot>(slot)]; }
void clsPlaySlot::oPlay(int slot, int32_t value) { oPlays_[checkedIndex<kPlaysPerSlot>(slot)] = clampByte(value); }
int16_t clsPlaySlot::dPlay(int slot) const { return dPlays_[checkedIndex<kPlaysPerSlot>(slot)]; }
void clsPlaySlot::dPlay(int slot, int32_t value) { dPlays_[checkedIndex<kPlaysPerSlot>(slot)] = clampByte(value); }
int16_t clsPlaySlot::GFX(int slot) const { return gfx_[checkedIndex<kGfxRecordSize>(slot)]; }
void clsPlaySlot::GFX(int slot, int32_t value) { gfx_[checkedIndex<kGfxRecordSize>(slot)] = clampByte(value); }

void clsPlaySlot::Rusher(int32_t value) {
    const int32_t clamped = value < 0 ? 0 : value > 8 ? 8 : value;
    rusher_ = static_cast<int16_t>(clamped & 0xFE);
}

void clsPlaySlot::loadOff(Image& fp) {
    std::string record(kOffSlotRecordSize, '\0');
    for (auto& c : record) c = static_cast<char>(fp.readByte());
    name(record.substr(0, kSlotNameLength));
    formation(static_cast<uint8_t>(record[kSlotFormationAt]));
    for (int i = 0; i < kPlaysPerSlot; ++i) oPlay(i, static_cast<uint8_t>(record[kSlotPlaysAt + static_cast<size_t>(i)]));
}

void clsPlaySlot::loadDef(Image& fp) {
    for (int i = 0; i < kPlaysPerSlot; ++i) dPlay(i, fp.readByte());
}

void clsPlaySlot::loadGFX(Image& fp) {
    for (int i = 0; i < kGfxRecordSize; ++i) GFX(i, fp.readByte());
}

void clsPlaySlot::saveOff(Image& fp) const {
    std::string record = name_;
    record.resize(kOffSlotRecordSize, ' ');
    record[kSlotFormationAt] = static_cast<char>(formation_);
    for (size_t i = 0; i < kPlaysPerSlot; ++i) record[kSlotPlaysAt + i] = static_cast<char>(oPlays_[i]);
    for (char c : record) fp.writeByte(static_cast<uint8_t>(c));
}

void clsPlaySlot::saveDef(Image& fp) const {
    for (auto v : dPlays_) fp.writeByte(v);
}

void clsPlaySlot::saveGFX(Image& fp) const {
    for (auto v : gfx_) fp.writeByte(v);
}

}  // namespace zpe
