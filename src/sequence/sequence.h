#pragma once
// A player command sequence decoded into commands, and the sequence byte
// format: command lengths, end commands, follow-on address and validity.
#include "model/image.h"
#include "model/seq_key.h"
#include "sequence/catalogue.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <span>
#include <vector>

namespace zpe {

// The most data values a command has: a COM pass with N = 15 (16 bytes).
constexpr int kMaxDataValues = 16;

// A command's identity: where it was read in the image as opened (its game
// address then, which never changes while the image is open), or, for a
// command the user added, a number of its own. An identity is never the
// address a command stands at now (that is its place in a layout), and no
// integer converts to one by accident.
class CmdId {
public:
    constexpr CmdId() = default;
    // The command read at game address `address` of the image as opened.
    static constexpr CmdId readAt(int32_t address) { return CmdId(address); }
    // The n-th added command of a sequence (n = 0, 1, ...).
    static constexpr CmdId added(int32_t n) { return CmdId(-1 - n); }
    // True for a command the user added: it was read nowhere.
    constexpr bool isNew() const { return value_ < 0; }
    // Where a command read from the image was read; only for !isNew().
    constexpr int32_t readAddress() const { return value_; }
    // An added identity below every one of the given ones: a fresh one.
    constexpr CmdId below() const { return CmdId(std::min(value_, int32_t{0}) - 1); }
    constexpr auto operator<=>(const CmdId&) const = default;
    constexpr size_t hash() const { return static_cast<size_t>(static_cast<uint32_t>(value_)); }

private:
    explicit constexpr CmdId(int32_t value) : value_(value) {}
    int32_t value_ = -1;
};

// What an address field names: one of the sequence's own commands (by its
// identity), or an address (of a command elsewhere in the image, or outside
// the sequence area). Its bytes exist only in a layout: the text, the size,
// the follow-on address and the encoder all derive them from this.
struct FieldRef {
    enum class Kind : uint8_t { None, Command, Address };
    Kind kind = Kind::None;
    CmdId command;          // Kind::Command: which command of its sequence
    int32_t address = 0;    // Kind::Address: a game address
    // A relative field naming an address leads backwards (the editor shows a
    // loop back and does not follow it); kept wherever the sequence stands.
    bool backward = false;

    static FieldRef naming(CmdId id) { return {Kind::Command, id, 0, false}; }
    static FieldRef at(int32_t a, bool back = false) { return {Kind::Address, CmdId{}, a, back}; }
    bool none() const { return kind == Kind::None; }
    bool operator==(const FieldRef&) const = default;
};

struct CmdIdHash {
    size_t operator()(CmdId id) const { return id.hash(); }
};

// One decoded command.
struct SeqCommand {
    CmdId origin;  // its identity
    int16_t command = 0;  // low codes: the byte with its low nibble cleared; high codes: the byte
    // Data values other than the address field; entries from dataLen on
    // belong to no command, and the entries of the address field are 0 (the
    // field is `field`). The longest command (a COM pass 0x9F) has 16.
    std::array<int16_t, kMaxDataValues> data{};
    int16_t dataLen = 0;  // entries of data that belong to the command; -1 for a one-byte end command
    FieldRef field;       // for a jump or a branch; None for other commands

    // Bytes the command occupies in the image: dataLen for a low code,
    // dataLen + 1 for a high code (1 for a one-byte end command).
    int32_t encodedSize() const;

