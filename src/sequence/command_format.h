#pragma once
// The one table of command formats: how the editor and the game each read a
// command from its code byte. Everything that decodes, encodes, measures or
// checks commands asks here: its length in each reading, whether it ends the
// editor's sequence, whether the game goes on after it, and where its address
// field lies.
#include <array>
#include <cstdint>

namespace zpe {

// How a command's bytes name another place.
enum class FieldKind : uint8_t {
    None,
    Relative,  // 0xFE: the byte after the code, a signed offset from the code byte
    Word,      // a little-endian game address at `fieldAt` (jumps and branches)
};

struct CommandFormat {
    int16_t command = 0;        // as the editor keeps it: low codes with their nibble cleared
    int32_t editorLength = 0;   // bytes the editor takes, code byte included
    bool editorEnds = false;    // the editor's sequence ends with this command
    int32_t gameLength = 0;     // bytes the game takes, code byte included
    bool gameGoesOn = false;    // the game runs the command that follows it
    FieldKind field = FieldKind::None;
    int32_t fieldAt = -1;       // byte offset of the field from the code byte (-1: none)
    bool gameFieldOnly = false; // the field lies beyond the editor's bytes (a COM pass's receiver address)
    bool lockUp = false;        // the game hangs when it runs it
    bool endsByNext = false;    // whether the editor ends here depends on the byte after it (a long snap)
};

// The format of the command whose code byte is `code`. `kick`: read as a kick
// formation's position sequence, where the stances 0xEA and 0xEC go on.
// `next`: the byte after the code byte (-1 when there is none), which decides
// whether a long snap 0xD3 ends the editor's sequence (it goes on only before
// an absolute jump).
[[nodiscard]] CommandFormat commandFormat(uint8_t code, bool kick, int next);

// The bytes of an address field of kind `kind` (Relative or Word) that, in a
// command whose code byte stands at `place`, lead to `target`: a relative
// field holds the offset's low byte, a word the address, low byte first. The
// one rule that writes an address; whether an offset reaches is the caller's.
struct FieldBytes {
    std::array<uint8_t, 2> bytes{};
    int count = 0;
};
constexpr FieldBytes fieldBytes(FieldKind kind, int32_t place, int32_t target) {
    if (kind == FieldKind::Relative) return {{static_cast<uint8_t>((target - place) & 0xFF), 0}, 1};
    return {{static_cast<uint8_t>(target & 0xFF), static_cast<uint8_t>((target >> 8) & 0xFF)}, 2};
}

// The byte offset, from the code byte, of data value `index` of `command`: a
// low code keeps data 0 in its code byte, a high code's data start after it.
constexpr int32_t byteOfData(int32_t command, int index) { return command < 0xC0 ? index : index + 1; }
constexpr int dataOfByte(int32_t command, int32_t offset) { return command < 0xC0 ? offset : offset - 1; }

}  // namespace zpe

namespace zpe {
// dataLen of a command of format `f` as the editor decodes it: a low code
// keeps every byte as a value (its nibble first); a high code its bytes after
// the code; a one-byte end command none (-1).
constexpr int16_t editorDataLen(const CommandFormat& f) {
    if (f.command < 0xC0) return static_cast<int16_t>(f.editorLength);
    if (f.editorEnds && f.editorLength == 1) return -1;
    return static_cast<int16_t>(f.editorLength - 1);
}
}  // namespace zpe
