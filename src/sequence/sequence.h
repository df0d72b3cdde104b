#pragma once
// A player command sequence decoded into commands, and the sequence byte
// format: command lengths, end commands, follow-on address and validity.
#include "model/image.h"
#include "sequence/catalogue.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace zpe {

// The most data values a command has: a COM pass with N = 15 (16 bytes).
constexpr int kMaxDataValues = 16;

// One decoded command.
struct SeqCommand {
    int32_t address = 0;  // game address of its code byte as decoded (never recomputed)
    int16_t command = 0;  // low codes: the byte with its low nibble cleared; high codes: the byte
    // Data values; entries from dataLen on belong to no command. The longest
    // command (a COM pass 0x9F) has 16, so only those are stored.
    std::array<int16_t, kMaxDataValues> data{};
    int16_t dataLen = 0;  // entries of data that belong to the command; -1 for a one-byte end command

    // Bytes the command occupies in the image: dataLen for a low code,
    // dataLen + 1 for a high code (1 for a one-byte end command).
    int32_t encodedSize() const;

    bool operator==(const SeqCommand&) const = default;
};

// The text of one command; `followOn` is the address a closing jump goes to
// (shown by 0xFE forward and 0xFF). Names from `names` where the command has
// no text form of its own.
[[nodiscard]] std::string commandText(const SeqCommand& cmd, int32_t followOn, const CmdNames& names);

// The bytes of a run of commands as a save writes them.
[[nodiscard]] std::vector<uint8_t> encodeCommands(const std::vector<SeqCommand>& commands);

// The most commands one sequence may hold; a longer run of bytes without an
// end command is not a sequence (decoding stops and marks it not valid).
constexpr int kMaxCommands = 32767;

class clsSequence {
public:
    // Makes this object a copy of `s`, every command and every data entry.
    void clone(const clsSequence& s);

    // Decodes one sequence from the image's current position, appending its
    // commands and setting its byte size and follow-on address. Call once on a
    // new object after setting `address`. `KR` makes 0xEA and 0xEC one-byte
    // commands that go on instead of ending the sequence. Never reads outside
    // the image: a sequence that reaches the end of the image (or runs past
    // kMaxCommands) without an end command stops there and is not valid.
    void load(Image& fp, bool KR);

    // Makes this an empty sequence at `address`, ready for load(), keeping the
    // room its commands took (decoding many sequences one after the other
    // then costs no fresh memory).
    void reset(int32_t address);

    // False when the follow-on address is 0xFFFF (bytes FF FF FF) or when
    // decoding ran out of image before an end command.
    bool isValid() const;
    // True when decoding stopped at the end of the image without an end command.
    bool reachedImageEnd() const { return truncated_; }

    // Game address where the game continues after this sequence; 0 for none.
    int32_t nextSequence() const { return nextAddr_; }

    int32_t address() const { return startAddr_; }
    void address(int32_t value) { startAddr_ = value; }

    // hex4(address) + "-" + hex4(address + byteSize - 1), e.g. "A000-A01F".
    std::string AddressRange() const;

    int commandCount() const { return static_cast<int>(cmds_.size()); }
    // Command index 0..commandCount-1; anything else throws std::out_of_range.
    int16_t dataLen(int pos) const;
    int16_t command(int pos) const;
    int32_t commandAddress(int i) const;
    // Data index 0..255; anything else throws std::out_of_range. Entries from
    // kMaxDataValues on belong to no command: they read as 0.
    int16_t data(int pos, int i) const;

    // Sets a data value. On a 0xFF command the follow-on address follows the
    // new target. On a 0x90 command, data 0 announces the command's length in
    // its code byte, so the command's dataLen becomes (value AND 0x0F) + 1 and
    // the byte size changes with it: the bytes a save writes always agree with
    // the code byte. Nothing else changes.
    void data(int pos, int i, int16_t value);

    // The text of command i; names from `names` where the command has no text
    // form of its own.
    std::string commandName(int i, const CmdNames& names) const;
    // Every command's text followed by "; ", joined.
    std::string commandString(const CmdNames& names) const;

    // Removes command pos (any other index changes nothing); the byte size
    // drops by its encoded size. Recorded addresses and the follow-on address
    // stay as they were.
    void removeCommand(int pos);
    // Inserts command `code` (a low code with its nibble clear, or 0xC0..0xFF)
    // after command `after` (-1: at the top) with every data value zero and the
    // byte size of the editor's length table. Refuses, changing nothing, a
    // command that ends a sequence (it would cut off the rest) and the lock-up
    // codes (the game hangs on them).
    enum class Insert { Done, EndsSequence, LockUp, NotACommand, Full };
    [[nodiscard]] Insert insertCommand(int after, int16_t code);
    // Replaces every command with `commands`, given by code and data as the
    // editor shows them (a low code's data 0 is its nibble); each command's
    // recorded address becomes its place from the sequence's address on. Throws
    // std::invalid_argument, naming the command by its index, when the encoder
    // cannot write them: a code that is not a command, a value outside a byte
    // (a nibble for data 0 of a low code), a data count other than the code's
    // length, an end command before the last or a last command that ends nothing.
    void setCommands(const std::vector<std::pair<int, std::vector<int>>>& commands);

    // Exchanges two commands whole (their recorded addresses travel with them).
    void swapCommands(int pos1, int pos2);
    // Turns a closing forward relative jump (0xFE below 0x80) into an absolute
    // jump 0xFF to the follow-on address; the byte size grows by 1.
    void convertRelJump();

    // True when the sequence holds a COM pass (0x9N) or 0xF1, whose bytes the
    // game reads with other lengths: after such a command the editor shows
    // something other than what the game runs.
    bool readsDifferentlyByGame() const;

    // Sum of the encoded sizes of the commands.
    int32_t byteSize() const { return sizeBytes_; }
    // Code of the last command as a byte; 0 for a sequence without commands.
    uint8_t lastCommand() const;

    // The bytes of the sequence as a save writes them, byteSize() bytes long.
    [[nodiscard]] std::vector<uint8_t> encode() const;

    const std::vector<SeqCommand>& commands() const { return cmds_; }

private:
    const SeqCommand& at(int pos) const;
    SeqCommand& at(int pos);

    int32_t startAddr_ = 0;
    std::vector<SeqCommand> cmds_;
    int32_t sizeBytes_ = 0;
    int32_t nextAddr_ = 0;
    bool truncated_ = false;
};

}  // namespace zpe
