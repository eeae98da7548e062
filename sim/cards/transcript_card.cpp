// SPDX-License-Identifier: Apache-2.0
#include "sim/cards/transcript_card.h"

#include "sim/data/json_node.h"

#include <algorithm>
#include <utility>

namespace vorn::sim {

bool TranscriptCard::Pattern::matches(const Bytes& command) const
{
    if (openEnd ? command.size() < bytes.size() : command.size() != bytes.size()) {
        return false;
    }
    const auto fits = [](const std::optional<std::uint8_t>& wanted, std::uint8_t byte) {
        return wanted.value_or(byte) == byte;
    };
    return std::equal(bytes.begin(), bytes.end(), command.begin(), fits);
}

std::optional<TranscriptCard::Pattern> TranscriptCard::parsePattern(const std::string& text)
{
    std::string dense;
    std::copy_if(text.begin(), text.end(), std::back_inserter(dense), [](char c) { return c != ' '; });
    Pattern pattern;
    if (!dense.empty() && dense.back() == '*') {
        pattern.openEnd = true;
        dense.pop_back();
    }
    if (dense.size() % 2 != 0) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < dense.size(); i += 2) {
        const std::string two = dense.substr(i, 2);
        if (two == "??") {
            pattern.bytes.emplace_back(std::nullopt);
            continue;
        }
        const auto byte = fromHex(two);
        if (!byte || byte->size() != 1) {
            return std::nullopt;
        }
        pattern.bytes.emplace_back(byte->front());
    }
    return pattern;
}

TranscriptCard::TranscriptCard(Bytes atr, std::vector<Pair> pairs, Order order, Bytes otherwise)
    : atr_(std::move(atr)),
      pairs_(std::move(pairs)),
      used_(pairs_.size(), false),
      order_(order),
      otherwise_(std::move(otherwise))
{}

Bytes TranscriptCard::powerOn()
{
    turn_ = 0;
    used_.assign(pairs_.size(), false);
    return atr_;
}

Bytes TranscriptCard::transmit(const Bytes& command)
{
    if (order_ == Order::Strict) {
        if (turn_ == pairs_.size() || !pairs_[turn_].command.matches(command)) {
            return otherwise_;
        }
        return pairs_[turn_++].response;
    }
    const auto fits = [&command](const Pair& pair) { return pair.command.matches(command); };
    const auto first = std::find_if(pairs_.begin(), pairs_.end(), fits);
    if (first == pairs_.end()) {
        return otherwise_;
    }
    auto chosen = first;
    for (auto pair = first; pair != pairs_.end(); ++pair) {
        if (pair->command.bytes != first->command.bytes || pair->command.openEnd != first->command.openEnd) {
            continue;
        }
        chosen = pair;
        if (!used_[static_cast<std::size_t>(pair - pairs_.begin())]) {
            break;
        }
    }
    used_[static_cast<std::size_t>(chosen - pairs_.begin())] = true;
    return chosen->response;
}

} // namespace vorn::sim
