#include "model/file_io.h"

#include "model/rom_error.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zpe {

namespace {

std::string reason() { return std::strerror(errno); }

std::string folderOf(const std::string& path) {
    const auto slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

// Closes a descriptor when it goes out of scope.
struct Fd {
    int fd = -1;
    ~Fd() {
        if (fd >= 0) ::close(fd);
    }
};

bool writeAll(int fd, const uint8_t* data, size_t size) {
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

std::string kindOf(mode_t mode) {
    if (S_ISDIR(mode)) return "a folder";
    if (S_ISFIFO(mode)) return "a pipe (FIFO)";
    if (S_ISSOCK(mode)) return "a socket";
    if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
    return "not a regular file";
}

// Named temporaries (where the file system has no unnamed files) start with this.
constexpr const char* kTempPrefix = ".zpe-tmp-";
constexpr time_t kStaleAfterSeconds = 3600;

// Removes temporaries of ours in `folder` that a killed save left: those whose
// writer (the process number in the name) is gone, and any an hour old.
void removeStaleTemporaries(const std::string& folder) {
    DIR* dir = ::opendir(folder.c_str());
    if (!dir) return;
    const time_t now = ::time(nullptr);
    const size_t prefix = std::strlen(kTempPrefix);
    while (const dirent* e = ::readdir(dir)) {
        if (std::strncmp(e->d_name, kTempPrefix, prefix) != 0) continue;
        const std::string path = folder + "/" + e->d_name;
        struct stat st {};
        if (::lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
        const long pid = std::strtol(e->d_name + prefix, nullptr, 10);
        const bool writerGone = pid > 0 && ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH;
        if (writerGone || now - st.st_mtime > kStaleAfterSeconds) ::unlink(path.c_str());
    }
    ::closedir(dir);
}

// Opens a regular file for reading without blocking; its size in `size`. Throws RomError naming it.
void openForReading(const std::string& path, Fd& in, int64_t& size) {
    in.fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (in.fd < 0) throw RomError(path + ": cannot open the file: " + reason());
    struct stat st {};
    if (::fstat(in.fd, &st) != 0) throw RomError(path + ": cannot read the file: " + reason());
    if (!S_ISREG(st.st_mode)) throw RomError(path + ": " + kindOf(st.st_mode) + ", not a file the editor can read");
    size = static_cast<int64_t>(st.st_size);
}

}  // namespace

std::vector<uint8_t> readWholeFile(const std::string& path, int64_t maxSize) {
    Fd in;
    int64_t size = 0;
    openForReading(path, in, size);
    if (size > maxSize)
        throw RomError(path + ": " + std::to_string(size) + " bytes, larger than the " + std::to_string(maxSize) +
                       " bytes of any file the editor reads");
    // Read straight into the buffer: the size known, one read for a whole image.
    std::vector<uint8_t> bytes(static_cast<size_t>(size) + 1);
    size_t got = 0;
    for (;;) {
        if (got == bytes.size()) {
            if (static_cast<int64_t>(got) >= maxSize)
                throw RomError(path + ": grew past " + std::to_string(maxSize) + " bytes while it was read");
            bytes.resize(std::min<size_t>(bytes.size() * 2, static_cast<size_t>(maxSize) + 1));
        }
        const ssize_t n = ::read(in.fd, bytes.data() + got, bytes.size() - got);
        if (n < 0) {
            if (errno == EINTR) continue;
            throw RomError(path + ": cannot read the file: " + reason());
        }
        if (n == 0) break;
        got += static_cast<size_t>(n);
    }
    if (static_cast<int64_t>(got) > maxSize)
        throw RomError(path + ": grew past " + std::to_string(maxSize) + " bytes while it was read");
    bytes.resize(got);
    return bytes;
}

bool fileHoldsExactly(const std::string& path, std::span<const uint8_t> expected) {
    Fd in;
    int64_t size = 0;
    openForReading(path, in, size);
    if (size != static_cast<int64_t>(expected.size())) return false;
    uint8_t piece[64 * 1024];
    size_t got = 0;
    for (;;) {
        const ssize_t n = ::read(in.fd, piece, sizeof piece);
        if (n < 0) {
            if (errno == EINTR) continue;
            throw RomError(path + ": cannot read the file: " + reason());
        }
        if (n == 0) return got == expected.size();
        const auto count = static_cast<size_t>(n);
        if (count > expected.size() - got || std::memcmp(piece, expected.data() + got, count) != 0) return false;  // grew, or differs
        got += count;
    }
}

void refuseSameFile(const std::string& output, const std::string& input, const std::string& what) {
    struct stat out {}, in {};
    if (::stat(output.c_str(), &out) != 0 || ::stat(input.c_str(), &in) != 0) return;
    if (out.st_dev == in.st_dev && out.st_ino == in.st_ino)
        throw RomError(output + ": this is " + what + " (" + input + "); writing it would replace it");
}

void replaceFileContents(const std::string& path, std::span<const uint8_t> bytes, const std::function<void()>& beforeRename) {
    // Through a symbolic link, the file it names is replaced, not the link.
    std::string target = path;
    struct stat link {};
    if (::lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
        char resolved[PATH_MAX];
        if (::realpath(path.c_str(), resolved) == nullptr) {
            if (errno == ENOENT) throw RomError(path + ": will not write through a dangling link");
            throw RomError(path + ": cannot follow the link: " + reason());
        }
        target = resolved;
    }

    mode_t mode = 0644;
    struct stat st {};
    const bool exists = ::stat(target.c_str(), &st) == 0;
    if (exists) {
        if (!S_ISREG(st.st_mode)) throw RomError(path + ": " + kindOf(st.st_mode) + ", not a file the editor writes");
        // A file without write permission bits is read-only for everyone, root included.
        if ((st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0 || ::access(target.c_str(), W_OK) != 0)
            throw RomError(path + ": the file is read-only");
        if (st.st_nlink > 1)
            throw RomError(path + ": the file has " + std::to_string(st.st_nlink) +
                           " hard links; replacing it would split them, so it is not written");
        mode = st.st_mode & 07777;
    } else if (errno != ENOENT) {
        throw RomError(path + ": cannot reach the file: " + reason());
    }
    const std::string folder = folderOf(target);
    removeStaleTemporaries(folder);

    // An unnamed file where the file system has them: a kill leaves nothing behind.
    Fd out;
    std::string temp;
    out.fd = ::open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    if (out.fd < 0) {
        if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL && errno != ENOENT)
            throw RomError(path + ": cannot create a new file in its folder: " + reason());
        temp = folder + "/" + kTempPrefix + std::to_string(::getpid()) + "-XXXXXX";
        out.fd = ::mkstemp(temp.data());
        if (out.fd < 0) throw RomError(path + ": cannot create a new file in its folder: " + reason());
    }

    auto abandon = [&](const std::string& what) {
        const std::string why = reason();
        ::close(out.fd);
        out.fd = -1;
        if (!temp.empty()) ::unlink(temp.c_str());
        throw RomError(path + ": " + what + ": " + why);
    };
    if (!writeAll(out.fd, bytes.data(), bytes.size())) abandon("cannot write the file");
    if (::fchmod(out.fd, mode) != 0) abandon("cannot set the file's permissions");
    // The owner and group stay where the process may keep them (root can; others only their own).
    if (exists && (st.st_uid != ::geteuid() || st.st_gid != ::getegid())) (void)::fchown(out.fd, st.st_uid, st.st_gid);
    if (::fsync(out.fd) != 0) abandon("cannot flush the file to disk");
    if (beforeRename) {
        try {
            beforeRename();
        } catch (...) {
            ::close(out.fd);
            out.fd = -1;
            if (!temp.empty()) ::unlink(temp.c_str());
            throw;
        }
    }

    if (temp.empty()) {
        // Give the finished file a name beside the target, then move it over the target.
        temp = folder + "/" + kTempPrefix + std::to_string(::getpid()) + "-" + std::to_string(::time(nullptr));
        const std::string self = "/proc/self/fd/" + std::to_string(out.fd);
        ::unlink(temp.c_str());
        if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, temp.c_str(), AT_SYMLINK_FOLLOW) != 0) {
            temp.clear();
            abandon("cannot give the new file a name");
        }
    }
    // The name is taken over at once: the moment a kill could leave the named copy behind stays short.
    if (::rename(temp.c_str(), target.c_str()) != 0) {
        const std::string why = reason();
        ::unlink(temp.c_str());
        throw RomError(path + ": cannot replace the file: " + why);
    }
    ::close(out.fd);
    out.fd = -1;
    // Make the rename itself durable.
    Fd dir;
    dir.fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir.fd >= 0) ::fsync(dir.fd);
}

void replaceFileText(const std::string& path, const std::string& text) {
    replaceFileContents(path, std::vector<uint8_t>(text.begin(), text.end()));
}

FileLock::FileLock(const std::string& path) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
        if (fd < 0) return;
        struct stat held {}, named {};
        if (::fstat(fd, &held) != 0 || !S_ISREG(held.st_mode)) {
            ::close(fd);
            return;
        }
        while (::flock(fd, LOCK_EX) != 0 && errno == EINTR) {
        }
        // Another holder may have replaced the file while we waited: lock the one the path names now.
        if (::stat(path.c_str(), &named) == 0 && named.st_dev == held.st_dev && named.st_ino == held.st_ino) {
            fd_ = fd;
            return;
        }
        ::close(fd);
    }
}

FileLock::~FileLock() {
    if (fd_ >= 0) ::close(fd_);
}

}  // namespace zpe
