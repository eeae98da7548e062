// SPDX-License-Identifier: Apache-2.0
#include "support/readers.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace vorn::fuzz {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kStx = 0x02;
constexpr std::uint8_t kEtx = 0x03;
constexpr std::uint8_t kEsc = 0x1B;
constexpr unsigned kPauseMs = 120;
constexpr unsigned kLateMs = 3100;

ByteView viewOf(const Bytes& bytes) { return ByteView(bytes.data(), bytes.size()); }

void put(Bytes& out, unsigned byte)
{
    out.push_back(static_cast<std::uint8_t>(0x30 + (byte >> 4 & 0x0F)));
    out.push_back(static_cast<std::uint8_t>(0x30 + (byte & 0x0F)));
}

unsigned digit(char c) { return static_cast<unsigned>(c <= '9' ? c - '0' : c - 'A' + 10); }

Bytes bytesOf(const char* hex)
{
    Bytes bytes;
    for (; *hex != '\0'; hex += 2) {
        bytes.push_back(static_cast<std::uint8_t>(digit(hex[0]) << 4 | digit(hex[1])));
    }
    return bytes;
}

} // namespace

void FramedReader::receive(ByteView bytes)
{
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const std::uint8_t byte = bytes[i];
        if (byte == kStx) {
            inFrame_ = true;
            frame_.clear();
        } else if (byte == kEsc) {
            inFrame_ = false;
            escape_.clear();
        } else if (inFrame_ && byte == kEtx) {
            inFrame_ = false;
            frameEnds();
        } else if (inFrame_) {
            frame_.push_back(byte);
        } else {
            escape_.push_back(byte);
            if (escape_ == Bytes{'K', 'T', 'L', 'V', 'N'}) {
                escape_.clear();
                versionAsked();
            }
        }
    }
}

void FramedReader::frameEnds()
{
    Bytes content;
    for (std::size_t i = 0; i + 1 < frame_.size(); i += 2) {
        content.push_back(static_cast<std::uint8_t>((frame_[i] & 0x0F) << 4 | (frame_[i + 1] & 0x0F)));
    }
    if (content.size() > 3) { // two bytes of length, the command, its check
        command(Bytes(content.begin() + 2, content.end() - 1));
    }
}

Bytes FramedReader::reply(std::uint8_t status, ByteView payload, int announced)
{
    const auto length = announced >= 0 ? static_cast<unsigned>(announced) : static_cast<unsigned>(payload.size() + 2);
    Bytes frame{kStx};
    put(frame, length >> 8);
    put(frame, length & 0xFF);
    put(frame, 0x32);
    put(frame, status);
    unsigned check = 0x32U ^ status;
    for (std::size_t i = 0; i < payload.size(); ++i) {
        put(frame, payload[i]);
        check ^= payload[i];
    }
    put(frame, check);
    frame.push_back(kEtx);
    return frame;
}

void AnsweringReader::command(const Bytes&)
{
    if (input_.atEnd()) {
        return;
    }
    const std::uint8_t kind = input_.byte();
    const std::size_t count = input_.byte() + ((kind & 8) != 0 ? 256U : 0U);
    const ByteView given = input_.take(count);
    Bytes card(given.data(), given.data() + given.size());
    Bytes line;
    switch (kind & 7) {
    case 3:
        line = reply(0x00, given);
        break;
    case 4:
        line = reply(given[0], given.from(1));
        break;
    case 5:
        line = card;
        break;
    case 6:
        line = reply(0x00, given.from(2), given[0] * 256 + given[1]);
        break;
    case 7:
        return;
    default:
        card.push_back(0x90);
        card.push_back(0x00);
        line = reply(0x00, viewOf(card));
        break;
    }
    if ((kind & 64) != 0) {
        line.insert(line.begin(), {0xFF, kEtx, 0x30});
    }
    const std::size_t cut = (kind & 16) != 0 ? line.size() / 2 : 0;
    say(viewOf(line).first(cut), (kind & 128) != 0 ? kLateMs : 0);
    say(viewOf(line).from(cut), cut != 0 ? kPauseMs : 0);
    if ((kind & 32) != 0) {
        say(viewOf(line));
    }
}

void AnsweringReader::versionAsked()
{
    const unsigned pause = input_.byte() & 0x3F;
    const ByteView text = input_.take(input_.byte());
    say(text.first(text.size() / 2));
    say(text.from(text.size() / 2), pause);
}

