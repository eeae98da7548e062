// SPDX-License-Identifier: Apache-2.0
// What went wrong, in words, with what to try, and as an exit code (docs/vorn.md lists them).
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <exception>
#include <optional>
#include <string>
#include <vector>

namespace vorn::tool {

enum class Exit : int {
    Ok = 0,
    Internal = 1,       // something that should not happen
    Usage = 2,          // options or arguments
    Port = 3,           // no such port, not a tty, not opened
    Permission = 4,     // the port is there, but not for this user
    NoCard = 5,         // no card in time
    ReaderSilent = 6,   // no reply from the reader
    ReaderRefused = 7,  // the reader answered with an error
    CardMute = 8,       // the card could not be powered
    NoApplication = 9,  // nothing on the card that could be selected
    CardRefused = 10,   // the card refused a command or the transaction
    DataMissing = 11,   // the card or the host's answer lacks an object
    Declined = 12,      // the issuer declined
    Unverified = 13,    // a cryptogram is not right
    ScriptFailed = 14,  // a command of the issuer script failed
    NoAccess = 15,      // memory card: key or access conditions
    Unconfirmed = 16,   // a dangerous request was not confirmed
    Profile = 17,       // a profile could not be used
    Output = 18,        // results could not be written
    CardGone = 19,      // the card was taken away
    WrongDevice = 20,   // what answers at the port is no reader
    Unknown = 21,       // nobody knows whether the card completed the transaction
    Referral = 22,      // the issuer wants to be asked
    PortBusy = 23,      // another program has the port
    TooLong = 24,       // a call did not come to its end in time
    LineDisturbed = 25, // replies came damaged
    Findings = 26,      // a check found something to mend
    Differs = 27,       // a reader behaves differently from the simulated one
    Interrupted = 130   // ended by a signal
};

// For people, one line each: "the reader does not answer".
struct ExitMeaning {
    Exit code;
    const char* meaning;
};
const std::vector<ExitMeaning>& exitMeanings();

class Failure : public std::exception {
public:
    Failure(Exit exitCode, std::string message, std::string hint = {});

    const char* what() const noexcept override { return message_.c_str(); }
    const std::string& hint() const { return hint_; }
    Exit exitCode() const { return exitCode_; }

    // What the library returned, when it was a call of its own that failed.
    std::optional<int> library() const { return library_; }
    Failure& fromLibrary(int result)
    {
        library_ = result;
        return *this;
    }
    // The command's own document has told it.
    bool told() const { return told_; }
    void tell() { told_ = true; }

private:
    Exit exitCode_;
    std::string message_;
    std::string hint_;
    std::optional<int> library_;
    bool told_ = false;
};

// The member "error" of a JSON document.
nlohmann::ordered_json errorDocument(const Failure& failure);

// Some results mean different things in different calls.
enum class Call { Any, FirstHalf, SecondHalf, Memory, Wallet, Device };

// What a call's result means. The port is the one that the call was given.
Failure failureOf(int result, Call call, const std::string& port);

} // namespace vorn::tool
