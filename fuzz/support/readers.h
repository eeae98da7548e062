// SPDX-License-Identifier: Apache-2.0
// Readers at the other end of the line.
#pragma once

#include "support/input.h"

#include "seam/world.h"

#include <vector>

namespace vorn::fuzz {

// What all have in common: commands come in frames and in any cut; ESC sequences have a length of their own.
class FramedReader : public Peer {
public:
    void receive(ByteView bytes) final;

protected:
    virtual void command(const std::vector<std::uint8_t>& content) = 0;
    virtual void versionAsked() = 0;

    // A reply frame with this status; `announced` in place of the true length when it is not negative.
    static std::vector<std::uint8_t> reply(std::uint8_t status, ByteView payload, int announced = -1);

private:
    void frameEnds();

    std::vector<std::uint8_t> frame_;
    std::vector<std::uint8_t> escape_;
    bool inFrame_ = false;
};

// Answers each command with the next answer that the fuzzer's bytes describe, and is silent after the last. An answer is
// a kind, a count and so many bytes:
//   kind & 7   0 to 2  the card's bytes, 9000 appended      4  the first byte is the reader's status
//              3       the card's bytes                     5  bytes on the line as they are
//              6       the first two bytes are the announced length
//              7       nothing
//   kind & 8   256 bytes more     & 16 it comes in two pieces with a pause     & 32 it comes twice
//   kind & 64  noise before it    & 128 it comes late
class AnsweringReader final : public FramedReader {
public:
    explicit AnsweringReader(Input& input) : input_(input) {}

protected:
    void command(const std::vector<std::uint8_t>& content) override;
    void versionAsked() override;

private:
    Input& input_;
};

// An answer as AnsweringReader takes it, for seeds.
void appendAnswer(std::vector<std::uint8_t>& to, std::uint8_t status, ByteView payload);

// A reader with one ordinary card, which answers every command of a transaction.
class OrdinaryReader final : public FramedReader {
public:
    explicit OrdinaryReader(bool accepting = true) : accepting_(accepting) {}

protected:
    void command(const std::vector<std::uint8_t>& content) override;
    void versionAsked() override;

private:
    bool accepting_;
};

} // namespace vorn::fuzz
