// Whole-file reads and atomic replacement (see the header).
#include "platform/posix/Files.hpp"

#include "platform/posix/UserFolders.hpp"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kova::platform {

ReadResult readWholeFile(const std::string& path, size_t limit, HeapString& bytes) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return errno == ENOENT ? ReadResult::Missing : ReadResult::Failed;
    struct stat info {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        return ReadResult::Failed;
    }
    if (static_cast<unsigned long long>(info.st_size) > limit) {
        ::close(fd);
        return ReadResult::TooLarge;
    }
    bytes.clear();
    try {
        bytes.resize(static_cast<size_t>(info.st_size));
    } catch (...) {
        ::close(fd);
        throw;
    }
    // The file may change size while it is read; what was read is what counts.
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got = ::read(fd, bytes.data() + done, bytes.size() - done);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            ::close(fd);
            return ReadResult::Failed;
        }
        if (got == 0) break;
        done += static_cast<size_t>(got);
    }
    bytes.resize(done);
    ::close(fd);
    return ReadResult::Read;
}

bool replaceFile(const std::string& path, std::string_view bytes) {
    if (!createParentFolders(path)) return false;
    const std::string temporary = path + "." + std::to_string(::getpid()) + ".tmp";
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    size_t done = 0;
    bool written = true;
    while (done < bytes.size()) {
        const ssize_t put = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) {
            written = false;
            break;
        }
        done += static_cast<size_t>(put);
    }
    // An existing file keeps its permissions.
    struct stat old {};
    if (written && ::stat(path.c_str(), &old) == 0) ::fchmod(fd, old.st_mode & 07777);
    written = written && ::fsync(fd) == 0;
    written = ::close(fd) == 0 && written;
    if (!written || ::rename(temporary.c_str(), path.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return false;
    }
    return true;
}

} // namespace kova::platform
