// SPDX-License-Identifier: Apache-2.0
// The service calls as a counter makes them, one after the other at one reader.
#pragma once

#include "sim/issuer/issuer.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vorn::bench {

// What the calls of one errand hand on to each other.
struct Desk {
    std::string port;
    std::optional<sim::Issuer> issuer;
    std::map<std::string, std::vector<char>> texts;

    char* text(const char* name, std::size_t capacity)
    {
        std::vector<char>& text = texts[name];
        text.resize(capacity);
        return text.data();
    }
    unsigned char* bytes(const char* name, std::size_t size)
    {
        return reinterpret_cast<unsigned char*>(text(name, size));
    }
};

struct Call {
    const char* name;
    int (*make)(Desk& desk);
    // What it does with the link. A memory-card call leaves it open for the next one; one call asks the reader itself,
    // at its rest speed, and hears of the answer's end by the silence behind it.
    enum class Link { OpenedAndClosed, Opened, AtRest } link = Link::OpenedAndClosed;
    bool overUsb = true;
};

struct Errand {
    const char* profile;
    std::vector<Call> calls;
};

const std::vector<Errand>& errands();

} // namespace vorn::bench
