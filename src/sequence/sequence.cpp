#include "sequence/sequence.h"

#include "model/tables.h"
#include "sequence/command_codes.h"

#include <stdexcept>
#include <utility>

namespace zpe {

using namespace cmd;

namespace {
uint8_t clampByte(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }
}  // namespace

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
    for (;;) {
        if (commandCount() >= kMaxCommands || fp.remaining() < 1) {
            truncated_ = true;
            return;
        }
        const int32_t b = fp.readByte();
        SeqCommand cmd;
        cmd.address = startAddr_ + sizeBytes_;

        if (isLowCode(b)) {
            const int32_t hi = b & kLowCodeMask;
            const int32_t length = hi == kComPass ? (b & kLowNibbleMask) + 1 : cmdLenByNibble[static_cast<size_t>(hi >> 4)];
            if (fp.remaining() < length - 1) {
                truncated_ = true;
                return;
            }
            cmd.command = static_cast<int16_t>(hi);
            cmd.data[0] = static_cast<int16_t>(b & kLowNibbleMask);
            for (int32_t k = 1; k < length; ++k) cmd.data[static_cast<size_t>(k)] = fp.readByte();
            cmd.dataLen = static_cast<int16_t>(length);
            sizeBytes_ += length;
            cmds_.push_back(cmd);
            continue;
        }

        cmd.command = static_cast<int16_t>(b);
        int32_t length = cmdLenHigh[static_cast<size_t>(b - kFirstHighCode)];
        if (KR && (b == kThreePointStance || b == kTwoPointStance)) length = 1;
        // A long snap goes on only when an absolute jump follows it; the byte is looked at, not taken.
        if (b == kLongSnap && !(fp.remaining() >= 1 && fp.bytes()[static_cast<size_t>(fp.position())] == kAbsoluteJump))
            length = 0;
        if (b == kCelebrate || b == kDejected) length = 0;

        if (length != 0) {
            if (fp.remaining() < length - 1) {
                truncated_ = true;
                return;
            }
            for (int32_t k = 0; k < length - 1; ++k) cmd.data[static_cast<size_t>(k)] = fp.readByte();
            cmd.dataLen = static_cast<int16_t>(length - 1);
            sizeBytes_ += length;
            cmds_.push_back(cmd);
            continue;
        }

        // An end command.
        int32_t dataBytes = 0;
        if (b == kCelebrate || b == kDejected || b == kRelativeJump) dataBytes = 1;
        else if (b == kAbsoluteJump) dataBytes = 2;
        if (fp.remaining() < dataBytes) {
            truncated_ = true;
            return;
        }
        for (int32_t k = 0; k < dataBytes; ++k) cmd.data[static_cast<size_t>(k)] = fp.readByte();
        cmd.dataLen = static_cast<int16_t>(dataBytes == 0 ? -1 : dataBytes);
        sizeBytes_ += dataBytes + 1;
        if (b == kAbsoluteJump) {
            nextAddr_ = cmd.data[1] * 256 + cmd.data[0];
        } else if (b == kRelativeJump) {
            if (cmd.data[0] < kBackwardOffset) nextAddr_ = cmd.address + cmd.data[0];
        } else {
            nextAddr_ = 0;
        }
        cmds_.push_back(cmd);
        return;
    }
}

void clsSequence::reset(int32_t address) {
    startAddr_ = address;
    cmds_.clear();
    sizeBytes_ = 0;
    nextAddr_ = 0;
    truncated_ = false;
}

bool clsSequence::isValid() const { return !truncated_ && nextAddr_ != 0xFFFF; }

std::string clsSequence::AddressRange() const { return hex4(startAddr_) + "-" + hex4(startAddr_ + sizeBytes_ - 1); }

int16_t clsSequence::dataLen(int pos) const { return at(pos).dataLen; }
int16_t clsSequence::command(int pos) const { return at(pos).command; }
int32_t clsSequence::commandAddress(int i) const { return at(i).address; }

int16_t clsSequence::data(int pos, int i) const {
    if (i < 0 || i > 255) throw std::out_of_range("data index " + std::to_string(i) + " outside 0 to 255");
    return i < kMaxDataValues ? at(pos).data[static_cast<size_t>(i)] : 0;
}

void clsSequence::data(int pos, int i, int16_t value) {
    SeqCommand& cmd = at(pos);
    if (i < 0 || i > 255) throw std::out_of_range("data index " + std::to_string(i) + " outside 0 to 255");
    if (i >= kMaxDataValues) return;
    cmd.data[static_cast<size_t>(i)] = value;
    if (cmd.command == kAbsoluteJump) {
        nextAddr_ = cmd.data[1] * 256 + cmd.data[0];
    } else if (cmd.command == kComPass && i == 0) {
        const auto newLen = static_cast<int16_t>((value & kLowNibbleMask) + 1);
        sizeBytes_ += newLen - cmd.dataLen;
        cmd.dataLen = newLen;
    }
}

void clsSequence::removeCommand(int pos) {
    if (pos < 0 || pos >= commandCount()) return;
    sizeBytes_ -= cmds_[static_cast<size_t>(pos)].encodedSize();
    cmds_.erase(cmds_.begin() + pos);
}