    bool operator==(const SeqCommand&) const = default;
};

// The code byte a command is written with (a low code's nibble is its data 0).
[[nodiscard]] uint8_t codeByte(const SeqCommand& c);
// The data indexes of a command's address field as the editor shows it: the
// offset of a relative jump ({i, -1}), the low and high byte of an address
// ({lo, hi}); {-1, -1} for none (a COM pass's address lies beyond its data).
[[nodiscard]] std::pair<int, int> addressFieldData(const SeqCommand& c);
[[nodiscard]] inline bool hasAddressField(const SeqCommand& c) { return addressFieldData(c).first >= 0; }

// How a command's field reads at one layout: the address it leads to, and
// for a relative jump leading backwards the bytes it goes back (0 otherwise).
struct FieldView {
    int32_t target = 0;
    int32_t loopBack = 0;
    // A sequence made in the editor has no address yet: a field naming one of
    // its own commands is shown as that command's distance from its start in
    // bytes, under the sequence's name ("new 2+3"). 0: the target is an address.
    int madeNumber = 0;   // the sequence's number as shown ("new 2": 2)
    int32_t fromStart = 0;
};

// The text of one command; `view` is what its field reads as where it
// stands (used by 0x20, 0xC7 and the jumps). Names from `names` where the
// command has no text form of its own.
[[nodiscard]] std::string commandText(const SeqCommand& cmd, const FieldView& view, const CmdNames& names);

// Writes one command's bytes standing at `place` to `out`, its address field
// leading to `target` (ignored without a field). The one place an address
// field becomes bytes: a relative offset (the caller checks its reach, see
// relativeReaches) or a little-endian word.
void encodeCommand(const SeqCommand& c, int32_t place, int32_t target, std::vector<uint8_t>& out);
// The same for a command as the game reads it (`bytes`, with the lengths the
// game gives it), copied to `place` with its field leading to `target`;
// `absolute`: written as an absolute jump instead (a relative jump that
// cannot reach from there). Commands without a field keep their bytes.
[[nodiscard]] std::vector<uint8_t> encodeGameCommand(std::span<const uint8_t> bytes, int32_t place, int32_t target, bool absolute);
// True when a relative jump at `place` can lead to `target` in the direction
// it is read (backward: a loop back, else forward or onto itself).
[[nodiscard]] bool relativeReaches(int32_t place, int32_t target, bool backward);
// `c` turned into an absolute jump (a relative jump that cannot reach).
[[nodiscard]] SeqCommand madeAbsolute(SeqCommand c);

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

    // Makes this an empty sequence at game address `address`, ready for load(), keeping the
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
    // of a closing absolute jump or forward relative jump; 0 for none.
    // Derived from the commands on every call.
    int32_t nextSequence() const;
    // The address of the byte after its last command that the editor reads to
    // know the sequence ends there (after a long snap: an absolute jump there
    // would make it read on); -1 when it reads none, or for a sequence made in
    // the editor (no address yet).
    int32_t readsPastEnd() const;

    // Which sequence this is: its game address, or for a sequence made in the
    // editor a number of its own (it has no place until a save gives it one).
    SeqKey key() const { return key_; }
    // True when the sequence stands somewhere in the image (its key is an address).
    bool placed() const { return key_.placed(); }
    // Where the layout of the commands starts: the address, or for a made
    // sequence a base of its own above every address (its commands' places
    // then only say where they stand to each other).
    int32_t base() const;
    // Where it stands in the image; only for a placed sequence (std::logic_error else).
    int32_t address() const { return key_.address(); }
    // Sets the sequence's key (a save placing it: its address). The commands
    // keep their identities and what their fields name; a relative jump that
    // cannot reach from the new place becomes absolute.
    void key(SeqKey value);

    // hex4(address) + "-" + hex4(address + byteSize - 1), e.g. "A000-A01F"; for
    // a made sequence its key's text ("new 2").
    std::string AddressRange() const;

    int commandCount() const { return static_cast<int>(cmds_.size()); }
    // Command index 0..commandCount-1; anything else throws std::out_of_range.
    int16_t dataLen(int pos) const;
    int16_t command(int pos) const;
    // Command i's identity: where it was read, or that it is new.
    CmdId commandAddress(int i) const;
    // Where command i stands in the sequence's current layout: the base
    // plus the sizes of the commands before it.
    int32_t place(int i) const;
    // The address command i's field leads to at the current layout (the
    // command it names, wherever that now stands, or the address it names);
    // kNoField without a field.
    int32_t fieldTarget(int i) const;
    static constexpr int32_t kNoField = INT32_MIN;
    // Sequences longer than this index their commands once for many lookups; shorter ones are searched.
    static constexpr size_t kIndexFrom = 32;
    // fieldTarget of every command, in one pass (for long sequences).
    std::vector<int32_t> fieldTargets() const;
    // The same with the commands standing at `places` instead (a layout elsewhere).
    std::vector<int32_t> fieldTargets(const std::vector<int32_t>& places) const;
    // True when command i's relative field leads backwards (a loop back).
    bool leadsBack(int i) const;
    // What command i's field reads as at the current layout.
    FieldView fieldView(int i) const;
    // Data index 0..255; anything else throws std::out_of_range. Entries from
    // kMaxDataValues on belong to no command: they read as 0. The entries of
    // an address field read as its bytes at the current layout.
    int16_t data(int pos, int i) const;

