// SPDX-License-Identifier: Apache-2.0
// A copy of a log that may be sent to others: what identifies a card or its holder is replaced by zeros, everywhere in
// the same way, and every length stays. Of an account number six digits remain in front and four at the end.
#pragma once

#include "sim/data/bytes.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace vorn::tool {

class Redaction {
public:
    // Twice over the same text: first everything is learnt, then everything is written.
    void learn(const std::string& line);
    void learnEnd();
    using Write = std::function<void(const std::string& lines)>;
    void write(const std::string& line, const Write& out); // the line with its end
    void writeEnd(const Write& out);

    struct Change {
        std::size_t line;
        const char* what;
    };
    const std::vector<Change>& changes() const { return changes_; } // the first hundred
    std::size_t count() const { return count_; }

    static constexpr std::size_t kMostSecrets = 10000;

private:
    // Lines that belong together: the dump of one command or answer.
    struct Block {
        std::string text;
        bool dump = false;
        bool command = false;
        std::size_t line = 0;
    };
    template <class Use>
    void feed(const std::string& line, Use use);
    template <class Use>
    void flush(Use use);
    std::string masked(const Block& block);
    std::string hidden(const Block& block);
    void remember(const std::string& clear, const std::string& masked);
    void sweep(std::string& text) const;
    std::string zeroed(const Block& block);

    Block block_;
    sim::Bytes command_; // to the reader, before an answer
    std::size_t number_ = 0;
    std::set<std::string> secrets_; // digits and letters of what was hidden, longer ones only
    std::vector<Change> changes_;
    std::size_t count_ = 0;
};

} // namespace vorn::tool
