// SPDX-License-Identifier: Apache-2.0
// What every card service does around its own work: choosing the port, finding the card, and the ways out.
#pragma once

#include "public/bytes.h"

#include "vorn/link.h"

#include <cstdlib>

namespace vorn {

// Fills the link's globals from a call's port argument.
void choosePort(const char* nPortNo);

// The same with the trace that the card data and transaction calls begin with.
void beginTracedCall(const char* function, const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout);

// ---------------------------------------------------------------- finding the card

struct Activation {
    int result;    // of the last attempt
    bool timedOut; // comes before the result: a card that answered on the last attempt is late all the same
};

// Asks until a card answers or nTimeout seconds have passed. Puts the ATR into `atr` (VORN_PAYLOAD_MAX bytes).
Activation waitForCard(int nTimeout, std::uint8_t* atr, int& atrLength);

// Asks until a card answers, with no bound: the clock is read twice before the first retry and not again
// (compatibility: "The wait of the card data calls has no bound").
Activation waitForCardUnbounded(int mode, int nTimeout);

// A call's way out when no card could be activated.
using WithoutCard = int (*)(const Activation& card);

// Opens the link and waits without a bound for a card of the type behind pnIcType (NULL: type 0), where the interface
// that answered is stored. Returns 0, or the call's result: the link could not be opened, or what withoutCard made of it.
int openAndAwaitCard(int* pnIcType, int nTimeout, WithoutCard withoutCard);

// The plain way out: the link is closed, what was tried is not powered off, and nothing is written down.
int leaveWithoutCard(const Activation& card);

// The same with a line in the service log, and what was tried powered off unless it came too late.
int leaveWithLine(const Activation& card, const char* lineEnd);

// ---------------------------------------------------------------- ways out

enum class CardPower { Stays, Off };

// Powers the card off if told so, closes the link, and returns the code.
int endCall(CardPower power, int code);

// ---------------------------------------------------------------- arguments and results

// Outputs that the caller does not want are not written.
template <class T>
void store(T* out, T value)
{
    if (out != nullptr) {
        *out = value;
    }
}
void storeText(char* out, const char* text);
void storeHex(char* out, ByteView bytes);

// Zeroed bytes on the heap for texts of any length.
class HeapBytes {
public:
    explicit HeapBytes(std::size_t size) : bytes_(static_cast<std::uint8_t*>(std::calloc(1, size))), size_(size) {}
    ~HeapBytes() { std::free(bytes_); }
    HeapBytes(const HeapBytes&) = delete;
    HeapBytes& operator=(const HeapBytes&) = delete;

    explicit operator bool() const { return bytes_ != nullptr; }
    std::uint8_t* data() { return bytes_; }
    ByteView view() const { return ByteView(bytes_, size_); }

private:
    std::uint8_t* bytes_;
    std::size_t size_;
};

} // namespace vorn
