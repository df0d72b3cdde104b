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

uint8_t clampByte(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }


// The format of command i of `cmds` in the editor's reading (the long snap
// looks at the command after it).
CommandFormat formatAt(const std::vector<SeqCommand>& cmds, size_t i, bool kick) {
    const int next = i + 1 < cmds.size() ? codeByte(cmds[i + 1]) : -1;
    return commandFormat(codeByte(cmds[i]), kick, next);
}


int32_t signedByte(int32_t v) { return (v & 0xFF) >= 0x80 ? (v & 0xFF) - 256 : (v & 0xFF); }

// The address a command's field holds in its bytes, the command standing at `place`.
int32_t fieldValue(const SeqCommand& c, int32_t place) {
    const auto [lo, hi] = addressFieldData(c);
    if (lo < 0) return SeqCommand::kNoTarget;
    if (hi < 0) return place + signedByte(c.data[static_cast<size_t>(lo)]);
    return (c.data[static_cast<size_t>(lo)] & 0xFF) + 256 * (c.data[static_cast<size_t>(hi)] & 0xFF);
}

}  // namespace

std::unordered_map<int32_t, int32_t> placesByOrigin(const std::vector<SeqCommand>& cmds, int32_t start) {
    std::unordered_map<int32_t, int32_t> out;
    out.reserve(cmds.size());
    int32_t at = start;
    for (const SeqCommand& c : cmds) {
        out.emplace(c.origin, at);
        at += c.encodedSize();
    }
    return out;
}

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

const SeqCommand& clsSequence::at(int pos) const {
    if (pos < 0 || pos >= commandCount())
        throw std::out_of_range("command index " + std::to_string(pos) + " outside the sequence");
    return cmds_[static_cast<size_t>(pos)];
}

SeqCommand& clsSequence::at(int pos) { return const_cast<SeqCommand&>(std::as_const(*this).at(pos)); }

void clsSequence::clone(const clsSequence& s) { *this = s; }

void clsSequence::load(Image& fp, bool KR) {
    kick_ = KR;
    for (;;) {
        if (commandCount() >= kMaxCommands || fp.remaining() < 1) {
            truncated_ = true;
            return;
        }
        const auto pos = static_cast<size_t>(fp.position());
        const uint8_t b = fp.bytes()[pos];
        const int next = fp.remaining() >= 2 ? fp.bytes()[pos + 1] : -1;
        const CommandFormat f = commandFormat(b, KR, next);
        if (fp.remaining() < f.editorLength) {
            truncated_ = true;
            return;
        }
        SeqCommand c;
        c.origin = startAddr_ + sizeBytes_;
        c.command = f.command;
        c.dataLen = editorDataLen(f);
        (void)fp.readByte();
        int k = 0;
        if (isLowCode(b)) c.data[static_cast<size_t>(k++)] = static_cast<int16_t>(b & kLowNibbleMask);
        for (int32_t n = 1; n < f.editorLength; ++n) c.data[static_cast<size_t>(k++)] = static_cast<int16_t>(fp.readByte());
        c.target = fieldValue(c, c.origin);
        sizeBytes_ += f.editorLength;
        cmds_.push_back(c);
        if (f.editorEnds) return;
    }
}

void clsSequence::reset(int32_t address) {
    startAddr_ = address;
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
    if (end.command == kRelativeJump) {
        const int32_t t = fieldTarget(last);
        return t >= place(last) ? t : 0;  // a loop back continues nowhere else
    }
    return 0;
}

void clsSequence::address(int32_t value) {
    startAddr_ = value;
    relink();
}

std::string clsSequence::AddressRange() const { return hex4(startAddr_) + "-" + hex4(startAddr_ + sizeBytes_ - 1); }

int16_t clsSequence::dataLen(int pos) const { return at(pos).dataLen; }
int16_t clsSequence::command(int pos) const { return at(pos).command; }
int32_t clsSequence::commandAddress(int i) const { return at(i).origin; }

