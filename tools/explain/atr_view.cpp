// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/atr_view.h"

#include "tools/explain/hex.h"
#include "tools/explain/present.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <optional>

namespace vorn::tool {

namespace {

constexpr std::uint8_t kDirect = 0x3B;
constexpr std::uint8_t kInverse = 0x3F;

const int kClockRates[] = {372, 372, 558, 744, 1116, 1488, 1860, 0, 0, 512, 768, 1024, 1536, 2048, 0, 0};
const int kBitRates[] = {0, 1, 2, 4, 8, 16, 32, 64, 12, 20, 0, 0, 0, 0, 0, 0};

std::string number(const char* what, int value)
{
    return std::string(what) + (value == 0 ? "reserved" : std::to_string(value));
}

std::string clockStop(std::uint8_t byte)
{
    static const char* const stops[] = {"no clock stop", "clock stop low", "clock stop high", "clock stop either way"};
    std::string text = stops[byte >> 6];
    static const char* const classes[] = {"A (5 V)", "B (3 V)", "C (1.8 V)"};
    for (unsigned i = 0; i < 3; ++i) {
        text += (unsigned{byte} >> i & 1U) != 0 ? std::string(", class ") + classes[i] : "";
    }
    return text;
}

// Of the first two rounds, whose bytes are for all protocols but for TC2.
std::string globalMeaning(char letter, int round, std::uint8_t byte)
{
    switch (letter) {
    case 'A':
        return round == 1 ? number("F = ", kClockRates[byte >> 4]) + number(", D = ", kBitRates[byte & 0x0F])
                          : "specific mode, protocol T=" + std::to_string(byte & 0x0F);
    case 'B':
        return "programming voltage, not used any more";
    default:
        return round == 2     ? "T=0, waiting time integer " + std::to_string(byte)
               : byte == 0xFF ? "least guard time"
                              : std::to_string(byte) + " extra guard times";
    }
}

// From the third round on the bytes belong to the protocol that the TD before them names; T=15 is none, but says
// that they are for all.
std::string interfaceMeaning(char letter, int round, int protocol, bool firstOfProtocol, std::uint8_t byte)
{
    if (letter == 'D') {
        return (byte & 0x0F) == 15 ? "T=15, bytes for all protocols" : "protocol T=" + std::to_string(byte & 0x0F);
    }
    if (round <= 2) {
        return globalMeaning(letter, round, byte);
    }
    if (!firstOfProtocol) {
        return "";
    }
    if (protocol == 15) {
        return letter == 'A' ? clockStop(byte) : letter == 'B' ? "use of contact C6" : "";
    }
    if (protocol != 1) {
        return "";
    }
    return letter == 'A'   ? "T=1, information field size " + std::to_string(byte)
           : letter == 'B' ? "T=1, block waiting " + std::to_string(byte >> 4) + ", character waiting " +
                                 std::to_string(byte & 0x0F)
                           : std::string("T=1, check by ") + ((byte & 1U) != 0 ? "CRC" : "LRC");
}

std::string asText(ByteSpan bytes)
{
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
    }
    return "\"" + text + "\"";
}

const char* compactName(unsigned tag)
{
    static const char* const names[] = {"",
                                        "country code",
                                        "issuer identification number",
                                        "card service data",
                                        "initial access data",
                                        "card issuer's data",
                                        "pre-issuing data",
                                        "card capabilities",
                                        "status information"};
    return tag < std::size(names) && tag > 0 ? names[tag] : tag == 0xF ? "application identifier" : "object";
}

// ISO/IEC 7816-4, 8.1.1: a category, then objects whose tag and length share one byte, then perhaps a status.
std::vector<AtrPart> historicalParts(ByteSpan bytes)
{
    constexpr std::size_t statusSize = 3;
    const bool withStatus = bytes[0] == 0x00;
    if ((!withStatus && bytes[0] != 0x80) || (withStatus && bytes.size() < 1 + statusSize)) {
        return {};
    }
    std::vector<AtrPart> parts = {{"  category", toHex({bytes[0]}), "compact objects"}};
    const std::size_t end = bytes.size() - (withStatus ? statusSize : 0);
    for (std::size_t at = 1; at < end;) {
        const std::size_t length = bytes[at] & 0x0FU;
        if (length > end - at - 1) {
            return {}; // of another form after all
        }
        const auto value = bytes.begin() + static_cast<std::ptrdiff_t>(at) + 1;
        parts.push_back(
            {"  object", toHex({value - 1, value + static_cast<std::ptrdiff_t>(length)}), compactName(bytes[at] >> 4)});
        at += 1 + length;
    }
    if (withStatus) {
        parts.push_back({"  status", toHex({bytes.end() - 3, bytes.end()}), "life cycle and status word"});
    }
    return parts;
}

class Decoder {
public:
    explicit Decoder(ByteSpan atr) : atr_(atr)
    {
        constexpr std::size_t usual = 16;
        parts_.reserve(usual);
    }

