#pragma once
// One playbook slot: name, formation, 8 offensive and 8 defensive play
// numbers, 42 graphics bytes and (for slots 0..31) a rusher value. The setters
// keep every value in what the image can store; callers need not check first.
#include "model/image.h"

#include <array>
#include <cstdint>
#include <string>

namespace zpe {

// Why a slot record cannot store the name `bytes` (Latin-1) as given: longer
// than its 15 bytes; "" when it can.
[[nodiscard]] std::string slotNameLengthProblem(const std::string& bytes);
// The same, and for a name a user types anew also a control character (a tab,
// a line break), which would break the lists' rows and cells. (An image's
// own names may hold any byte: carried as they are, they stay so.)
[[nodiscard]] std::string typedSlotNameProblem(const std::string& bytes);

class clsPlaySlot {
public:
    // Makes this slot a copy of `victim`, every field, stored as it stands.
    void clone(const clsPlaySlot& victim);

    const std::string& name() const { return name_; }
    // Trims leading and trailing spaces, then keeps at most the first 15 characters.
    void name(const std::string& value);

    int16_t formation() const { return formation_; }
    void formation(int32_t value);  // clamped into 0..255

    // Index 0..7 (0..41 for GFX); outside throws std::out_of_range, nothing stored.
    // Values are clamped into 0..255.
    int16_t oPlay(int slot) const;
    void oPlay(int slot, int32_t value);
    int16_t dPlay(int slot) const;
    void dPlay(int slot, int32_t value);
    int16_t GFX(int slot) const;
    void GFX(int slot, int32_t value);

    int16_t Rusher() const { return rusher_; }
    void Rusher(int32_t value);  // clamped into 0..8, lowest bit cleared: 0, 2, 4, 6 or 8

    void loadOff(Image& fp);  // 24-byte offensive record
    void loadDef(Image& fp);  // 8 defensive play numbers
    void loadGFX(Image& fp);  // 42 graphics bytes
    void saveOff(Image& fp) const;
    void saveDef(Image& fp) const;
    void saveGFX(Image& fp) const;

    bool operator==(const clsPlaySlot&) const = default;

private:
    std::string name_;
    int16_t formation_ = 0;
    int16_t rusher_ = 0;
    std::array<int16_t, kPlaysPerSlot> oPlays_{};
    std::array<int16_t, kPlaysPerSlot> dPlays_{};
    std::array<int16_t, kGfxRecordSize> gfx_{};
};

}  // namespace zpe
