// SPDX-License-Identifier: Apache-2.0
// Images of memory cards, and what a card with such blocks does.
#include "sim/cards/memory_card.h"
#include "support/input.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

// A file in memory, the same one for every input.
const char* fileWith(ByteView bytes)
{
    static const int descriptor = memfd_create("image", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    if (descriptor < 0 || ftruncate(descriptor, 0) != 0 ||
        pwrite(descriptor, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        std::abort();
    }
    return path.c_str();
}

void use(sim::SectorCard& card, std::uint8_t seed)
{
    const sim::Bytes key(sim::SectorCard::kKeySize, 0xFF);
    card.activate();
    for (unsigned i = 0; i < 4; ++i) {
        const unsigned block = (seed + 3 * i) & 0xFF;
        card.authenticate(block, (i & 1) != 0 ? sim::MemoryCard::Key::A : sim::MemoryCard::Key::B, key);
        if (const auto content = card.read(block)) {
            sim::ValueBlock::decode(*content);
            card.write(block, *content);
        }
        card.increment(block, 0xFFFFFFFF);
        card.decrement(block, seed);
        card.transfer(block);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::uint8_t seed = input.byte();
    try {
        sim::SectorCard card(sim::loadImage(fileWith(input.rest())));
        use(card, seed);
    } catch (const std::runtime_error&) { // the complaint that a person gets
    }
    return 0;
}
