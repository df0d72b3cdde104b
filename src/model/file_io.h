#pragma once
// Whole-file reading, all-or-nothing replacement of a file's contents, and the
// advisory lock that serialises the programs that read and then rewrite an
// image. Every file the editor writes goes through replaceFileContents.
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace zpe {

// The largest file the editor reads: an image of this game is 256 KiB and a
// header; 4 MiB leaves room for any expanded image and refuses anything else
// before a byte of it is read. The data files are bounded the same way.
constexpr int64_t kMaxFileSize = 4 * 1024 * 1024;

// Reads the whole file. It is opened without blocking (a FIFO or a device
// cannot hang the program); anything but a regular file, and a file larger
// than `maxSize` bytes, is refused with its size. Throws RomError naming the
// file when it cannot be read.
[[nodiscard]] std::vector<uint8_t> readWholeFile(const std::string& path, int64_t maxSize = kMaxFileSize);

// True when the file at `path` holds exactly `expected`, compared as it is
// read in pieces (no copy of the whole file is made). Opened and refused as
// readWholeFile opens and refuses (RomError); a file of another size is
// simply not the same.
[[nodiscard]] bool fileHoldsExactly(const std::string& path, std::span<const uint8_t> expected);

// Replaces the contents of `path` with `bytes` so that a crash, a kill or a full
// disk leaves either the old file or the new one, never a mix, and no
// temporary file: the bytes go to an unnamed file in the same folder, are
// flushed to disk, and only then take the old one's name. An existing file
// keeps its permission bits and, where the process may set them, its owner and
// group. Refused (RomError, the original untouched): a target that is not a
// regular file, a read-only one, one with more than one hard link (replacing
// it would split the link), a dangling symbolic link, a folder in which no
// file can be made. Through a symbolic link, the file it names is replaced.
// `beforeRename`, when given, runs once the new contents are on disk and
// before they take the file's name (a command line's confirmation); when it
// throws, the file is left as it was and the exception goes on.
void replaceFileContents(const std::string& path, std::span<const uint8_t> bytes,
                         const std::function<void()>& beforeRename = nullptr);
inline void replaceFileContents(const std::string& path, const std::vector<uint8_t>& bytes,
                                const std::function<void()>& beforeRename = nullptr) {
    replaceFileContents(path, std::span<const uint8_t>(bytes), beforeRename);
}

// Writes a text file the same all-or-nothing way.
void replaceFileText(const std::string& path, const std::string& text);

// Refuses (RomError) an output path that names the same file as `input`
// (the same device and inode, also through links): writing it would replace
// the input itself.
void refuseSameFile(const std::string& output, const std::string& input, const std::string& what = "the image itself");

// An exclusive advisory lock (flock) on a file, held from construction to
// destruction: a program that reads an image and then replaces it holds one
// from the read to the rename, so two such programs on one image take turns
// instead of losing one's change. The lock follows the file across a
// replacement made by another holder: it is taken on the file the path names
// once the lock is granted. A missing file is not locked (nothing to protect).
class FileLock {
public:
    explicit FileLock(const std::string& path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

private:
    int fd_ = -1;
};

}  // namespace zpe