int32_t clsSequence::place(int i) const {
    (void)at(i);
    int32_t p = startAddr_;
    for (int k = 0; k < i; ++k) p += cmds_[static_cast<size_t>(k)].encodedSize();
    return p;
}

int32_t clsSequence::placeOfOrigin(int32_t origin) const {
    int32_t p = startAddr_;
    for (const SeqCommand& c : cmds_) {
        if (c.origin == origin) return p;
        p += c.encodedSize();
    }
    return -1;
}

int32_t clsSequence::identityAt(int32_t address) const {
    int32_t p = startAddr_;
    for (const SeqCommand& c : cmds_) {
        if (p == address) return c.origin;
        p += c.encodedSize();
    }
    return address;
}

int32_t clsSequence::fieldTarget(int i) const {
    const SeqCommand& c = at(i);
    if (c.target == SeqCommand::kNoTarget) return SeqCommand::kNoTarget;
    const int32_t p = placeOfOrigin(c.target);
    return p >= 0 ? p : c.target;
}

std::vector<int32_t> clsSequence::fieldTargets() const {
    const auto places = placesByOrigin(cmds_, startAddr_);
    std::vector<int32_t> out;
    out.reserve(cmds_.size());
    for (const SeqCommand& c : cmds_) {
        if (c.target == SeqCommand::kNoTarget) {
            out.push_back(SeqCommand::kNoTarget);
            continue;
        }
        const auto own = places.find(c.target);
        out.push_back(own == places.end() ? c.target : own->second);
    }
    return out;
}

void clsSequence::relink() {
    if (std::none_of(cmds_.begin(), cmds_.end(), [](const SeqCommand& c) { return c.target != SeqCommand::kNoTarget; }))
        return;
    const auto places = placesByOrigin(cmds_, startAddr_);
    int32_t at = startAddr_;
    for (SeqCommand& c : cmds_) {
        const auto [lo, hi] = addressFieldData(c);
        if (lo >= 0 && c.target != SeqCommand::kNoTarget) {
            const auto own = places.find(c.target);
            const int32_t t = own == places.end() ? c.target : own->second;
            if (hi < 0) {
                c.data[static_cast<size_t>(lo)] = static_cast<int16_t>((t - at) & 0xFF);
            } else {
                c.data[static_cast<size_t>(lo)] = static_cast<int16_t>(t & 0xFF);
                c.data[static_cast<size_t>(hi)] = static_cast<int16_t>((t >> 8) & 0xFF);
            }
        }
        at += c.encodedSize();
    }
}

int32_t clsSequence::nextNewOrigin() const {
    int32_t lowest = 0;
    for (const SeqCommand& c : cmds_) lowest = std::min(lowest, c.origin);
    return lowest - 1;
}

int16_t clsSequence::data(int pos, int i) const {
    if (i < 0 || i > 255) throw std::out_of_range("data index " + std::to_string(i) + " outside 0 to 255");
    return i < kMaxDataValues ? at(pos).data[static_cast<size_t>(i)] : 0;
}

void clsSequence::data(int pos, int i, int16_t value) {
    SeqCommand& cmd = at(pos);
    if (i < 0 || i > 255) throw std::out_of_range("data index " + std::to_string(i) + " outside 0 to 255");
    if (i >= kMaxDataValues) return;
    cmd.data[static_cast<size_t>(i)] = value;
    const auto [lo, hi] = addressFieldData(cmd);
    if (i == lo || i == hi) {
        cmd.target = identityAt(fieldValue(cmd, place(pos)));
    } else if (cmd.command == kComPass && i == 0) {
        const auto newLen = static_cast<int16_t>((value & kLowNibbleMask) + 1);
        sizeBytes_ += newLen - cmd.dataLen;
        cmd.dataLen = newLen;
        relink();  // the commands after it stand elsewhere now
    }
}