    // Sets a data value. A value in an address field changes what the field
    // names: the command standing at that address of the current layout, or
    // the address itself; a value that would lead outside 0000-FFFF, or a
    // relative jump of a sequence made in the editor (which has no place yet)
    // to anything but its own commands, changes nothing. On a 0x90 command, data 0 announces the command's
    // length in its code byte, so the command's dataLen becomes
    // (value AND 0x0F) + 1 and the byte size changes with it.
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
    // sequence and may be added there. Nothing goes after the end command
    // (AfterEnd: the caller puts it in front of it).
    enum class Insert { Done, EndsSequence, LockUp, NotACommand, Full, AfterEnd };
    [[nodiscard]] Insert insertCommand(int after, int16_t code);
    // Replaces every command with `commands` (identities and fields as given;
    // dataLen follows the command format). Throws std::invalid_argument,
    // naming the command by its index, when they do not make a sequence (see
    // verify()); the sequence is then unchanged.
    void assign(std::vector<SeqCommand> commands);
    // The same from codes and data as the editor shows them (a low code's data
    // 0 is its nibble): every command is new, and a field's value names the
    // command standing at that address in the new layout (or the address).
    void setCommands(const std::vector<std::pair<int, std::vector<int>>>& commands);

    // Exchanges two commands whole (their identities travel with them). Refuses
    // (false, nothing changed) an index outside the commands and a swap that
    // would move the end command from the last place.
    [[nodiscard]] bool swapCommands(int pos1, int pos2);
    // Turns a closing forward relative jump into an absolute jump 0xFF to the
    // same target; the byte size grows by 1.
    void convertRelJump();

    // The first way this sequence is not one the editor can write, or "" when
    // it is: at least one command; every code a command; dataLen as the
    // command format gives it; values in range; an end command last and
    // nowhere else; the byte size the sum of the commands' sizes; every field
    // naming something; a relative jump within its reach. Every edit keeps this true.
    [[nodiscard]] std::string verify() const;

    // True when the game goes on after the sequence's last command (Human
    // Control, Long Snap, the stances read the plain way: the editor ends
    // there, the game runs what follows).
    bool gameGoesOnAfterEnd() const;

    // True when the sequence holds a COM pass (0x9N) or 0xF1, whose bytes the
    // game reads with other lengths: after such a command the editor shows
    // something other than what the game runs.
    bool readsDifferentlyByGame() const;

    // Sum of the encoded sizes of the commands.
    int32_t byteSize() const { return sizeBytes_; }
    // Code of the last command as a byte; 0 for a sequence without commands.
    uint8_t lastCommand() const;

    // The bytes of the sequence at its own address, byteSize() bytes long.
    [[nodiscard]] std::vector<uint8_t> encode() const;

    const std::vector<SeqCommand>& commands() const { return cmds_; }

    // Where the command with identity `origin` stands now; -1 when none has it.
    int32_t placeOfOrigin(CmdId origin) const;

private:
    const SeqCommand& at(int pos) const;
    SeqCommand& at(int pos);
    // After a change: a relative jump that no longer reaches where it leads
    // becomes absolute (what a save would write), and the size follows.
    void settle();
public:
    // Where each command stands at the current layout.
    std::vector<int32_t> places() const;

private:
    using OriginIndex = std::unordered_map<CmdId, size_t, CmdIdHash>;
    OriginIndex originIndex() const;
    // Where `f` leads at the layout `places`; `index` (originIndex) saves a
    // search when many fields are resolved at once.
    int32_t resolve(const FieldRef& f, const std::vector<int32_t>& places, const OriginIndex* index = nullptr) const;
    FieldView viewAt(size_t i, const std::vector<int32_t>& places, const OriginIndex* index = nullptr) const;
    CmdId nextNewOrigin() const;

    SeqKey key_;
    std::vector<SeqCommand> cmds_;
    int32_t sizeBytes_ = 0;
    bool truncated_ = false;
    bool kick_ = false;
    int32_t continuation_ = -1;
};

}  // namespace zpe
