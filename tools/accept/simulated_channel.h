// SPDX-License-Identifier: Apache-2.0
// A simulated reader without a line: its answers come in a time of their own, so that nothing here depends on how busy
// the machine is.
#pragma once

#include "sim/reader/reader.h"
#include "tools/accept/channel.h"

#include <vector>

namespace vorn::tool::accept {

class SimulatedChannel : public Channel {
public:
    explicit SimulatedChannel(bool asTty) : asTty_(asTty) {}

    sim::Reader& reader() { return reader_; }

    bool isTty() const override { return asTty_; }
    void setSpeed(int speed) override;
    void send(const Bytes& bytes) override;
    Heard listen(const Until& until) override;
    void wait(Time time) override { now_ += time; }
    Bytes deviceDescriptor() const override;
    Bytes configurationDescriptor() const override;

private:
    struct Piece {
        Bytes bytes;
        Time due;
        bool ifSilent;
    };
    void hear(const Piece& piece, Heard& heard, Time& last);

    bool asTty_;
    Time now_{0}, sent_{0};
    int speed_ = 9600;
    std::vector<Piece> pieces_;
    sim::Reader reader_{[this] { return now_; }};
};

} // namespace vorn::tool::accept