clsSequence::Insert clsSequence::insertCommand(int after, int16_t code) {
    const bool low = isLowCode(code);
    if (code < 0 || code > 0xFF || (low && (code & kLowNibbleMask) != 0)) return Insert::NotACommand;
    if (after < -1 || after >= commandCount()) return Insert::NotACommand;
    if (isLockUp(code)) return Insert::LockUp;
    // A new COM pass has N = 0: its code byte alone, as the length table says.
    const int32_t length =
        low ? cmdLenByNibble[static_cast<size_t>(code >> 4)] : cmdLenHigh[static_cast<size_t>(code - kFirstHighCode)];
    if (!low && (length == 0 || code == kCelebrate || code == kDejected || code == kLongSnap)) return Insert::EndsSequence;
    if (commandCount() >= kMaxCommands) return Insert::Full;
    SeqCommand c;
    c.address = -1;  // a new command has no place in the image yet
    c.command = code;
    c.dataLen = static_cast<int16_t>(low ? length : length - 1);
    cmds_.insert(cmds_.begin() + (after + 1), c);
    sizeBytes_ += c.encodedSize();
    return Insert::Done;
}

void clsSequence::setCommands(const std::vector<std::pair<int, std::vector<int>>>& commands) {
    auto fail = [](size_t i, const std::string& why) {
        throw std::invalid_argument("command " + std::to_string(i) + ": " + why);
    };
    if (commands.empty()) throw std::invalid_argument("a sequence needs at least its end command");
    if (commands.size() > static_cast<size_t>(kMaxCommands)) throw std::invalid_argument("too many commands");
    std::vector<SeqCommand> cmds;
    int32_t at = startAddr_;
    for (size_t i = 0; i < commands.size(); ++i) {
        const auto& [code, data] = commands[i];
        const bool last = i + 1 == commands.size();
        const bool low = isLowCode(code);
        if (code < 0 || code > 0xFF || (low && (code & kLowNibbleMask) != 0)) fail(i, "not a command code");
        for (size_t k = 0; k < data.size(); ++k)
            if (data[k] < 0 || data[k] > (low && k == 0 ? 0x0F : 0xFF)) fail(i, "data " + std::to_string(k) + " out of range");
        SeqCommand c;
        c.address = at;
        c.command = static_cast<int16_t>(code);
        int expected = 0;
        bool ends = false;
        if (low) {
            if (data.empty()) fail(i, "a low code carries its first value in its code byte");
            expected = code == kComPass ? data[0] + 1 : cmdLenByNibble[static_cast<size_t>(code >> 4)];
        } else if (code == kCelebrate || code == kDejected || code == kRelativeJump) {
            expected = 1;
            ends = true;
        } else if (code == kAbsoluteJump) {
            expected = 2;
            ends = true;
        } else if (code == kLongSnap) {
            ends = last || commands[i + 1].first != kAbsoluteJump;
        } else if (cmdLenHigh[static_cast<size_t>(code - kFirstHighCode)] == 0) {
            // The stances also go on in the kick formations' sequences.
            ends = !(code == kThreePointStance || code == kTwoPointStance) || last;
        } else {
            expected = cmdLenHigh[static_cast<size_t>(code - kFirstHighCode)] - 1;
        }
        if (static_cast<int>(data.size()) != expected)
            fail(i, "takes " + std::to_string(expected) + " data values, not " + std::to_string(data.size()));
        if (ends && !last) fail(i, "ends the sequence before its last command");
        if (last && !ends) fail(i, "the last command must end the sequence");
        for (size_t k = 0; k < data.size(); ++k) c.data[k] = static_cast<int16_t>(data[k]);
        c.dataLen = static_cast<int16_t>(ends && data.empty() ? -1 : static_cast<int>(data.size()));
        if (low) c.dataLen = static_cast<int16_t>(expected);
        at += c.encodedSize();
        cmds.push_back(c);
    }
    cmds_ = std::move(cmds);
    sizeBytes_ = at - startAddr_;
    truncated_ = false;
    const SeqCommand& end = cmds_.back();
    nextAddr_ = 0;
    if (end.command == kAbsoluteJump) nextAddr_ = end.data[1] * 256 + end.data[0];
    else if (end.command == kRelativeJump && end.data[0] < kBackwardOffset) nextAddr_ = end.address + end.data[0];
}

void clsSequence::swapCommands(int pos1, int pos2) { std::swap(at(pos1), at(pos2)); }

void clsSequence::convertRelJump() {
    if (cmds_.empty()) return;
    SeqCommand& last = cmds_.back();
    if (last.command != kRelativeJump || last.data[0] >= kBackwardOffset) return;
    last.command = kAbsoluteJump;
    last.dataLen = 2;
    last.data[0] = static_cast<int16_t>(nextAddr_ & 0xFF);
    last.data[1] = static_cast<int16_t>((nextAddr_ >> 8) & 0xFF);
    sizeBytes_ += 1;
}

bool clsSequence::readsDifferentlyByGame() const {
    for (const SeqCommand& c : cmds_)
        if (c.command == kComPass || c.command == kHangF1) return true;
    return false;
}

uint8_t clsSequence::lastCommand() const {
    return cmds_.empty() ? 0 : static_cast<uint8_t>(cmds_.back().command);
}

std::vector<uint8_t> encodeCommands(const std::vector<SeqCommand>& commands) {
    std::vector<uint8_t> out;
    for (const SeqCommand& cmd : commands) {
        if (isLowCode(cmd.command)) {
            out.push_back(clampByte(cmd.command + (cmd.data[0] & kLowNibbleMask)));
            for (int j = 1; j < cmd.dataLen; ++j) out.push_back(clampByte(cmd.data[static_cast<size_t>(j)]));
        } else {
            out.push_back(clampByte(cmd.command));
            for (int j = 0; j < cmd.dataLen; ++j) out.push_back(clampByte(cmd.data[static_cast<size_t>(j)]));
        }
    }
    return out;
}

std::vector<uint8_t> clsSequence::encode() const { return encodeCommands(cmds_); }

}  // namespace zpe