void appendAnswer(Bytes& to, std::uint8_t status, ByteView payload)
{
    const std::size_t count = payload.size() + (status == 0 ? 0 : 1);
    to.push_back(static_cast<std::uint8_t>((status == 0 ? 3 : 4) | (count > 255 ? 8 : 0)));
    to.push_back(static_cast<std::uint8_t>(count > 255 ? count - 256 : count));
    if (status != 0) {
        to.push_back(status);
    }
    to.insert(to.end(), payload.data(), payload.data() + payload.size());
}

// ------------------------------------------------------------ an ordinary card

namespace {

// clang-format off
constexpr char kDirectory[] =
    "6F1E840E315041592E5359532E4444463031A50C8801015F2D027A689F110101" "9000";
constexpr char kDirectoryRecord[] =
    "701A61184F08A0000003330101015004564F524E87010173059F01020000" "9000";
constexpr char kFci[] =
    "6F318408A000000333010101A525500A50424F432044454249548701019F38099F7A019F02065F2A02BF0C0A9F4D020B0ADF4D020C0A" "9000";
constexpr char kOptions[] = "80067C0008010100" "9000";
constexpr char kRecord[] =
    "708199" "57116228480012345678D30122010000000000" "5A086228480012345678" "5F24033012315F340101"
    "5F201043414E442F5649534954204F4E4520209F61084142434431323334" "9F620100"
    "8C1B9F02069F03069F1A0295055F2A029A039C019F37049F21039F4E14"
    "8D1A8A029F02069F03069F1A0295055F2A029A039C019F37049F2103"
    "9F0B044C4F4E47" "9000";
constexpr char kLogRecord[] =
    "2601021213140000000012340000000000000156015656454E444F52202020202020202020202020202001003C" "9000";
constexpr char kLogFormat[] = "9F4F199A039F21039F02069F03069F1A025F2A029F4E149C019F3602" "9000";
// clang-format on

const char* answerToData(std::uint8_t item)
{
    switch (item) {
    case 0x36:
        return "9F3602003C9000";
    case 0x13:
        return "9F1302003A9000";
    case 0x4F:
        return kLogFormat;
    case 0x79:
        return "9F79060000000010009000";
    case 0x77:
        return "9F77060000001000009000";
    case 0x78:
        return "9F78060000000500009000";
    default:
        return "6A88";
    }
}

// A command APDU's answer as hex.
std::string answerTo(ByteView apdu, bool accepting)
{
    switch (apdu[1]) {
    case 0xA4:
        return apdu[3] != 0 ? "6A82" : apdu[5] == '1' ? kDirectory : kFci; // there is no next one
    case 0xA8:
        return kOptions;
    case 0xB2:
        return (apdu[3] >> 3) == 0x0B                ? kLogRecord
               : apdu[2] > 1                         ? "6A83"
               : apdu[4] == 0 && (apdu[3] >> 3) == 1 ? std::string(kRecord)
                                                     : kDirectoryRecord;
    case 0xCA:
        return answerToData(apdu[3]);
    case 0xAE: {
        const char* const type = (apdu[2] & 0xC0) == 0x80 ? "80" : accepting ? "40" : "00";
        return std::string("801E") + type +
               "003C0102030405060708"
               "0701010103A02000010A010000012345AABBCCDD"
               "9000";
    }
    case 0x82:
        return accepting ? "9000" : "6300";
    case 0x84:
        return "01020304050607089000";
    case 0xB0:
        return "0102030405060708090A0B0C0D0E0F1011129000";
    case 0x22:
        return "84080102030405060708"
               "5F5808A1A2A3A4A5A6A7A8"
               "9000";
    default:
        return "9000";
    }
}

} // namespace

void OrdinaryReader::command(const Bytes& content)
{
    const ByteView c = viewOf(content);
    switch (c[1]) {
    case 0x22:
    case 0x24:
        say(viewOf(reply(0x00, viewOf(bytesOf("3B6800000073C84013009000")))));
        break;
    case 0x26:
        say(viewOf(reply(0x00, viewOf(bytesOf(answerTo(c.from(3), accepting_).c_str())))));
        break;
    default:
        say(viewOf(reply(0x00, ByteView())));
        break;
    }
}

void OrdinaryReader::versionAsked()
{
    static constexpr std::uint8_t kVersion[] = {'V', '1', '.', '0'};
    say(ByteView(kVersion, sizeof kVersion));
}

} // namespace vorn::fuzz
