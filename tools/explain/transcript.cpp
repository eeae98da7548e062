// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/transcript.h"

#include "tools/explain/hex.h"

#include "vorn/result.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace vorn::tool {

namespace {

constexpr std::size_t kReaderHeader = 3;
constexpr std::size_t kStatusWord = 2;
constexpr std::uint8_t kProcessingOptions = 0xA8;
constexpr std::uint8_t kGenerateCryptogram = 0xAE;
constexpr std::uint8_t kExternalAuthenticate = 0x82;

std::string slotOf(const LoggedExchange& logged)
{
    if (logged.marker == "picc_Active") {
        return "field";
    }
    constexpr std::size_t ofPower = 4; // place of the slot in POWER ON; in an APDU's header it is the last byte
    const std::size_t at = logged.apdu().empty() ? ofPower : kReaderHeader - 1;
    const std::uint8_t slot = logged.command.size() > at ? logged.command[at] : 0;
    return slot == 0xFF ? "field" : slot >= 0x10 && slot <= 0x13 ? "psam" + std::to_string(slot - 0x0F) : "contact";
}

// What the terminal makes anew each time, dates and random numbers among them, must not matter.
std::string patternOf(const Bytes& apdu)
{
    constexpr std::size_t header = 4;
    const bool varies = apdu.size() > header + 1 && (apdu[1] == kProcessingOptions || apdu[1] == kGenerateCryptogram ||
                                                     apdu[1] == kExternalAuthenticate || (apdu[0] & 0x04U) != 0);
    return varies ? toHex(Bytes(apdu.begin(), apdu.begin() + header)) + "*" : toHex(apdu);
}

} // namespace

void Transcript::close(const std::string& slot)
{
    const auto found =
        std::find_if(open_.begin(), open_.end(), [&](const PowerCycle& cycle) { return cycle.slot == slot; });
    if (found == open_.end()) {
        return;
    }
    if (!found->exchanges.empty() && cycles_.size() < kMostCycles) {
        cycles_.push_back(std::move(*found));
    }
    open_.erase(found);
}

void Transcript::powered(const LoggedExchange& logged)
{
    const std::string slot = slotOf(logged);
    close(slot);
    if (!logged.answer.empty()) {
        open_.push_back({slot, logged.answer, {}, logged.line});
    }
}

void Transcript::exchange(const LoggedExchange& logged)
{
    if (logged.marker == "icc_poweron" || logged.marker == "picc_Active") {
        powered(logged);
        return;
    }
    const bool cut = logged.cut || logged.answer.size() > VORN_PAYLOAD_MAX;
    if (logged.marker.find("capdu") == std::string::npos || logged.command.size() <= kReaderHeader || cut) {
        leftOut_ += cut ? 1 : 0;
        return;
    }
    const std::string slot = slotOf(logged);
    auto found = std::find_if(open_.begin(), open_.end(), [&](const PowerCycle& cycle) { return cycle.slot == slot; });
    if (found == open_.end()) { // the log begins behind the power on
        open_.push_back({slot, {0x3B, 0x00}, {}, logged.line});
        found = open_.end() - 1;
    }
    if (found->exchanges.size() < kMostExchanges) {
        // What is too short for a status word was a refusal by the reader to the host, as no answer is.
        found->exchanges.emplace_back(Bytes(logged.command.begin() + kReaderHeader, logged.command.end()),
                                      logged.answer.size() < kStatusWord ? Bytes() : logged.answer);
    } else {
        ++leftOut_;
    }
}

void Transcript::text(const std::string& line)
{
    memoryCards_ = memoryCards_ || line.find("IC_M1") != std::string::npos;
}

void Transcript::end()
{
    while (!open_.empty()) {
        const std::string slot = open_.front().slot; // close() moves it away
        close(slot);
    }
}

nlohmann::ordered_json profileOf(const PowerCycle& cycle)
{
    nlohmann::ordered_json pairs = nlohmann::ordered_json::array();
    for (const auto& [command, response] : cycle.exchanges) {
        pairs.push_back({patternOf(command), toHex(response)});
    }
    const nlohmann::ordered_json card = {
        {"slot", cycle.slot}, {"type", "transcript"}, {"atr", toHex(cycle.atr)}, {"order", "strict"}, {"pairs", pairs}};
    return {{"name", "Replayed from a log, line " + std::to_string(cycle.line)},
            {"cards", nlohmann::ordered_json::array({card})}};
}

} // namespace vorn::tool
