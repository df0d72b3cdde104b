#pragma once
// Which sequence a table entry or the model names. A sequence read from the
// image (or whatever the game finds where an entry leads) is known by its game
// address; a sequence made in the editor has no address until a save places
// it, and is known by a number of its own. The two never mix: an integer
// becomes a key only through at() or made(), a made key has no address to
// give, and a key is never used as a place in the image by accident.
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>

namespace zpe {

class SeqKey {
public:
    constexpr SeqKey() = default;
    // The sequence (or the bytes) at game address `address`.
    static constexpr SeqKey at(int32_t address) { return SeqKey(false, address); }
    // The n-th sequence made in the editor (n = 0, 1, ...).
    static constexpr SeqKey made(int32_t n) { return SeqKey(true, n); }
    // A play's player that runs nothing (the table holds FFFF).
    static constexpr SeqKey none() { return at(0xFFFF); }

    // True for a sequence made in the editor, which has no address yet.
    constexpr bool isNew() const { return made_; }
    constexpr bool placed() const { return !made_; }
    constexpr bool isNone() const { return *this == none(); }
    // The game address of a placed key. A made key has none: asking is a
    // fault of the caller (std::logic_error), never a number to write.
    constexpr int32_t address() const {
        if (made_) throw std::logic_error("a sequence made in the editor has no address until a save places it");
        return value_;
    }
    // The number of a made key (0 for the first one made).
    constexpr int32_t madeNumber() const {
        if (!made_) throw std::logic_error("a sequence read from the image has an address, not a number");
        return value_;
    }
    // The key after this one of its kind: the next made number, or the next address.
    constexpr SeqKey next() const { return SeqKey(made_, value_ + 1); }

    // Placed keys in address order, then made keys in the order they were made.
    constexpr auto operator<=>(const SeqKey&) const = default;
    constexpr size_t hash() const { return static_cast<size_t>(static_cast<uint32_t>(value_)) * 2 + (made_ ? 1 : 0); }

private:
    constexpr SeqKey(bool made, int32_t value) : made_(made), value_(value) {}
    bool made_ = false;
    int32_t value_ = 0;
};

}  // namespace zpe

template <>
struct std::hash<zpe::SeqKey> {
    size_t operator()(zpe::SeqKey k) const noexcept { return k.hash(); }
};
