// SPDX-License-Identifier: Apache-2.0
// Exchanges with a card as explained items. What one command brought helps to explain a later one: the lists that a
// card asks for its data with.
#pragma once

#include "tools/explain/item.h"
#include "tools/explain/mask.h"

#include <string>

namespace vorn::tool {

// Whether bytes have the form of a command that is known.
bool looksLikeCommand(const Bytes& bytes);
bool looksLikeStatus(const Bytes& bytes);

class ExchangeView {
public:
    explicit ExchangeView(bool show) : show_(show) {}

    void powerOn(); // what was learnt belongs to the card before

    Item command(const Bytes& apdu) const;
    // An answer of less than two bytes: the card, or the reader, gave none.
    Item exchange(const Bytes& apdu, const Bytes& response);
    // An answer whose command is not known.
    Item response(const Bytes& response) const;

private:
    void learn(const Bytes& apdu, const Bytes& data);
    Item commandData(const Bytes& apdu) const;
    std::vector<Item> responseItems(const Bytes& apdu, const Bytes& data) const;

    bool show_;
    Bytes pdol_, cdol1_, cdol2_, log_;
    int cryptograms_ = 0; // asked for since the power came
};

// What a failure of this command means to who stands at the counter; empty when the status says it all.
std::string consequence(const Bytes& apdu, unsigned status);

} // namespace vorn::tool
