// SPDX-License-Identifier: Apache-2.0
#include "link/byte_stream.h"

#include "link/id_frame.h"
#include "link/medium.h"
#include "link/pieces.h"
#include "link/retry.h"
#include "link/waiting.h"

#include "vorn/link.h"

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

// fstat is a function of the C library's own since glibc 2.33. Older terminals have this one, which newer ones keep.
#if defined(__aarch64__)
extern "C" int __fxstat(int version, int descriptor, struct stat* status) noexcept;
__asm__(".symver __fxstat,__fxstat@GLIBC_2.17");
#endif

namespace vorn {
namespace {

constexpr int kSilenceMs = 50;
constexpr int kIdFrameByteMs = 200;

int statusOf(int descriptor, struct stat& status)
{
#if defined(__aarch64__)
    constexpr int kKernelLayout = 0;
    return __fxstat(kKernelLayout, descriptor, &status);
#else
    return fstat(descriptor, &status);
#endif
}

bool stillSending(int descriptor)
{
    int waiting = 0;
    return uninterrupted([&] { return ioctl(descriptor, TIOCOUTQ, &waiting); }) == 0 && waiting > 0;
}

} // namespace

ByteStream linkStream;

ByteStream& streamOf(int handle)
{
    static ByteStream lent;
    if (handle == linkStream.descriptor()) {
        return linkStream;
    }
    lent.lend(handle);
    return lent;
}

// ---------------------------------------------------------------- the stream

bool ByteStream::fileOf(int descriptor, File& file)
{
    struct stat status {};
    if (uninterrupted([&] { return statusOf(descriptor, status); }) != 0) {
        return false;
    }
    file.device = status.st_dev;
    file.special = status.st_rdev;
    file.node = status.st_ino;
    return true;
}

bool ByteStream::adopt(int descriptor)
{
    forget();
    if (!fileOf(descriptor, file_)) {
        return false;
    }
    descriptor_ = descriptor;
    return true;
}

void ByteStream::forget()
{
    dropReadAhead();
    descriptor_ = -1;
}

void ByteStream::lend(int descriptor)
{
    dropReadAhead();
    descriptor_ = descriptor;
    room_ = 1;
}

bool ByteStream::isFile(int descriptor) const
{
    File file;
    return fileOf(descriptor, file) && file.device == file_.device && file.special == file_.special &&
           file.node == file_.node;
}

bool ByteStream::write(const std::uint8_t* bytes, int count) const
{
    std::int64_t lastTaken = monotonicMilliseconds();
    do {
        const ssize_t taken =
            uninterrupted([&] { return ::write(descriptor_, bytes, static_cast<std::size_t>(count)); });
        if (taken > 0) {
            bytes += taken;
            count -= static_cast<int>(taken);
            lastTaken = monotonicMilliseconds();
        } else if (count > 0) {
            if ((taken < 0 && errno != EAGAIN) || monotonicMilliseconds() - lastTaken >= kStallMs) {
                return false;
            }
            pauseFor(kPollUs);
        }
    } while (count > 0);
    return true;
}

int ByteStream::awaitNext(int timeoutMs)
{
    if (timeoutMs <= 0) {
        return VORN_BYTE_TIMEOUT;
    }
    const std::int64_t start = monotonicMilliseconds();
    do {
        if (readAhead()) {
            return bytes_[next_++];
        }
        pauseFor(kPollUs);
    } while (monotonicMilliseconds() - start < timeoutMs);
    return VORN_BYTE_TIMEOUT;
}

// Reads what is there. Asked behind the reading, a queue that is not yet empty tells that all of it came before the
// reader can have seen the whole command.
bool ByteStream::readAhead()
{
    const ssize_t count = uninterrupted([&] { return read(descriptor_, bytes_, static_cast<std::size_t>(room_)); });
    if (count <= 0 || (commandGoingOut_ && stillSending(descriptor_))) {
        return false;
    }
    commandGoingOut_ = false;
    next_ = 0;
    size_ = static_cast<int>(count);
    return true;
}

void ByteStream::dropReadAhead()
{
    next_ = size_ = 0;
    commandGoingOut_ = false;
}

void ByteStream::beginCommand()
{
    dropReadAhead();
    commandGoingOut_ = true;
}

// ---------------------------------------------------------------- a medium's operations

void writeStream(int handle, const std::uint8_t* bytes, int count)
{
    const ByteStream& stream = streamOf(handle);
    bool taken = true;
    forEachPiece(bytes, count,
                 [&](const std::uint8_t* piece, int size) { taken = taken && stream.write(piece, size); });
}

int readFrameOfStream(int handle, std::uint8_t* buffer, int max, std::uint8_t start, std::uint8_t end, int timeoutS)
{
    ByteStream& stream = streamOf(handle);
    const int timeoutMs = millisecondsOf(timeoutS);
    int byte = 0;
    do {
        byte = stream.next(timeoutMs);
        if (byte == VORN_BYTE_TIMEOUT) {
            return -1;
        }
    } while (byte != start);

    int count = 0;
    buffer[count++] = start;
    while (count <= max) {
        byte = stream.next(timeoutMs);
        if (byte == VORN_BYTE_TIMEOUT) {
            return -1;
        }
        buffer[count++] = static_cast<std::uint8_t>(byte);
        if (byte == end) {
            return count;
        }
    }
    return -1;
}

int readStreamUntilSilence(int handle, std::uint8_t* buffer, int capacity, int timeoutS)
{
    ByteStream& stream = streamOf(handle);
    int count = 0;
    int byte = stream.next(millisecondsOf(timeoutS));
    while (byte != VORN_BYTE_TIMEOUT) {
        buffer[count++] = static_cast<std::uint8_t>(byte);
        byte = count < capacity ? stream.next(kSilenceMs) : int{VORN_BYTE_TIMEOUT};
    }
    return count > 0 ? count : -1;
}

int readIdFrameOfStream(int handle, std::uint8_t* buffer, int timeoutS)
{
    ByteStream& stream = streamOf(handle);
    IdFrameScanner scanner(buffer);
    int byte = stream.next(millisecondsOf(timeoutS));
    if (byte == VORN_BYTE_TIMEOUT) {
        return -1;
    }
    for (;; byte = stream.next(kIdFrameByteMs)) {
        // Silence counts as a byte before the body: it breaks a preamble, and stands in for a length byte.
        if (!scanner.inBody()) {
            scanner.header(static_cast<std::uint8_t>(byte & 0xFF));
        } else if (byte != VORN_BYTE_TIMEOUT) {
            scanner.body(static_cast<std::uint8_t>(byte));
            if (scanner.bodyLeft() <= 0) {
                return scanner.count();
            }
        }
    }
}

} // namespace vorn