bool clsSequence::removeCommand(int pos) {
    if (pos < 0 || pos >= commandCount() || pos == commandCount() - 1) return false;
    clsSequence edited = *this;
    auto& cmds = edited.cmds_;
    // What named the removed command names the one that takes its place.
    const int32_t gone = cmds[static_cast<size_t>(pos)].origin, heir = cmds[static_cast<size_t>(pos) + 1].origin;
    for (SeqCommand& c : cmds)
        if (c.target == gone) c.target = heir;
    edited.sizeBytes_ -= cmds[static_cast<size_t>(pos)].encodedSize();
    cmds.erase(cmds.begin() + pos);
    edited.relink();
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
    if (commandCount() >= kMaxCommands) return Insert::Full;
    SeqCommand c;
    c.origin = nextNewOrigin();  // a new command has no place in the image yet
    c.command = code;
    c.dataLen = editorDataLen(f);
    if (f.field != FieldKind::None && !f.gameFieldOnly) c.target = 0;  // a new branch names address 0000
    clsSequence edited = *this;
    edited.cmds_.insert(edited.cmds_.begin() + (after + 1), c);
    edited.sizeBytes_ += c.encodedSize();
    edited.relink();
    if (!edited.verify().empty()) return Insert::EndsSequence;
    *this = std::move(edited);
    return Insert::Done;
}

std::string clsSequence::verify() const {
    if (cmds_.empty()) return "a sequence needs at least its end command";
    if (cmds_.size() > static_cast<size_t>(kMaxCommands)) return "more than " + std::to_string(kMaxCommands) + " commands";
    auto at = [](size_t i, const std::string& why) { return "command " + std::to_string(i) + ": " + why; };
    std::unordered_map<int32_t, size_t> origins;
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
        for (int k = 0; k < c.dataLen; ++k) {
            const int16_t v = c.data[static_cast<size_t>(k)];
            if (v < 0 || v > (low && k == 0 ? 0x0F : 0xFF)) return at(i, "data " + std::to_string(k) + " out of range");
        }
        const bool last = i + 1 == cmds_.size();
        if (f.editorEnds && !last) return at(i, "ends the sequence before its last command");
        if (last && !f.editorEnds) return at(i, "the last command must end the sequence");
        const bool hasField = addressFieldData(c).first >= 0;
        if (hasField != (c.target != SeqCommand::kNoTarget))
            return at(i, hasField ? "its address field names nothing" : "names a target but has no address field");
        size += c.encodedSize();
    }
    for (size_t i = 0; i < cmds_.size(); ++i) {
        const int32_t t = cmds_[i].target;
        if (t != SeqCommand::kNoTarget && isNewOrigin(t) && origins.count(t) == 0)
            return at(i, "names a new command the sequence no longer holds");
    }
    if (size != sizeBytes_)
        return "its byte size " + std::to_string(sizeBytes_) + " is not the sum of its commands' sizes (" +
               std::to_string(size) + ")";
    return "";
}

void clsSequence::assign(std::vector<SeqCommand> commands) {
    clsSequence edited;
    edited.startAddr_ = startAddr_;
    edited.kick_ = kick_;
    edited.continuation_ = continuation_;
    for (size_t i = 0; i < commands.size(); ++i) {
        SeqCommand& c = commands[i];
        if (c.command >= 0 && c.command <= 0xFF) c.dataLen = editorDataLen(formatAt(commands, i, kick_));
        edited.sizeBytes_ += c.encodedSize();
    }
    edited.cmds_ = std::move(commands);
    if (const std::string problem = edited.verify(); !problem.empty()) throw std::invalid_argument(problem);
    edited.relink();
    *this = std::move(edited);
}

