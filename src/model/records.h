#pragma once
// Formation and play records: eleven little-endian game addresses each,
// read and written at the image's current position.
#include "model/image.h"
#include "model/seq_key.h"

#include <array>
#include <cstdint>
#include <string>

namespace zpe {

// One offensive formation: the sequence each player's position is read from
// (in the table: its game address) (players in the order QB, RB, FB, WR1, WR2, TE, C, LG, RG, LT, RT)
// and a display name taken from forms.txt.
class clsFormation {
public:
    void load(Image& fp);        // reads 22 bytes
    void save(Image& fp) const;  // writes 22 bytes; a made sequence has no address to write (std::logic_error)

    // Player index 0..10; anything else throws std::out_of_range and stores nothing.
    SeqKey posAddress(int i) const;
    void posAddress(int i, SeqKey key);

    const std::string& name() const { return name_; }
    void name(std::string value) { name_ = std::move(value); }

private:
    std::array<SeqKey, kPlayersPerRecord> addresses_{};
    std::string name_;
};

// One play: each player's command sequence (in the table: its game address;
// 0xFFFF, SeqKey::none(), for none).
class clsPlay {
public:
    void load(Image& fp);
    void save(Image& fp) const;

    SeqKey seqAddress(int i) const;
    void seqAddress(int i, SeqKey key);

private:
    std::array<SeqKey, kPlayersPerRecord> addresses_{};
};

}  // namespace zpe
