// SPDX-License-Identifier: Apache-2.0
// Exchanges with a card as explained items. What one command brought helps to explain a later one: the lists that a
// card asks for its data with.
#pragma once

#include "tools/explain/item.h"
#include "tools/explain/mask.h"

#include <string>

namespace vorn::tool {

// Whether bytes have the form of a command that is known.
bool looksLikeCommand(ByteSpan bytes);
bool looksLikeStatus(ByteSpan bytes);

class ExchangeView {
public:
    explicit ExchangeView(bool show) : show_(show) {}

    void powerOn(); // what was learnt belongs to the card before
    // Learns what exchange() would learn.
    void follow(ByteSpan apdu, ByteSpan response);

    Item command(ByteSpan apdu) const;
    // An answer of less than two bytes: the card, or the reader, gave none.
    Item exchange(ByteSpan apdu, ByteSpan response);
    // An answer whose command is not known.
    Item response(ByteSpan response) const;

private:
    void learn(ByteSpan apdu, ByteSpan data);
    Item command(ByteSpan apdu, std::string words) const;
    Item commandData(ByteSpan apdu, std::string hex) const;
    std::vector<Item> responseItems(ByteSpan apdu, ByteSpan data) const;

    bool show_;
    Bytes pdol_, cdol1_, cdol2_, log_;
    int cryptograms_ = 0; // asked for since the power came
};

// What a failure of this command means to who stands at the counter; empty when the status says it all.
std::string consequence(ByteSpan apdu, unsigned status);

} // namespace vorn::tool
