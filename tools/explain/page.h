// SPDX-License-Identifier: Apache-2.0
// Explained items as one HTML page that needs nothing else: no network, no other file. Written piece by piece.
#pragma once

#include "tools/explain/item.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::tool {

class Page {
public:
    using Write = std::function<void(const std::string&)>;
    Page(const std::string& title, Write write);
    void add(const Item& item);
    void end(const std::string& problem);

    static constexpr std::size_t kMostExchanges = 5000; // the rest is counted; a browser has to hold them all

private:
    void item(const Item& one, bool open);

    Write write_;
    std::vector<std::pair<std::size_t, bool>> exchanges_; // number, and whether it failed
    std::size_t left_ = 0;
};

// Text between tags or in an attribute.
std::string escaped(std::string_view text);

} // namespace vorn::tool
