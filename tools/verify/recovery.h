// SPDX-License-Identifier: Apache-2.0
// What is inside a signature with message recovery (EMV Book 2, A2.1).
#pragma once

#include "tools/verify/objects.h"

#include <string>

namespace vorn::tool::verify {

Bytes hashOf(const Bytes& data); // SHA-1

class Recovered {
public:
    // signature^exponent modulo modulus. Nothing is recovered from a signature of another length than the modulus.
    Recovered(const Bytes& signature, const Bytes& modulus, const Bytes& exponent);

    // Header, trailer and data format are as they must be; else why not.
    std::string problem(std::uint8_t format) const;
    // The hash is that of the block's content and of these bytes.
    bool hashes(const Bytes& besides) const;

    // Of the content, which begins with the data format. Bytes behind its end read as none.
    Bytes part(std::size_t from, std::size_t size) const;
    std::uint8_t byte(std::size_t at) const;
    std::size_t size() const { return content_.size(); }

private:
    std::uint8_t header_ = 0;
    std::uint8_t trailer_ = 0;
    Bytes content_;
    Bytes hash_;
};

} // namespace vorn::tool::verify
