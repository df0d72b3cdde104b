// Treats arbitrary bytes as an image and decodes sequences from several start
// addresses, with and without KR, then encodes and re-decodes what it found.
// Decoding must never read outside the image, loop without end or disagree
// with its own byte size.
#include "sequence/sequence.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

// Stops the run, naming the failed check's line.
void check(bool ok, int line = __builtin_LINE()) {
    if (ok) return;
    std::fprintf(stderr, "decode_fuzzer.cpp:%d: check failed\n", line);
    std::abort();
}

void decodeAt(const std::vector<uint8_t>& bytes, int32_t offset, bool kr) {
    zpe::Image img("fuzz.nes", bytes);
    zpe::clsSequence seq;
    seq.reset(zpe::addressOfOffset(offset));
    img.seekOffset(offset);
    seq.load(img, kr);
    const std::vector<uint8_t> encoded = seq.encode();
    check(static_cast<int32_t>(encoded.size()) == seq.byteSize());
    // What decoded is exactly the bytes that were read.
    check(offset + seq.byteSize() <= static_cast<int32_t>(bytes.size()));
    for (size_t i = 0; i < encoded.size(); ++i) check(encoded[i] == bytes[static_cast<size_t>(offset) + i]);
    (void)seq.commandString(zpe::defaultCmdNames());
    (void)seq.AddressRange();
    // Editing keeps the byte size equal to the encoded bytes.
    if (seq.commandCount() > 0) {
        zpe::clsSequence copy;
        copy.clone(seq);
        // A relative jump an edit put out of reach is written as an absolute one, one byte longer.
        auto sizeAgrees = [](const zpe::clsSequence& s) {
            const auto n = static_cast<int32_t>(s.encode().size());
            return n == s.byteSize() || (n == s.byteSize() + 1 && s.lastCommand() == 0xFE);
        };
        copy.data(0, 0, static_cast<int16_t>(bytes.size() & 0x1F));
        check(sizeAgrees(copy));
        copy.convertRelJump();
        (void)copy.removeCommand(0);
        check(sizeAgrees(copy));
        check(copy.verify().empty() || !seq.isValid() || !seq.verify().empty());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0 || size > (1u << 16)) return 0;
    const std::vector<uint8_t> bytes(data, data + size);
    const int32_t n = static_cast<int32_t>(size);
    for (int32_t offset : {0, 1, n / 3, n / 2, n - 1}) {
        decodeAt(bytes, offset, false);
        decodeAt(bytes, offset, true);
    }
    return 0;
}
