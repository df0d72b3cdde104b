#pragma once
// A player command sequence decoded into commands, and the sequence byte
// format: command lengths, end commands, follow-on address and validity.
#include "model/image.h"
#include "sequence/catalogue.h"

#include <array>
#include <climits>
#include <functional>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zpe {

// The most data values a command has: a COM pass with N = 15 (16 bytes).
constexpr int kMaxDataValues = 16;

// Where a new command came from: nowhere in the image. New commands carry
// distinct negative origins (kNewOrigin, kNewOrigin - 1, ...) so that a jump
// can name one before it has a place.
constexpr int32_t kNewOrigin = -1;
constexpr bool isNewOrigin(int32_t origin) { return origin < 0; }

// One decoded command.
struct SeqCommand {
    // Where the command was read: the game address of its code byte in the
    // image as opened (never recomputed; a save reopens the image and a new
    // open renews it). Negative for a command the user added.
    int32_t origin = kNewOrigin;
    int16_t command = 0;  // low codes: the byte with its low nibble cleared; high codes: the byte
    // Data values; entries from dataLen on belong to no command. The longest
    // command (a COM pass 0x9F) has 16, so only those are stored.
    std::array<int16_t, kMaxDataValues> data{};
    int16_t dataLen = 0;  // entries of data that belong to the command; -1 for a one-byte end command
    // For a jump or branch: what its address field names, as the origin of a
    // command (of this sequence, or of the image as opened) or an address no
    // command of the sequence holds. A save writes it as wherever that command
    // ends up. kNoTarget for commands without an address field.
    int32_t target = kNoTarget;

    static constexpr int32_t kNoTarget = INT32_MIN;

    // Bytes the command occupies in the image: dataLen for a low code,
    // dataLen + 1 for a high code (1 for a one-byte end command).
    int32_t encodedSize() const;

    bool operator==(const SeqCommand&) const = default;
};

// The code byte a command is written with (a low code's nibble is its data 0).
[[nodiscard]] uint8_t codeByte(const SeqCommand& c);
// The data indexes of a command's address field as the editor holds it: the
// offset of a relative jump ({i, -1}), the low and high byte of an address
// ({lo, hi}); {-1, -1} for none (a COM pass's address lies beyond its data).
[[nodiscard]] std::pair<int, int> addressFieldData(const SeqCommand& c);

// The text of one command standing at `place`; `fieldTarget` is the address
// its field names at that layout (shown by 0x20, 0xC7, and the jumps). Names
// from `names` where the command has no text form of its own.
[[nodiscard]] std::string commandText(const SeqCommand& cmd, int32_t place, int32_t fieldTarget, const CmdNames& names);

// The bytes of `commands` laid out from `at`. Each address field is written
// as `resolve(index, target)`: the address the named command has in that
// layout. A relative jump whose target is out of its reach is written as an
// absolute jump (one byte more). `places`, when given, receives each command's
// address in the layout.
using Resolver = std::function<int32_t(size_t index, int32_t target)>;

// Where each command of `commands` laid out from `at` stands, by its origin.
[[nodiscard]] std::unordered_map<int32_t, int32_t> placesByOrigin(const std::vector<SeqCommand>& commands, int32_t at);
[[nodiscard]] std::vector<uint8_t> encodeCommands(const std::vector<SeqCommand>& commands, int32_t at,
                                                  const Resolver& resolve, std::vector<int32_t>* places = nullptr);

// The most commands one sequence may hold; a longer run of bytes without an
// end command is not a sequence (decoding stops and marks it not valid).
constexpr int kMaxCommands = 32767;

class clsSequence {
public:
    // Makes this object a copy of `s`, every command and every data entry.
    void clone(const clsSequence& s);

    // Decodes one sequence from the image's current position, appending its
    // commands and setting its byte size. Call once on a new object after
    // setting `address`. `KR` reads it as a kick formation's position sequence,
    // where 0xEA and 0xEC go on instead of ending it. Never reads outside the
    // image: a sequence that reaches the end of the image (or runs past
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
    // Read as a kick formation's position sequence (0xEA and 0xEC go on).
    bool kick() const { return kick_; }
    // Sets the reading of a sequence made in the editor (the kick formations' or the plain one).
    void kick(bool value) { kick_ = value; }
    // For a sequence made in the editor: where the game goes on after its last
    // command when that command lets it (a copy's: where it went on after the
    // original); -1 when nowhere. Sequences read from the image leave it -1.
    int32_t continuation() const { return continuation_; }
    void continuation(int32_t address) { continuation_ = address; }

    // Game address where the game continues after this sequence: the target
    // of a closing absolute jump or forward relative jump at the sequence's
    // current layout; 0 for none. Derived from the commands on every call.
    int32_t nextSequence() const;

    int32_t address() const { return startAddr_; }
    // Sets the sequence's address. The commands keep their origins; what
    // their fields name is kept too, so the relative jumps are written anew.
    void address(int32_t value);

