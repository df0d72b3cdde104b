// The floor under a verb that writes: what replacing an image costs with
// nothing planned. Reads IMAGE, changes one byte, and writes it back the way
// every save does (the lock, an unnamed file in the same folder flushed to
// disk, then the rename and the folder flushed), so whole_programs.sh can
// show how much of zpe import's time is the write itself.
//
//   write_floor IMAGE
#include "model/file_io.h"

#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: write_floor IMAGE\n");
        return 2;
    }
    try {
        const zpe::FileLock lock(argv[1]);
        std::vector<uint8_t> bytes = zpe::readWholeFile(argv[1]);
        if (!bytes.empty()) bytes[bytes.size() / 2] ^= 1;
        zpe::replaceFileContents(argv[1], bytes);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "write_floor: %s\n", e.what());
        return 1;
    }
    return 0;
}