void clsSequence::setCommands(const std::vector<std::pair<int, std::vector<int>>>& commands) {
    auto fail = [](size_t i, const std::string& why) {
        throw std::invalid_argument("command " + std::to_string(i) + ": " + why);
    };
    std::vector<SeqCommand> cmds;
    int32_t origin = kNewOrigin;
    for (size_t i = 0; i < commands.size(); ++i) {
        const auto& [code, data] = commands[i];
        if (code < 0 || code > 0xFF || (isLowCode(code) && (code & kLowNibbleMask) != 0)) fail(i, "not a command code");
        if (isLowCode(code) && data.empty()) fail(i, "a low code carries its first value in its code byte");
        if (data.size() > static_cast<size_t>(kMaxDataValues)) fail(i, "more data values than any command takes");
        SeqCommand c;
        c.origin = origin--;
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
    std::unordered_map<int32_t, int32_t> byPlace;
    int32_t at = startAddr_;
    for (const SeqCommand& c : cmds) {
        byPlace.emplace(at, c.origin);
        at += c.encodedSize();
    }
    at = startAddr_;
    for (SeqCommand& c : cmds) {
        const int32_t value = fieldValue(c, at);
        if (value != SeqCommand::kNoTarget) {
            const auto own = byPlace.find(value);
            c.target = own == byPlace.end() ? value : own->second;
        }
        at += c.encodedSize();
    }
    assign(std::move(cmds));
}

bool clsSequence::swapCommands(int pos1, int pos2) {
    if (pos1 < 0 || pos2 < 0 || pos1 >= commandCount() || pos2 >= commandCount()) return false;
    clsSequence edited = *this;
    std::swap(edited.cmds_[static_cast<size_t>(pos1)], edited.cmds_[static_cast<size_t>(pos2)]);
    edited.relink();
    if (!edited.verify().empty()) return false;
    *this = std::move(edited);
    return true;
}

void clsSequence::convertRelJump() {
    if (cmds_.empty() || cmds_.back().command != kRelativeJump) return;
    const int last = commandCount() - 1;
    const int32_t t = fieldTarget(last);
    if (t < place(last)) return;  // a loop back stays
    SeqCommand& end = cmds_.back();
    end.command = kAbsoluteJump;
    end.dataLen = 2;
    end.data[0] = static_cast<int16_t>(t & 0xFF);
    end.data[1] = static_cast<int16_t>((t >> 8) & 0xFF);
    sizeBytes_ += 1;
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

std::vector<uint8_t> encodeCommands(const std::vector<SeqCommand>& commands, int32_t at, const Resolver& resolve,
                                    std::vector<int32_t>* places) {
    std::vector<uint8_t> out;
    if (places) places->clear();
    for (size_t i = 0; i < commands.size(); ++i) {
        SeqCommand c = commands[i];
        const auto place = static_cast<int32_t>(at + static_cast<int32_t>(out.size()));
        if (places) places->push_back(place);
        const auto [lo, hi] = addressFieldData(c);
        if (lo >= 0 && c.target != SeqCommand::kNoTarget) {
            const int32_t t = resolve(i, c.target);
            if (hi < 0) {
                // A relative jump keeps its direction: forward it goes on
                // elsewhere, backward it loops, as the editor reads it.
                const int32_t offset = t - place;
                const bool forward = (c.data[static_cast<size_t>(lo)] & 0xFF) < kBackwardOffset;
                if (offset >= -128 && offset <= 127 && (offset >= 0) == forward) {
                    c.data[static_cast<size_t>(lo)] = static_cast<int16_t>(offset & 0xFF);
                } else {  // out of a relative jump's reach
                    c.command = kAbsoluteJump;
                    c.dataLen = 2;
                    c.data[0] = static_cast<int16_t>(t & 0xFF);
                    c.data[1] = static_cast<int16_t>((t >> 8) & 0xFF);
                }
            } else {
                c.data[static_cast<size_t>(lo)] = static_cast<int16_t>(t & 0xFF);
                c.data[static_cast<size_t>(hi)] = static_cast<int16_t>((t >> 8) & 0xFF);
            }
        }
        out.push_back(codeByte(c));
        const int first = isLowCode(c.command) ? 1 : 0;
        for (int j = first; j < c.dataLen; ++j) out.push_back(clampByte(c.data[static_cast<size_t>(j)]));
    }
    return out;
}

std::vector<uint8_t> clsSequence::encode() const {
    const auto places = placesByOrigin(cmds_, startAddr_);
    return encodeCommands(cmds_, startAddr_, [&](size_t, int32_t target) {
        const auto own = places.find(target);
        return own == places.end() ? target : own->second;
    });
}

}  // namespace zpe
