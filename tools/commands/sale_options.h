// SPDX-License-Identifier: Apache-2.0
// What a sale is made of, and the library's text for it.
#pragma once

#include "tools/session/session.h"

#include <CLI/CLI.hpp>

#include <string>

namespace vorn::tool {

struct SaleOptions {
    LinkOptions link;
    InterfaceOptions cardInterface;
    std::string aid;

    std::string amount; // 1.00 with a simulated reader
    std::string other = "0.00";
    std::string date; // today
    std::string time; // now
    std::string currency = "0156";
    std::string country = "0156";
    std::string type = "00";
    std::string unpredictable;
    std::string qualifiers;
    std::string cashLimit;
    std::string merchant;
    std::string more; // lettered text, as it stands

    std::string answer; // the host's, as text
    bool ask = false;
    bool wrongIssuerKey = false;
    std::string issuerProfile; // for a real card
    bool json = false;
};

void addSaleOptions(CLI::App& command, SaleOptions& options);

// The lettered text. Throws Failure for what is no amount, date and so on.
std::string transactionText(const SaleOptions& options);

} // namespace vorn::tool