    std::vector<AtrPart> decode()
    {
        const auto first = next();
        part("TS", *first, *first == kDirect ? "direct convention" : "inverse convention");
        const auto format = next();
        if (!format) {
            return missing("T0");
        }
        const std::size_t historical = *format & 0x0FU;
        part("T0", *format, std::to_string(historical) + " historical bytes");
        if (!interfaceBytes(*format)) {
            return missing("an interface byte");
        }
        return historicalBytes(historical) ? check() : missing("historical bytes");
    }

private:
    std::optional<std::uint8_t> next() { return at_ < atr_.size() ? std::optional(atr_[at_++]) : std::nullopt; }
    void part(std::string name, std::uint8_t byte, Title meaning)
    {
        parts_.push_back({std::move(name), toHex({byte}), std::move(meaning)});
    }
    std::vector<AtrPart> missing(const char* what)
    {
        parts_.push_back({"missing", "", what});
        return std::move(parts_);
    }

    // The high half of T0 and of each TD says which bytes follow.
    bool interfaceBytes(std::uint8_t indicator)
    {
        int before = -1; // the protocol of the TD before the last
        for (int round = 1;; ++round) {
            const unsigned follow = indicator >> 4;
            const int protocol = indicator & 0x0F;
            const bool first = protocol != before || round <= 3;
            before = protocol;
            for (unsigned i = 0; i < 4; ++i) {
                if ((follow >> i & 1U) == 0) {
                    continue;
                }
                const auto byte = next();
                if (!byte) {
                    return false;
                }
                const char letter = static_cast<char>('A' + static_cast<int>(i));
                part(std::string("T") + letter + std::to_string(round), *byte,
                     interfaceMeaning(letter, round, protocol, first, *byte));
                indicator = *byte;
                checked_ = checked_ || (letter == 'D' && (*byte & 0x0F) != 0);
            }
            if ((follow & 0x8U) == 0) {
                return true;
            }
        }
    }

    // Those that are there are shown, also where some are missing.
    bool historicalBytes(std::size_t count)
    {
        const auto begin = atr_.begin() + static_cast<std::ptrdiff_t>(at_);
        const std::size_t there = std::min(count, atr_.size() - at_);
        if (there > 0) {
            const Bytes bytes(begin, begin + static_cast<std::ptrdiff_t>(there));
            parts_.push_back({"historical", toHex(bytes), asText(bytes)});
            at_ += there;
            for (AtrPart& one : there == count ? historicalParts(bytes) : std::vector<AtrPart>()) {
                parts_.push_back(std::move(one));
            }
        }
        return there == count;
    }

    // Present when another protocol than T=0 is offered: makes the XOR of everything behind TS zero.
    std::vector<AtrPart> check()
    {
        if (const auto byte = checked_ ? next() : std::nullopt) {
            const auto sum = std::accumulate(atr_.begin() + 1, atr_.begin() + static_cast<std::ptrdiff_t>(at_), 0U,
                                             [](unsigned a, std::uint8_t b) { return a ^ b; });
            part("TCK", *byte, sum == 0 ? "check right" : "check wrong");
        } else if (checked_) {
            return missing("TCK");
        }
        if (at_ < atr_.size()) {
            parts_.push_back(
                {"more", toHex(Bytes(atr_.begin() + static_cast<std::ptrdiff_t>(at_), atr_.end())), "behind the end"});
        }
        return std::move(parts_);
    }

    ByteSpan atr_;
    std::size_t at_ = 0;
    bool checked_ = false;
    std::vector<AtrPart> parts_;
};

} // namespace

std::vector<AtrPart> decodeAtr(sim::ByteSpan atr)
{
    if (atr.empty() || (atr[0] != kDirect && atr[0] != kInverse)) {
        return {{"answer", toHex(atr), "not of the form of an answer to reset"}};
    }
    return Decoder(atr).decode();
}

} // namespace vorn::tool
