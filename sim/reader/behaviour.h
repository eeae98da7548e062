// SPDX-License-Identifier: Apache-2.0
// Where units of the reader may differ from each other. As it is made, a Behaviour is the plain simulated reader's.
#pragma once

#include "sim/data/bytes.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace vorn::sim {

// What comes back: a frame with this status and no payload, nothing, or bytes that are no frame.
struct UnitAnswer {
    enum class Kind { Status, Silence, Raw };
    Kind kind = Kind::Status;
    std::uint8_t status = 0;
    Bytes raw{};

    static UnitAnswer ofStatus(std::uint8_t status) { return {Kind::Status, status, {}}; }
    static UnitAnswer silence() { return {Kind::Silence, 0, {}}; }
};

// The text form: "F0", "silent", "raw 15". Nothing when the text is not of that form.
std::string answerText(const UnitAnswer& answer);
std::optional<UnitAnswer> parseAnswer(const std::string& text);

struct Behaviour {
    using Time = std::chrono::milliseconds;
    enum class TwoFrames { Both, First, Second, Neither }; // which of two that come at once is answered
    enum class ZeroPacket { Never, AfterWholePackets, Always };

    // The line.
    bool leftFast = false; // it listens at 38400 baud at first
    std::optional<std::string> version{};
    Time versionTime{0};
    bool versionWhenFast = false;
    bool commandsWhenSlow = true;
    bool followsSwitch = true;
    bool returns = true; // to 9600 baud

    // No card there: by place, for every command to it.
    UnitAnswer emptyContact = UnitAnswer::ofStatus(0x02);
    UnitAnswer emptyPsam1 = UnitAnswer::ofStatus(0x02);
    UnitAnswer emptyPsam2 = UnitAnswer::ofStatus(0x02);
    UnitAnswer emptyPsam3 = UnitAnswer::ofStatus(0x02);
    UnitAnswer emptyPsam4 = UnitAnswer::ofStatus(0x02);
    UnitAnswer emptyField = UnitAnswer::ofStatus(0x06);
    UnitAnswer noMemoryCard = UnitAnswer::ofStatus(0x06);
    UnitAnswer notPowered = UnitAnswer::ofStatus(0x03);
    UnitAnswer noSuchSlot = UnitAnswer::ofStatus(0x0A);
    UnitAnswer fieldOff = UnitAnswer::ofStatus(0x00);

    // What is not a command.
    UnitAnswer unknownCommand = UnitAnswer::ofStatus(0xE0);
    UnitAnswer badParameter = UnitAnswer::ofStatus(0xE1);
    UnitAnswer emptyFrame = UnitAnswer::ofStatus(0xE0); // no content
    UnitAnswer shortFrame = UnitAnswer::ofStatus(0xE0); // one byte of content
    UnitAnswer wrongCheck = UnitAnswer::ofStatus(0xF0);
    UnitAnswer wrongCharacter = UnitAnswer::ofStatus(0xF0);
    UnitAnswer wrongLength = UnitAnswer::ofStatus(0xF0);
    UnitAnswer tooLong = UnitAnswer::ofStatus(0xF0);
    int longestFrame = 2050; // characters, STX and ETX included
    UnitAnswer cutFrame = UnitAnswer::silence();
    Time cutTime{0};        // of silence, until a cut frame is answered
    bool beginsAnew = true; // STX inside a frame begins another one
    TwoFrames twoFrames = TwoFrames::Both;

    // From a command's last byte to its answer's first one, and the longest pause inside an answer.
    Time contactTime{0}, psam1Time{0}, psam2Time{0}, psam3Time{0}, psam4Time{0}; // power on, with a card there
    Time fieldTime{0}, memoryTime{0};                                            // activation
    Time apduTime{0};
    Time replyTime{0}; // every other command
    Time gap{0};

    // As a USB device.
    Bytes deviceDescriptor{0x12, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x40, 0x5C,
                           0x3A, 0x21, 0x7E, 0x00, 0x01, 0x01, 0x02, 0x03, 0x01};
    Bytes configurationDescriptor{0x09, 0x02, 0x20, 0x00, 0x01, 0x01, 0x00, 0x80, 0x32, 0x09, 0x04,
                                  0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00, 0x07, 0x05, 0x01, 0x02,
                                  0x40, 0x00, 0x00, 0x07, 0x05, 0x81, 0x02, 0x40, 0x00, 0x00};
    int packetSize = 64; // of a reply
    ZeroPacket zeroPacket = ZeroPacket::Never;
};

} // namespace vorn::sim
