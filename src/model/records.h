#pragma once
// Formation and play records: eleven little-endian game addresses each,
// read and written at the image's current position.
#include "model/image.h"

#include <array>
#include <cstdint>
#include <string>

namespace zpe {

// One offensive formation: the game address of each player's position
// sequence (players in the order QB, RB, FB, WR1, WR2, TE, C, LG, RG, LT, RT)
// and a display name taken from forms.txt.
class clsFormation {
public:
    void load(Image& fp);        // reads 22 bytes
    void save(Image& fp) const;  // writes 22 bytes; each address clamped into 0..0xFFFF

    // Player index 0..10; anything else throws std::out_of_range and stores nothing.
    int32_t posAddress(int i) const;
    void posAddress(int i, int32_t addr);

    const std::string& name() const { return name_; }
    void name(std::string value) { name_ = std::move(value); }

private:
    std::array<int32_t, kPlayersPerRecord> addresses_{};
    std::string name_;
};

// One play: the game address of each player's command sequence; 0xFFFF = none.
class clsPlay {
public:
    void load(Image& fp);
    void save(Image& fp) const;

    int32_t seqAddress(int i) const;
    void seqAddress(int i, int32_t addr);

private:
    std::array<int32_t, kPlayersPerRecord> addresses_{};
};

}  // namespace zpe
