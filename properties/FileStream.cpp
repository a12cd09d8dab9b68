// FileStream: a stream over a buffered file of the C runtime. Every failing
// file call is reported through "errorSystem" with the call's error code; a
// stream whose file could not be opened stays usable and answers every
// method with 0.
#include "kova/kernel.h"
#include "platform/Platform.hpp"

#include <cerrno>
#include <cstdint>
#include <cstdio>

namespace {

#pragma pack(push, 1)
struct FileStreamData {
    std::FILE* file; // the open file, owned; null when none is open
};
#pragma pack(pop)

kvClass FileStreamClass = nullptr;

KV_METHOD_TABLE(fileStreamMethods,             //
                kova::method("Read", 2),       //
                kova::method("Seek", 2),       //
                kova::method("Write", 2),      //
                kova::method("getFilePtr", 0), //
                kova::method("getLength", 0),  //
                kova::method("getPos", 0),     //
                kova::method("objInit", 2),    //
                kova::method("objTerm", 0));
KV_EMPTY_METHOD_TABLE(fileStreamClassMethods);

std::FILE* fileOf(void* instData) {
    return static_cast<FileStreamData*>(instData)->file;
}

// Reports `code` (an errno value) as the system's last error in the caller's
// slot, naming this class.
void raiseSystemError(kvObject* errSlot, kvObject self, long code) {
    kova::platform::rememberSystemError(code);
    kvSendMeth(errSlot, self, "errorSystem", kvClassName(FileStreamClass));
}

// The runtime's whence for an origin 0, 1 or 2, or -1 for any other.
int whenceOf(int16_t origin) {
    switch (origin) {
    case 0:
        return SEEK_SET;
    case 1:
        return SEEK_CUR;
    case 2:
        return SEEK_END;
    default:
        return -1;
    }
}

// A byte count and buffer that stdio may be given: the count is read as
// signed 32-bit and must not be negative, and a non-zero count needs a buffer.
bool validTransfer(const void* buffer, int32_t count) {
    return count >= 0 && (buffer || count == 0);
}

// The file's position, or -1 after raising the system error.
long tellOrRaise(kvObject* errSlot, kvObject self, std::FILE* file) {
    const long position = std::ftell(file);
    if (position == -1) raiseSystemError(errSlot, self, errno);
    return position;
}

} // namespace

// (file name, fopen mode, then the parent's arguments): opens the file. On
// failure (a null name or mode included) raises the system error and keeps
// the object alive without a file.
KV_METHOD(FileStream, objInit) {
    const kvArgs rest = kvArgsAfter(args, 2);
    kvSendParentMethNA(errSlot, FileStreamClass, self, "objInit", &rest);
    auto* stream = static_cast<FileStreamData*>(instData);
    const auto* name = reinterpret_cast<const char*>(kvArgAt(args, 0));
    const auto* mode = reinterpret_cast<const char*>(kvArgAt(args, 1));
    stream->file = nullptr;
    if (!name || !mode) {
        raiseSystemError(errSlot, self, EINVAL);
        return 0;
    }
    stream->file = std::fopen(name, mode);
    if (!stream->file) raiseSystemError(errSlot, self, errno);
    return 0;
}

KV_METHOD(FileStream, objTerm) {
    auto* stream = static_cast<FileStreamData*>(instData);
    if (stream->file) std::fclose(stream->file);
    stream->file = nullptr;
    return kvSendParentMethNA(errSlot, FileStreamClass, self, "objTerm", args);
}

// (buffer, count): answers the bytes read. Stopping short at the end of the
// file is normal; stopping short for any other reason raises the system error.
KV_METHOD(FileStream, Read) {
    std::FILE* file = fileOf(instData);
    if (!file) return 0;
    void* buffer = reinterpret_cast<void*>(kvArgAt(args, 0));
    const auto count = static_cast<int32_t>(kvArgAt(args, 1));
    if (!validTransfer(buffer, count)) {
        raiseSystemError(errSlot, self, EINVAL);
        return 0;
    }
    if (count == 0) return 0;
    errno = 0;
    const size_t got = std::fread(buffer, 1, size_t(count), file);
    // The Windows runtime refuses to read a stream opened only for writing
    // without setting errno; EBADF is what the others report then.
    if (got < size_t(count) && !std::feof(file))
        raiseSystemError(errSlot, self, errno ? errno : EBADF);
    return static_cast<kvResult>(got);
}

// (buffer, count): answers the bytes written; a short write raises the
// system error.
KV_METHOD(FileStream, Write) {
    std::FILE* file = fileOf(instData);
    if (!file) return 0;
    const void* buffer = reinterpret_cast<const void*>(kvArgAt(args, 0));
    const auto count = static_cast<int32_t>(kvArgAt(args, 1));
    if (!validTransfer(buffer, count)) {
        raiseSystemError(errSlot, self, EINVAL);
        return 0;
    }
    if (count == 0) return 0;
    const size_t written = std::fwrite(buffer, 1, size_t(count), file);
    if (written < size_t(count)) raiseSystemError(errSlot, self, errno);
    return static_cast<kvResult>(written);
}

// (origin, offset): origin 0, 1, 2 seek from the start, the position, the
// end; any other origin is a failed seek. Failures raise the system error.
KV_METHOD(FileStream, Seek) {
    std::FILE* file = fileOf(instData);
    if (!file) return 0;
    const int whence = whenceOf(static_cast<int16_t>(kvArgAt(args, 0)));
    const auto offset = static_cast<int32_t>(kvArgAt(args, 1));
    if (whence < 0)
        raiseSystemError(errSlot, self, EINVAL);
    else if (std::fseek(file, offset, whence) != 0)
        raiseSystemError(errSlot, self, errno);
    return 0;
}

KV_METHOD(FileStream, getFilePtr) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(fileOf(instData));
}

// The file's length, found by a trip to the end and back; -1 after raising
// the system error when the file cannot tell its position.
KV_METHOD(FileStream, getLength) {
    (void)args;
    std::FILE* file = fileOf(instData);
    if (!file) return 0;
    const long position = tellOrRaise(errSlot, self, file);
    if (position == -1) return -1;
    if (std::fseek(file, 0, SEEK_END) != 0) {
        raiseSystemError(errSlot, self, errno);
        return -1;
    }
    const long length = tellOrRaise(errSlot, self, file);
    if (std::fseek(file, position, SEEK_SET) != 0) raiseSystemError(errSlot, self, errno);
    return length;
}

KV_METHOD(FileStream, getPos) {
    (void)args;
    std::FILE* file = fileOf(instData);
    return file ? tellOrRaise(errSlot, self, file) : 0;
}

KV_REGISTER(FileStream) {
    if (!kvRegisterClass("Stream")) return nullptr;
    FileStreamClass = kvAddClass("FileStream", "Stream", sizeof(FileStreamData), 0,
                                 fileStreamMethods.get(), fileStreamClassMethods.get());
    return FileStreamClass;
}
