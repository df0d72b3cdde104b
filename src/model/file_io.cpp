#include "model/file_io.h"

#include "model/rom_error.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
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

}  // namespace

std::vector<uint8_t> readWholeFile(const std::string& path) {
    Fd in;
    in.fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (in.fd < 0) throw RomError(path + ": cannot open the file: " + reason());
    struct stat st {};
    if (::fstat(in.fd, &st) != 0) throw RomError(path + ": cannot read the file: " + reason());
    if (!S_ISREG(st.st_mode)) throw RomError(path + ": not a regular file");
    std::vector<uint8_t> bytes;
    bytes.reserve(static_cast<size_t>(st.st_size));
    uint8_t buffer[65536];
    for (;;) {
        const ssize_t n = ::read(in.fd, buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR) continue;
            throw RomError(path + ": cannot read the file: " + reason());
        }
        if (n == 0) break;
        bytes.insert(bytes.end(), buffer, buffer + n);
    }
    return bytes;
}

void replaceFileContents(const std::string& path, const std::vector<uint8_t>& bytes) {
    // Through a symbolic link, the file it names is replaced, not the link.
    std::string target = path;
    char resolved[PATH_MAX];
    if (::realpath(path.c_str(), resolved) != nullptr) target = resolved;

    mode_t mode = 0644;
    struct stat st {};
    const bool exists = ::stat(target.c_str(), &st) == 0;
    if (exists) {
        if (!S_ISREG(st.st_mode)) throw RomError(path + ": not a regular file");
        // A file without write permission bits is read-only for everyone, root included.
        if ((st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0 || ::access(target.c_str(), W_OK) != 0)
            throw RomError(path + ": the file is read-only");
        mode = st.st_mode & 07777;
    } else if (errno != ENOENT) {
        throw RomError(path + ": cannot reach the file: " + reason());
    }

    std::string temp = folderOf(target) + "/.zpe-XXXXXX";
    std::vector<char> pattern(temp.begin(), temp.end());
    pattern.push_back('\0');
    Fd out;
    out.fd = ::mkstemp(pattern.data());
    if (out.fd < 0) throw RomError(path + ": cannot create a new file in its folder: " + reason());
    temp.assign(pattern.data());

    auto abandon = [&](const std::string& what) {
        const std::string why = reason();
        ::close(out.fd);
        out.fd = -1;
        ::unlink(temp.c_str());
        throw RomError(path + ": " + what + ": " + why);
    };
    if (!writeAll(out.fd, bytes.data(), bytes.size())) abandon("cannot write the file");
    if (::fchmod(out.fd, mode) != 0) abandon("cannot set the file's permissions");
    if (::fsync(out.fd) != 0) abandon("cannot flush the file to disk");
    if (::close(out.fd) != 0) {
        out.fd = -1;
        const std::string why = reason();
        ::unlink(temp.c_str());
        throw RomError(path + ": cannot write the file: " + why);
    }
    out.fd = -1;
    if (::rename(temp.c_str(), target.c_str()) != 0) {
        const std::string why = reason();
        ::unlink(temp.c_str());
        throw RomError(path + ": cannot replace the file: " + why);
    }
    // Make the rename itself durable.
    Fd dir;
    dir.fd = ::open(folderOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir.fd >= 0) ::fsync(dir.fd);
}

void replaceFileText(const std::string& path, const std::string& text) {
    replaceFileContents(path, std::vector<uint8_t>(text.begin(), text.end()));
}

}  // namespace zpe
