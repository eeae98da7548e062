// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/atr_view.h"

#include "tools/explain/hex.h"
#include "tools/explain/present.h"

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

std::string interfaceMeaning(char letter, int round, std::uint8_t byte)
{
    switch (letter) {
    case 'A':
        return round == 1   ? number("F = ", kClockRates[byte >> 4]) + number(", D = ", kBitRates[byte & 0x0F])
               : round == 2 ? "specific mode, protocol T=" + std::to_string(byte & 0x0F)
               : round == 3 ? "information field size " + std::to_string(byte)
                            : "";
    case 'B':
        return round == 1 || round == 2 ? "programming voltage, not used any more" : "";
    case 'C':
        return round == 1   ? (byte == 0xFF ? "least guard time" : std::to_string(byte) + " extra guard times")
               : round == 2 ? "waiting time integer " + std::to_string(byte)
                            : "";
    default:
        return "protocol T=" + std::to_string(byte & 0x0F);
    }
}

std::string asText(const Bytes& bytes)
{
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
    }
    return "\"" + text + "\"";
}

class Decoder {
public:
    explicit Decoder(const Bytes& atr) : atr_(atr) {}

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
        if (atr_.size() - at_ < historical) {
            return missing("historical bytes");
        }
        if (historical > 0) {
            const Bytes bytes(atr_.begin() + static_cast<std::ptrdiff_t>(at_),
                              atr_.begin() + static_cast<std::ptrdiff_t>(at_ + historical));
            parts_.push_back({"historical", toHex(bytes), asText(bytes)});
            at_ += historical;
        }
        return check();
    }

private:
    std::optional<std::uint8_t> next() { return at_ < atr_.size() ? std::optional(atr_[at_++]) : std::nullopt; }
    void part(const std::string& name, std::uint8_t byte, std::string meaning)
    {
        parts_.push_back({name, toHex({byte}), std::move(meaning)});
    }
    std::vector<AtrPart> missing(const char* what)
    {
        parts_.push_back({"missing", "", what});
        return parts_;
    }

    // The high half of T0 and of each TD says which bytes follow.
    bool interfaceBytes(std::uint8_t indicator)
    {
        for (int round = 1; round <= 8; ++round) {
            const unsigned follow = indicator >> 4;
            for (unsigned i = 0; i < 4; ++i) {
                if ((follow >> i & 1U) == 0) {
                    continue;
                }
                const auto byte = next();
                if (!byte) {
                    return false;
                }
                const char letter = static_cast<char>('A' + static_cast<int>(i));
                part(std::string("T") + letter + std::to_string(round), *byte, interfaceMeaning(letter, round, *byte));
                indicator = *byte;
                checked_ = checked_ || (letter == 'D' && (*byte & 0x0F) != 0);
            }
            if ((follow & 0x8U) == 0) {
                return true;
            }
        }
        return false;
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
        return parts_;
    }

    const Bytes& atr_;
    std::size_t at_ = 0;
    bool checked_ = false;
    std::vector<AtrPart> parts_;
};

} // namespace

std::vector<AtrPart> decodeAtr(const sim::Bytes& atr)
{
    if (atr.empty() || (atr[0] != kDirect && atr[0] != kInverse)) {
        return {{"answer", toHex(atr), "not of the form of an answer to reset"}};
    }
    return Decoder(atr).decode();
}

} // namespace vorn::tool
