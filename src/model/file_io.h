#pragma once
// Whole-file reading and all-or-nothing replacement of a file's contents.
#include <cstdint>
#include <string>
#include <vector>

namespace zpe {

// Reads the whole file. Throws RomError naming the file when it cannot be read.
std::vector<uint8_t> readWholeFile(const std::string& path);

// Replaces the contents of `path` with `bytes` so that a crash, a kill or a full
// disk leaves either the old file or the new one, never a mix: the bytes go to a
// new file beside it, are flushed to disk, and the new file then takes the old
// one's name. An existing file keeps its permission bits. A file that exists but
// is not writable is refused (RomError), as is a folder in which no new file can
// be made. Throws RomError naming the file and the reason on any failure; the
// original file is then untouched.
void replaceFileContents(const std::string& path, const std::vector<uint8_t>& bytes);

// Writes a text file the same all-or-nothing way.
void replaceFileText(const std::string& path, const std::string& text);

}  // namespace zpe
