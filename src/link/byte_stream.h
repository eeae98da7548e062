// SPDX-License-Identifier: Apache-2.0
// What all media without packets share: bytes one after the other through a descriptor that does not block, and the
// three ways of reading them.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace vorn {

class ByteStream {
public:
    // The link is open, through this descriptor. False when the system does not say what file it is.
    [[nodiscard]] bool adopt(int descriptor);
    // The descriptor is closed, or is somebody else's now.
    void forget();

    bool isOpen() const { return descriptor_ >= 0; }
    int descriptor() const { return descriptor_; }
    // Is this descriptor the file that was adopted? A host may have closed the link's descriptor itself, and its number
    // may be another file's by now.
    bool isFile(int descriptor) const;

    // As Medium::write. False: not everything was taken.
    bool write(const std::uint8_t* bytes, int count) const;

    // One byte, asked for every millisecond; VORN_BYTE_TIMEOUT when none came in time.
    int next(int timeoutMs) { return next_ < size_ && timeoutMs > 0 ? bytes_[next_++] : awaitNext(timeoutMs); }

    // Forgets what was read ahead.
    void dropReadAhead();
    // The same before a command: nothing that comes while the command is still going out is an answer to it.
    void beginCommand();

    // For a descriptor that a host passes and that is not the link's: nothing of it is read ahead.
    void lend(int descriptor);

private:
    struct File {
        dev_t device = 0, special = 0;
        ino_t node = 0;
    };
    static bool fileOf(int descriptor, File& file);
    int awaitNext(int timeoutMs);
    bool readAhead();

    static constexpr int kReadAhead = 1024;

    int descriptor_ = -1;
    File file_;
    int room_ = kReadAhead;
    bool commandGoingOut_ = false;
    int next_ = 0;
    int size_ = 0;
    std::uint8_t bytes_[kReadAhead] = {};
};

// The open link's stream: there is one link at a time.
extern ByteStream linkStream;

// The stream behind a handle of the interface: the link's, or one for a descriptor of the host's own.
ByteStream& streamOf(int handle);

// Operations of a Medium that is such a stream.
void writeStream(int handle, const std::uint8_t* bytes, int count);
int readFrameOfStream(int handle, std::uint8_t* buffer, int max, std::uint8_t start, std::uint8_t end, int timeoutS);
int readStreamUntilSilence(int handle, std::uint8_t* buffer, int capacity, int timeoutS);
int readIdFrameOfStream(int handle, std::uint8_t* buffer, int timeoutS);

// How long a line that takes nothing is waited for, before it counts as stalled.
constexpr int kStallMs = 1000;
// How often a line is asked.
constexpr int kPollUs = 1000;

} // namespace vorn