    // hex4(address) + "-" + hex4(address + byteSize - 1), e.g. "A000-A01F".
    std::string AddressRange() const;

    int commandCount() const { return static_cast<int>(cmds_.size()); }
    // Command index 0..commandCount-1; anything else throws std::out_of_range.
    int16_t dataLen(int pos) const;
    int16_t command(int pos) const;
    // Where command i was read (its origin); negative for a new command.
    int32_t commandAddress(int i) const;
    // Where command i stands in the sequence's current layout: the address
    // plus the sizes of the commands before it.
    int32_t place(int i) const;
    // The address command i's field names at the current layout (the
    // command it names, wherever that now stands); kNoTarget without a field.
    int32_t fieldTarget(int i) const;
    // fieldTarget of every command, in one pass (for long sequences).
    std::vector<int32_t> fieldTargets() const;
    // Data index 0..255; anything else throws std::out_of_range. Entries from
    // kMaxDataValues on belong to no command: they read as 0.
    int16_t data(int pos, int i) const;

    // Sets a data value. A value in an address field changes what the field
    // names: the command at that address of the current layout (or the
    // address itself), so the text and the follow-on address show the new
    // target at once and a save writes the same. On a 0x90 command, data 0
    // announces the command's length in its code byte, so the command's
    // dataLen becomes (value AND 0x0F) + 1 and the byte size changes with it.
    void data(int pos, int i, int16_t value);

    // The text of command i; names from `names` where the command has no text
    // form of its own.
    std::string commandName(int i, const CmdNames& names) const;
    // Every command's text followed by "; ", joined.
    std::string commandString(const CmdNames& names) const;

    // Removes command pos; the byte size drops by its encoded size. Refuses
    // (false, nothing changed) an index outside the commands and a removal
    // that would leave the sequence without its end command last.
    [[nodiscard]] bool removeCommand(int pos);
    // Inserts command `code` (a low code with its nibble clear, or 0xC0..0xFF)
    // after command `after` (-1: at the top) with every data value zero and the
    // byte size of the editor's length table. Refuses, changing nothing, a
    // command that ends a sequence (it would cut off the rest) and the lock-up
    // codes (the game hangs on them). The stances go on in a kick formation's
    // sequence and may be added there.
    enum class Insert { Done, EndsSequence, LockUp, NotACommand, Full };
    [[nodiscard]] Insert insertCommand(int after, int16_t code);
    // Replaces every command with `commands` (origins and targets as given;
    // dataLen follows the command format). Throws std::invalid_argument,
    // naming the command by its index, when they do not make a sequence (see
    // verify()); the sequence is then unchanged.
    void assign(std::vector<SeqCommand> commands);
    // The same from codes and data as the editor shows them (a low code's data
    // 0 is its nibble): every command is new, and a field's value names the
    // command standing at that address in the new layout (or the address).
    void setCommands(const std::vector<std::pair<int, std::vector<int>>>& commands);

    // Exchanges two commands whole (their origins travel with them). Refuses
    // (false, nothing changed) an index outside the commands and a swap that
    // would move the end command from the last place.
    [[nodiscard]] bool swapCommands(int pos1, int pos2);
    // Turns a closing forward relative jump (0xFE below 0x80) into an absolute
    // jump 0xFF to the same target; the byte size grows by 1.
    void convertRelJump();

    // The first way this sequence is not one the editor can write, or "" when
    // it is: at least one command; every code a command; dataLen as the
    // command format gives it; values in range; an end command last and
    // nowhere else; the byte size the sum of the commands' sizes; every field
    // naming something. Every edit keeps this true.
    [[nodiscard]] std::string verify() const;

    // True when the sequence holds a COM pass (0x9N) or 0xF1, whose bytes the
    // game reads with other lengths: after such a command the editor shows
    // something other than what the game runs.
    bool readsDifferentlyByGame() const;

    // Sum of the encoded sizes of the commands.
    int32_t byteSize() const { return sizeBytes_; }
    // Code of the last command as a byte; 0 for a sequence without commands.
    uint8_t lastCommand() const;

    // The bytes of the sequence at its own address, byteSize() bytes long
    // (a relative jump out of reach is written with its offset cut to a byte).
    [[nodiscard]] std::vector<uint8_t> encode() const;

    const std::vector<SeqCommand>& commands() const { return cmds_; }

    // The identity standing at `address` in the current layout: the origin of
    // the command placed there, or the address itself.
    int32_t identityAt(int32_t address) const;
    // Where the command with origin `origin` stands now; -1 when none has it.
    int32_t placeOfOrigin(int32_t origin) const;

private:
    const SeqCommand& at(int pos) const;
    SeqCommand& at(int pos);
    // Writes every field's bytes from what it names, at the current layout.
    void relink();
    int32_t nextNewOrigin() const;

    int32_t startAddr_ = 0;
    std::vector<SeqCommand> cmds_;
    int32_t sizeBytes_ = 0;
    bool truncated_ = false;
    bool kick_ = false;
    int32_t continuation_ = -1;
};

}  // namespace zpe
