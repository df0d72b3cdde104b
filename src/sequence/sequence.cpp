#include "sequence/sequence.h"

#include "sequence/command_codes.h"
#include "sequence/command_format.h"

#include <algorithm>
#include <stdexcept>
#include <unordered_map>
#include <utility>

namespace zpe {

using namespace cmd;

namespace {

// A made sequence lays its commands out from above every game address, so no
// place of one is ever taken for an address of the image.
constexpr int32_t kMadeBase = 0x10000;

uint8_t clampByte(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }

// The format of command i of `cmds` in the editor's reading (the long snap
// looks at the command after it).
CommandFormat formatAt(const std::vector<SeqCommand>& cmds, size_t i, bool kick) {
    const int next = i + 1 < cmds.size() ? codeByte(cmds[i + 1]) : -1;
    return commandFormat(codeByte(cmds[i]), kick, next);
}

int32_t signedByte(int32_t v) { return (v & 0xFF) >= 0x80 ? (v & 0xFF) - 256 : (v & 0xFF); }

bool isRelative(const SeqCommand& c) { return c.command == kRelativeJump; }

// The index of the command with identity `id` in `cmds`; -1 when none.
int indexOfOrigin(const std::vector<SeqCommand>& cmds, CmdId id) {
    for (size_t k = 0; k < cmds.size(); ++k)
        if (cmds[k].origin == id) return static_cast<int>(k);
    return -1;
}

// True when command i's relative field leads backwards: to an earlier command
// of its own, or to an address it was read or set as leading back to.
bool leadsBackward(const std::vector<SeqCommand>& cmds, size_t i) {
    const FieldRef& f = cmds[i].field;
    if (f.kind == FieldRef::Kind::Command) return indexOfOrigin(cmds, f.command) < static_cast<int>(i);
    return f.backward;
}

// Which command stands at each place of a layout.
std::unordered_map<int32_t, size_t> byPlace(const std::vector<int32_t>& places) {
    std::unordered_map<int32_t, size_t> out;
    out.reserve(places.size());
    for (size_t k = 0; k < places.size(); ++k) out.emplace(places[k], k);
    return out;
}

// The field of a command whose bytes lead to `address` from `place`: the own
// command standing at that address (`at`: byPlace of the layout), else the address.
FieldRef fieldNaming(const std::vector<SeqCommand>& cmds, const std::unordered_map<int32_t, size_t>& at, int32_t address,
                     bool relative, int32_t place) {
    if (const auto it = at.find(address); it != at.end()) return FieldRef::naming(cmds[it->second].origin);
    return FieldRef::at(address, relative && address < place);
}

}  // namespace

uint8_t codeByte(const SeqCommand& c) {
    return isLowCode(c.command) ? clampByte(c.command + (c.data[0] & kLowNibbleMask)) : clampByte(c.command);
}

std::pair<int, int> addressFieldData(const SeqCommand& c) {
    const CommandFormat f = commandFormat(codeByte(c), false, -1);
    if (f.field == FieldKind::None || f.gameFieldOnly) return {-1, -1};
    const int lo = dataOfByte(c.command, f.fieldAt);
    return {lo, f.field == FieldKind::Word ? lo + 1 : -1};
}

int32_t SeqCommand::encodedSize() const {
    if (isLowCode(command)) return dataLen;
    return dataLen < 0 ? 1 : dataLen + 1;
}

bool relativeReaches(int32_t place, int32_t target, bool backward) {
    const int32_t offset = target - place;
    return backward ? offset >= -128 && offset < 0 : offset >= 0 && offset <= 127;
}

SeqCommand madeAbsolute(SeqCommand c) {
    c.command = kAbsoluteJump;
    c.dataLen = 2;
    c.data = {};
    c.field.backward = false;
    return c;
}

void encodeCommand(const SeqCommand& c, int32_t place, int32_t target, std::vector<uint8_t>& out) {
    std::array<int16_t, kMaxDataValues> data = c.data;
    const auto [lo, hi] = addressFieldData(c);
    if (lo >= 0) {
        const FieldBytes field = fieldBytes(hi < 0 ? FieldKind::Relative : FieldKind::Word, place, target);
        for (int k = 0; k < field.count; ++k) data[static_cast<size_t>(lo + k)] = field.bytes[static_cast<size_t>(k)];
    }
    SeqCommand coded = c;
    coded.data = data;
    out.push_back(codeByte(coded));
    const int first = isLowCode(c.command) ? 1 : 0;
    for (int j = first; j < c.dataLen; ++j) out.push_back(clampByte(data[static_cast<size_t>(j)]));
}

std::vector<uint8_t> encodeGameCommand(std::span<const uint8_t> bytes, int32_t place, int32_t target, bool absolute) {
    std::vector<uint8_t> out(bytes.begin(), bytes.end());
    if (absolute) out = {static_cast<uint8_t>(kAbsoluteJump), 0, 0};
    if (out.empty()) return out;
    const CommandFormat f = commandFormat(out[0], false, out.size() > 1 ? out[1] : -1);
    if (f.field == FieldKind::None) return out;
    const FieldBytes field = fieldBytes(f.field, place, target);
    for (int k = 0; k < field.count && static_cast<size_t>(f.fieldAt + k) < out.size(); ++k)
        out[static_cast<size_t>(f.fieldAt + k)] = field.bytes[static_cast<size_t>(k)];
    return out;
}

const SeqCommand& clsSequence::at(int pos) const {
    if (pos < 0 || pos >= commandCount())
        throw std::out_of_range("command index " + std::to_string(pos) + " outside the sequence");
    return cmds_[static_cast<size_t>(pos)];
}

SeqCommand& clsSequence::at(int pos) { return const_cast<SeqCommand&>(std::as_const(*this).at(pos)); }

void clsSequence::clone(const clsSequence& s) { *this = s; }

void clsSequence::load(Image& fp, bool KR) {
    kick_ = KR;
    std::vector<int32_t> fieldAddress;  // what each command's field bytes lead to
    for (;;) {
        if (commandCount() >= kMaxCommands || fp.remaining() < 1) {
            truncated_ = true;
            break;
        }
        const auto pos = static_cast<size_t>(fp.position());
        const uint8_t b = fp.bytes()[pos];
        const int next = fp.remaining() >= 2 ? fp.bytes()[pos + 1] : -1;
        const CommandFormat f = commandFormat(b, KR, next);
        // The game's addresses end at FFFF: a command past it is as cut off as one past the image's end.
        if (fp.remaining() < f.editorLength || base() + sizeBytes_ + f.editorLength - 1 > 0xFFFF) {
            truncated_ = true;
            break;
        }
        SeqCommand c;
        c.origin = CmdId::readAt(base() + sizeBytes_);
        c.command = f.command;
        c.dataLen = editorDataLen(f);
        (void)fp.readByte();
        int k = 0;
        if (isLowCode(b)) c.data[static_cast<size_t>(k++)] = static_cast<int16_t>(b & kLowNibbleMask);
        for (int32_t n = 1; n < f.editorLength; ++n) c.data[static_cast<size_t>(k++)] = static_cast<int16_t>(fp.readByte());
        int32_t target = kNoField;
        if (const auto [lo, hi] = addressFieldData(c); lo >= 0) {
            const auto l = static_cast<size_t>(lo);
            target = hi < 0 ? c.origin.readAddress() + signedByte(c.data[l]) : (c.data[l] & 0xFF) + 256 * (c.data[l + 1] & 0xFF);
            c.data[l] = 0;
            if (hi >= 0) c.data[l + 1] = 0;
        }
        fieldAddress.push_back(target);
        sizeBytes_ += f.editorLength;
        cmds_.push_back(c);
        if (f.editorEnds) break;
    }
    // A field names one of the sequence's own commands when one was read at
    // the address it leads to, else that address.
    const std::vector<int32_t> at = places();
    const auto standing = byPlace(at);
    for (size_t i = 0; i < cmds_.size(); ++i)
        if (fieldAddress[i] != kNoField)
            cmds_[i].field = fieldNaming(cmds_, standing, fieldAddress[i], isRelative(cmds_[i]), at[i]);
}

void clsSequence::reset(int32_t address) {
    key_ = SeqKey::at(address);
    cmds_.clear();
    sizeBytes_ = 0;
    truncated_ = false;
    kick_ = false;
    continuation_ = -1;
}

bool clsSequence::isValid() const { return !truncated_ && nextSequence() != 0xFFFF; }

int32_t clsSequence::nextSequence() const {
    if (cmds_.empty()) return 0;
    const int last = commandCount() - 1;
    const SeqCommand& end = cmds_.back();
    if (end.command == kAbsoluteJump) return fieldTarget(last);
    if (end.command == kRelativeJump) return leadsBackward(cmds_, cmds_.size() - 1) ? 0 : fieldTarget(last);  // a loop back continues nowhere else
    return 0;
}

int32_t clsSequence::readsPastEnd() const {
    if (cmds_.empty() || !key_.placed() || !commandFormat(codeByte(cmds_.back()), kick_, -1).endsByNext) return -1;
    return key_.address() + sizeBytes_;
}

void clsSequence::key(SeqKey value) {
    key_ = value;
    settle();
}

int32_t clsSequence::base() const { return key_.isNew() ? kMadeBase + key_.madeNumber() : key_.address(); }

std::string clsSequence::AddressRange() const {
    if (key_.isNew()) return "new " + std::to_string(key_.madeNumber() + 1);
    // An empty sequence (nothing could be read) is its start alone, never a range that runs backwards.
    const int32_t a = key_.address();
    return sizeBytes_ == 0 ? hex4(a) : hex4(a) + "-" + hex4(a + sizeBytes_ - 1);
}

int16_t clsSequence::dataLen(int pos) const { return at(pos).dataLen; }
int16_t clsSequence::command(int pos) const { return at(pos).command; }
CmdId clsSequence::commandAddress(int i) const { return at(i).origin; }

std::vector<int32_t> clsSequence::places() const {
    std::vector<int32_t> out;
    out.reserve(cmds_.size());
    int32_t p = base();
    for (const SeqCommand& c : cmds_) {
        out.push_back(p);
        p += c.encodedSize();
    }
    return out;
}

int32_t clsSequence::place(int i) const {
    (void)at(i);
    int32_t p = base();
    for (int k = 0; k < i; ++k) p += cmds_[static_cast<size_t>(k)].encodedSize();
    return p;
}

int32_t clsSequence::placeOfOrigin(CmdId origin) const {
    int32_t p = base();
    for (const SeqCommand& c : cmds_) {
        if (c.origin == origin) return p;
        p += c.encodedSize();
    }
    return -1;
}

int32_t clsSequence::resolve(const FieldRef& f, const std::vector<int32_t>& at, const OriginIndex* index) const {
    switch (f.kind) {
    case FieldRef::Kind::None: return kNoField;
    case FieldRef::Kind::Address: return f.address;
    case FieldRef::Kind::Command: {
        if (index) {
            const auto it = index->find(f.command);
            return it == index->end() ? kNoField : at[it->second];
        }
        const int k = indexOfOrigin(cmds_, f.command);
        return k < 0 ? kNoField : at[static_cast<size_t>(k)];
    }
    }
    return kNoField;
}

clsSequence::OriginIndex clsSequence::originIndex() const {
    OriginIndex out;
    out.reserve(cmds_.size());
    for (size_t k = 0; k < cmds_.size(); ++k) out.emplace(cmds_[k].origin, k);
    return out;
}

int32_t clsSequence::fieldTarget(int i) const {
    const SeqCommand& c = at(i);
    if (c.field.none()) return kNoField;
    if (c.field.kind == FieldRef::Kind::Address) return c.field.address;
    return placeOfOrigin(c.field.command);
}

std::vector<int32_t> clsSequence::fieldTargets() const { return fieldTargets(places()); }

bool clsSequence::leadsBack(int i) const {
    (void)at(i);  // a command of the sequence
    return leadsBackward(cmds_, static_cast<size_t>(i));
}

std::vector<int32_t> clsSequence::fieldTargets(const std::vector<int32_t>& at) const {
    // A short sequence is searched; a long one indexed once.
    const OriginIndex index = cmds_.size() > kIndexFrom ? originIndex() : OriginIndex{};
    std::vector<int32_t> out;
    out.reserve(cmds_.size());
    for (const SeqCommand& c : cmds_) out.push_back(resolve(c.field, at, cmds_.size() > kIndexFrom ? &index : nullptr));
    return out;
}

FieldView clsSequence::fieldView(int i) const {
    if (at(i).field.none()) return {};  // most commands: nothing to measure
    return viewAt(static_cast<size_t>(i), places(), nullptr);
}

FieldView clsSequence::viewAt(size_t i, const std::vector<int32_t>& at, const OriginIndex* index) const {
    const SeqCommand& c = cmds_[i];
    FieldView v;
    if (c.field.none()) return v;
    v.target = resolve(c.field, at, index);
    const bool own = c.field.kind == FieldRef::Kind::Command;
    if (isRelative(c) && leadsBackward(cmds_, i)) {
        // Within the sequence the distance does not depend on where it stands;
        // a new sequence cannot measure one to an address outside it.
        v.loopBack = own || placed() ? at[i] - v.target : 0;
    }
    if (own && !placed() && v.target != kNoField) {
        v.madeNumber = key_.madeNumber() + 1;
        v.fromStart = v.target - base();
    }
    return v;
}

void clsSequence::settle() {
    for (;;) {
        const std::vector<int32_t> at = places();
        bool changed = false;
        for (size_t i = 0; i < cmds_.size(); ++i) {
            SeqCommand& c = cmds_[i];
            if (!isRelative(c) || c.field.none()) continue;
            // A new sequence has no place: only a jump within it can be measured.
            if (c.field.kind == FieldRef::Kind::Address && !placed()) continue;
            const int32_t t = resolve(c.field, at);
            if (t == kNoField || relativeReaches(at[i], t, leadsBackward(cmds_, i))) continue;
            c = madeAbsolute(c);
            sizeBytes_ += 1;
            changed = true;
            break;
        }
        if (!changed) return;
    }
}

CmdId clsSequence::nextNewOrigin() const {
    CmdId lowest = CmdId::added(0);
    for (const SeqCommand& c : cmds_) lowest = std::min(lowest, c.origin.below());
    return lowest;
}

int16_t clsSequence::data(int pos, int i) const {
    if (i < 0 || i > 255) throw std::out_of_range("data index " + std::to_string(i) + " outside 0 to 255");
    const SeqCommand& c = at(pos);
    const auto [lo, hi] = addressFieldData(c);
    if (i == lo || (hi >= 0 && i == hi)) {
        std::vector<uint8_t> bytes;
        encodeCommand(c, place(pos), fieldTarget(pos), bytes);
        return bytes[static_cast<size_t>(byteOfData(c.command, i))];
    }
    return i < kMaxDataValues ? c.data[static_cast<size_t>(i)] : 0;
}

void clsSequence::data(int pos, int i, int16_t value) {
    SeqCommand& cmd = at(pos);
    if (i < 0 || i > 255) throw std::out_of_range("data index " + std::to_string(i) + " outside 0 to 255");
    if (i >= kMaxDataValues) return;
    const auto [lo, hi] = addressFieldData(cmd);
    if (i == lo || (hi >= 0 && i == hi)) {
        const int32_t here = place(pos);
        int32_t address = 0;
        if (hi < 0) {
            address = here + signedByte(value);
        } else {
            const int32_t now = fieldTarget(pos);
            const int32_t low = i == lo ? (value & 0xFF) : (now & 0xFF);
            const int32_t high = i == hi ? (value & 0xFF) : ((now >> 8) & 0xFF);
            address = low + 256 * high;
        }
        const auto standing = byPlace(places());
        // A new sequence has no place to measure a relative jump from: only one
        // to its own commands can be set. No field leads outside 0000-FFFF.
        const bool own = standing.count(address) != 0;
        if (!own && ((hi < 0 && !placed()) || address < 0 || address > 0xFFFF)) return;
        cmd.field = fieldNaming(cmds_, standing, address, hi < 0, here);
        settle();
        return;
    }
    cmd.data[static_cast<size_t>(i)] = value;
    if (cmd.command == kComPass && i == 0) {
        const auto newLen = static_cast<int16_t>((value & kLowNibbleMask) + 1);
        sizeBytes_ += newLen - cmd.dataLen;
        cmd.dataLen = newLen;
        settle();  // the commands after it stand elsewhere now
    }
}

bool clsSequence::removeCommand(int pos) {
    if (pos < 0 || pos >= commandCount() || pos == commandCount() - 1) return false;
    clsSequence edited = *this;
    auto& cmds = edited.cmds_;
    // What named the removed command names the one that takes its place.
    const CmdId gone = cmds[static_cast<size_t>(pos)].origin, heir = cmds[static_cast<size_t>(pos) + 1].origin;
    for (SeqCommand& c : cmds)
        if (c.field.kind == FieldRef::Kind::Command && c.field.command == gone) c.field.command = heir;
    edited.sizeBytes_ -= cmds[static_cast<size_t>(pos)].encodedSize();
    cmds.erase(cmds.begin() + pos);
    edited.settle();
    if (!edited.verify().empty()) return false;
    *this = std::move(edited);
    return true;
}

clsSequence::Insert clsSequence::insertCommand(int after, int16_t code) {
    const bool low = isLowCode(code);
    if (code < 0 || code > 0xFF || (low && (code & kLowNibbleMask) != 0)) return Insert::NotACommand;
    if (after < -1 || after >= commandCount()) return Insert::NotACommand;
    if (isLockUp(code)) return Insert::LockUp;
    // A new COM pass has N = 0: its code byte alone, as the length table says.
    const CommandFormat f = commandFormat(static_cast<uint8_t>(code), kick_, -1);
    // A long snap goes on only before an absolute jump, which ends the sequence: it is never added.
    if (f.editorEnds) return Insert::EndsSequence;
    if (after >= 0 && after == commandCount() - 1 && formatAt(cmds_, static_cast<size_t>(after), kick_).editorEnds) return Insert::AfterEnd;
    if (commandCount() >= kMaxCommands) return Insert::Full;
    SeqCommand c;
    c.origin = nextNewOrigin();  // a new command has no place in the image yet
    c.command = code;
    c.dataLen = editorDataLen(f);
    if (f.field != FieldKind::None && !f.gameFieldOnly) c.field = FieldRef::at(0);  // a new branch names 0000
    clsSequence edited = *this;
    edited.cmds_.insert(edited.cmds_.begin() + (after + 1), c);
    edited.sizeBytes_ += c.encodedSize();
    edited.settle();
    if (!edited.verify().empty()) return Insert::EndsSequence;
    *this = std::move(edited);
    return Insert::Done;
}

std::string clsSequence::verify() const {
    if (cmds_.empty()) return "a sequence needs at least its end command";
    if (cmds_.size() > static_cast<size_t>(kMaxCommands)) return "more than " + std::to_string(kMaxCommands) + " commands";
    auto at = [](size_t i, const std::string& why) { return "command " + std::to_string(i) + ": " + why; };
    std::unordered_map<CmdId, size_t, CmdIdHash> origins;
    origins.reserve(cmds_.size());
    int64_t size = 0;
    for (size_t i = 0; i < cmds_.size(); ++i) {
        const SeqCommand& c = cmds_[i];
        const bool low = isLowCode(c.command);
        if (c.command < 0 || c.command > 0xFF || (low && (c.command & kLowNibbleMask) != 0)) return at(i, "not a command code");
        if (const auto [it, fresh] = origins.emplace(c.origin, i); !fresh)
            return at(i, "has the same origin as command " + std::to_string(it->second));
        const CommandFormat f = formatAt(cmds_, i, kick_);
        if (c.dataLen != editorDataLen(f))
            return at(i, "takes " + std::to_string(std::max<int>(0, editorDataLen(f))) + " data values, not " +
                             std::to_string(std::max<int>(0, c.dataLen)));
        const auto [lo, hi] = addressFieldData(c);
        for (int k = 0; k < c.dataLen; ++k) {
            const int16_t v = c.data[static_cast<size_t>(k)];
            if (k == lo || k == hi) continue;
            if (v < 0 || v > (low && k == 0 ? 0x0F : 0xFF)) return at(i, "data " + std::to_string(k) + " out of range");
        }
        const bool last = i + 1 == cmds_.size();
        if (f.editorEnds && !last) return at(i, "ends the sequence before its last command");
        if (last && !f.editorEnds) return at(i, "the last command must end the sequence");
        if ((lo >= 0) == c.field.none())
            return at(i, lo >= 0 ? "its address field names nothing" : "names a target but has no address field");
        if (c.field.kind == FieldRef::Kind::Address && (c.field.address < 0 || c.field.address > 0xFFFF))
            return at(i, "its address field leads outside 0000 to FFFF");
        size += c.encodedSize();
    }
    const std::vector<int32_t> places = this->places();
    const OriginIndex index = originIndex();
    for (size_t i = 0; i < cmds_.size(); ++i) {
        const SeqCommand& c = cmds_[i];
        if (c.field.kind == FieldRef::Kind::Command && origins.count(c.field.command) == 0)
            return at(i, "names a command the sequence no longer holds");
        if (isRelative(c) && (c.field.kind == FieldRef::Kind::Command || placed()) &&
            !relativeReaches(places[i], resolve(c.field, places, &index), leadsBackward(cmds_, i)))
            return at(i, "a relative jump out of its reach");
    }
    if (size != sizeBytes_)
        return "its byte size " + std::to_string(sizeBytes_) + " is not the sum of its commands' sizes (" +
               std::to_string(size) + ")";
    return "";
}

void clsSequence::assign(std::vector<SeqCommand> commands) {
    clsSequence edited;
    edited.key_ = key_;
    edited.kick_ = kick_;
    edited.continuation_ = continuation_;
    for (size_t i = 0; i < commands.size(); ++i) {
        SeqCommand& c = commands[i];
        if (c.command >= 0 && c.command <= 0xFF) c.dataLen = editorDataLen(formatAt(commands, i, kick_));
        edited.sizeBytes_ += c.encodedSize();
    }
    edited.cmds_ = std::move(commands);
    edited.settle();
    if (const std::string problem = edited.verify(); !problem.empty()) throw std::invalid_argument(problem);
    *this = std::move(edited);
}

void clsSequence::setCommands(const std::vector<std::pair<int, std::vector<int>>>& commands) {
    auto fail = [](size_t i, const std::string& why) {
        throw std::invalid_argument("command " + std::to_string(i) + ": " + why);
    };
    std::vector<SeqCommand> cmds;
    std::vector<int32_t> values;  // what each field's values say, -1 for none
    int32_t added = 0;
    for (size_t i = 0; i < commands.size(); ++i) {
        const auto& [code, data] = commands[i];
        if (code < 0 || code > 0xFF || (isLowCode(code) && (code & kLowNibbleMask) != 0)) fail(i, "not a command code");
        if (isLowCode(code) && data.empty()) fail(i, "a low code carries its first value in its code byte");
        if (data.size() > static_cast<size_t>(kMaxDataValues)) fail(i, "more data values than any command takes");
        SeqCommand c;
        c.origin = CmdId::added(added++);
        c.command = static_cast<int16_t>(code);
        for (size_t k = 0; k < data.size(); ++k) c.data[k] = static_cast<int16_t>(std::clamp(data[k], -1, 0x100));
        cmds.push_back(c);
    }
    for (size_t i = 0; i < cmds.size(); ++i) {
        const int16_t expected = editorDataLen(formatAt(cmds, i, kick_));
        if (std::max<int>(expected, 0) != static_cast<int>(commands[i].second.size()))
            fail(i, "takes " + std::to_string(std::max<int>(expected, 0)) + " data values, not " +
                        std::to_string(commands[i].second.size()));
        cmds[i].dataLen = expected;
    }
    // A field names what stands at its address in the new layout.
    std::vector<int32_t> at;
    int32_t p = base();
    for (const SeqCommand& c : cmds) {
        at.push_back(p);
        p += c.encodedSize();
    }
    const auto standing = byPlace(at);
    for (size_t i = 0; i < cmds.size(); ++i) {
        SeqCommand& c = cmds[i];
        const auto [lo, hi] = addressFieldData(c);
        if (lo < 0) continue;
        const auto l = static_cast<size_t>(lo);
        const int32_t address = hi < 0 ? at[i] + signedByte(c.data[l]) : (c.data[l] & 0xFF) + 256 * (c.data[l + 1] & 0xFF);
        c.field = fieldNaming(cmds, standing, address, hi < 0, at[i]);
        c.data[l] = 0;
        if (hi >= 0) c.data[l + 1] = 0;
    }
    assign(std::move(cmds));
}

bool clsSequence::swapCommands(int pos1, int pos2) {
    if (pos1 < 0 || pos2 < 0 || pos1 >= commandCount() || pos2 >= commandCount()) return false;
    clsSequence edited = *this;
    std::swap(edited.cmds_[static_cast<size_t>(pos1)], edited.cmds_[static_cast<size_t>(pos2)]);
    edited.settle();
    if (!edited.verify().empty()) return false;
    *this = std::move(edited);
    return true;
}

void clsSequence::convertRelJump() {
    if (cmds_.empty() || !isRelative(cmds_.back()) || leadsBackward(cmds_, cmds_.size() - 1)) return;  // a loop back stays
    cmds_.back() = madeAbsolute(cmds_.back());
    sizeBytes_ += 1;
}

bool clsSequence::gameGoesOnAfterEnd() const {
    return !cmds_.empty() && commandFormat(codeByte(cmds_.back()), kick_, -1).gameGoesOn;
}

bool clsSequence::readsDifferentlyByGame() const {
    for (const SeqCommand& c : cmds_) {
        const CommandFormat f = commandFormat(codeByte(c), kick_, -1);
        if (f.editorLength != f.gameLength) return true;
    }
    return false;
}

uint8_t clsSequence::lastCommand() const {
    return cmds_.empty() ? 0 : static_cast<uint8_t>(cmds_.back().command);
}

std::vector<uint8_t> clsSequence::encode() const {
    const std::vector<int32_t> at = places();
    const OriginIndex index = cmds_.size() > kIndexFrom ? originIndex() : OriginIndex{};
    std::vector<uint8_t> out;
    out.reserve(static_cast<size_t>(std::max(sizeBytes_, 0)));
    for (size_t i = 0; i < cmds_.size(); ++i)
        encodeCommand(cmds_[i], at[i], resolve(cmds_[i].field, at, cmds_.size() > kIndexFrom ? &index : nullptr), out);
    return out;
}

}  // namespace zpe
