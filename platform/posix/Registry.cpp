// The system registry on POSIX: a store file shared by every process of the
// user (its format in RegistryStore.hpp). Reads use the tree last read while
// the file is unchanged; each change is made under an exclusive lock on a
// lock file beside the store, to the tree read afresh, and written back
// atomically, so two processes never lose each other's changes and a crash
// leaves the old store or the new one.
//
// A store that cannot be read or parsed is reported once (through the
// message box hook), and the registry reads as empty. It is left as it is
// until a change succeeds; that change keeps the old file beside the store,
// named with ".corrupt" appended, before the new store replaces it.
#include "platform/HeapAllocator.hpp"
#include "platform/posix/Files.hpp"
#include "platform/posix/RegistryStore.hpp"
#include "platform/posix/UserFolders.hpp"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using kova::platform::RegistryKey;

// What identifies one version of the store file: a replacement is a new file.
struct FileStamp {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    bool operator==(const FileStamp& other) const {
        return exists == other.exists && device == other.device && inode == other.inode &&
               size == other.size && modified.tv_sec == other.modified.tv_sec &&
               modified.tv_nsec == other.modified.tv_nsec;
    }
};

struct Cache {
    std::string path;        // the store it was read from
    FileStamp stamp;         // the file it was read from
    bool valid = false;      // whether `root` holds that file's tree
    bool unreadable = false; // the file could not be read or parsed
    RegistryKey root;
};
Cache cache;
std::string reportedPath; // the unreadable store already reported

FileStamp stampOf(const std::string& path) {
    FileStamp stamp;
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return stamp;
    stamp.exists = true;
    stamp.device = info.st_dev;
    stamp.inode = info.st_ino;
    stamp.size = info.st_size;
    stamp.modified = info.st_mtim;
    return stamp;
}

void reportUnreadable(const std::string& path, const std::string& why) {
    if (reportedPath == path) return;
    reportedPath = path;
    const std::string text = "The registry store " + path + " cannot be read (" + why +
                             "). Its settings are not used; the next change starts a new store "
                             "and keeps this file as " +
                             path + ".corrupt.";
    kova::platform::messageBox(text.c_str(), "KOVA Kernel Error", KV_MB_OK | KV_MB_ICONSTOP);
}

// Brings the cache up to the store file. Throws std::bad_alloc.
void refresh(bool force) {
    const std::string path = kova::platform::registryStorePath();
    const FileStamp stamp = stampOf(path);
    if (!force && cache.valid && cache.path == path && cache.stamp == stamp) return;
    cache.valid = false;
    cache.root = RegistryKey{};
    cache.path = path;
    cache.stamp = stamp;
    cache.unreadable = false;
    kova::platform::HeapString bytes;
    std::string problem;
    switch (kova::platform::readWholeFile(path, kova::platform::maxStoreSize, bytes)) {
    case kova::platform::ReadResult::Missing:
        break;
    case kova::platform::ReadResult::TooLarge:
        problem = "larger than " + std::to_string(kova::platform::maxStoreSize) + " bytes";
        break;
    case kova::platform::ReadResult::Failed:
        problem = std::strerror(errno);
        break;
    case kova::platform::ReadResult::Read:
        if (!kova::platform::parseRegistryStore(bytes, cache.root, problem))
            cache.root = RegistryKey{};
        break;
    }
    if (!problem.empty()) {
        cache.unreadable = true;
        reportUnreadable(path, problem);
    } else if (reportedPath == path) {
        reportedPath.clear();
    }
    cache.valid = true;
}

// Holds the store's lock file locked while it lives.
class StoreLock {
  public:
    explicit StoreLock(const std::string& storePath) {
        if (!kova::platform::createParentFolders(storePath)) return;
        fd_ = ::open((storePath + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (fd_ >= 0 && ::flock(fd_, LOCK_EX) != 0) {
            ::close(fd_);
            fd_ = -1;
        }
    }
    ~StoreLock() {
        if (fd_ >= 0) ::close(fd_); // closing releases the lock
    }
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;
    bool held() const { return fd_ >= 0; }

  private:
    int fd_ = -1;
};

// Applies `change` to the store: answers what it answers; a change that
// answers true and reports the tree changed is written back.
template <typename Change> bool changeStore(Change change) {
    const std::string path = kova::platform::registryStorePath();
    StoreLock lock(path);
    if (!lock.held()) return false;
    try {
        refresh(true);
        RegistryKey updated = cache.root;
        bool changed = false;
        if (!change(updated, changed)) return false;
        if (!changed) return true;
        const kova::platform::HeapString text = kova::platform::writeRegistryStore(updated);
        if (cache.unreadable && cache.stamp.exists &&
            ::rename(path.c_str(), (path + ".corrupt").c_str()) != 0)
            return false;
        if (!kova::platform::replaceFile(path, std::string_view(text.data(), text.size()))) {
            cache.valid = false;
            return false;
        }
        cache.root = std::move(updated);
        cache.stamp = stampOf(path);
        cache.unreadable = false;
        if (reportedPath == path) reportedPath.clear();
        return true;
    } catch (const std::bad_alloc&) {
        cache.valid = false;
        return false;
    }
}

// Reads through the cached tree: answers what `read` answers, false when the
// store cannot be brought up to date.
template <typename Read> bool readStore(Read read) {
    try {
        refresh(false);
        return read(cache.root);
    } catch (const std::bad_alloc&) {
        cache.valid = false;
        return false;
    }
}

void copyCut(std::string_view text, char* buffer, size_t size) {
    const size_t length = text.size() < size - 1 ? text.size() : size - 1;
    std::memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
}

} // namespace

namespace kova::platform {

bool registryCreateKey(const char* path) {
    if (!path) return false;
    return changeStore([&](RegistryKey& root, bool& changed) {
        return makeRegistryKey(root, path, changed) != nullptr;
    });
}

bool registrySetValue(const char* path, const char* value) {
    if (!path || !*path || !value) return false;
    return changeStore([&](RegistryKey& root, bool& changed) {
        RegistryKey* key = makeRegistryKey(root, path, changed);
        if (!key) return false;
        if (key->hasValue && key->value == value) return true;
        key->hasValue = true;
        key->value = value;
        changed = true;
        return true;
    });
}

bool registryGetValue(const char* path, char* buffer, size_t size) {
    if (!buffer || size == 0) return false;
    buffer[0] = '\0';
    if (!path) return false;
    return readStore([&](RegistryKey& root) {
        const RegistryKey* key = findRegistryKey(root, path);
        if (!key || !key->hasValue) return false;
        copyCut(key->value, buffer, size);
        return true;
    });
}

bool registryEnumKey(const char* path, unsigned index, char* buffer, size_t size) {
    if (!buffer || size == 0) return false;
    buffer[0] = '\0';
    if (!path) return false;
    return readStore([&](RegistryKey& root) {
        const RegistryKey* key = findRegistryKey(root, path);
        if (!key || index >= key->subkeys.size()) return false;
        copyCut(key->subkeys[index].name, buffer, size);
        return true;
    });
}

bool registryKeyExists(const char* path) {
    if (!path) return false;
    return readStore([&](RegistryKey& root) { return findRegistryKey(root, path) != nullptr; });
}

bool registryDeleteKey(const char* path) {
    if (!path || !*path) return false;
    return changeStore([&](RegistryKey& root, bool& changed) {
        changed = removeRegistryKey(root, path);
        return changed;
    });
}

std::string registryLocation() {
    return registryStorePath();
}

} // namespace kova::platform
