// SPDX-License-Identifier: Apache-2.0
// What can be made to go wrong with the simulated reader.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorn::sim {

// One thing that goes wrong. Text form, as the tool and the profiles take it:
//   KIND[=VALUE][@N][/OP]   N: only the Nth reader command, counted from 1; OP: only this operation byte, in hex
//   for example  status=06@3   silence@4   noise=5   delay=200/26   pull@7
struct Fault {
    enum class Kind {
        Status,     // answer with this status byte (hex) instead of carrying the command out
        Silence,    // carry it out, answer nothing
        Noise,      // so many bytes of noise before the answer's STX
        WrongCheck, // "check": a wrong check byte
        Short,      // leave out the last VALUE characters before ETX
        Long,       // VALUE extra characters before ETX
        NoEnd,      // "noend": no ETX
        Delay,      // answer only after VALUE milliseconds
        Pull        // take the user's card out (contact or field) before the command is carried out
    };
    Kind kind{};
    int value = 0;
    int command = 0;                       // 0: every command
    std::optional<std::uint8_t> operation; // none: every operation
};

// The kinds as the text form begins: "status=", "silence".
std::vector<std::string> faultKinds();

// Nothing when the text is not of that form.
std::optional<Fault> parseFault(const std::string& text);

} // namespace vorn::sim
