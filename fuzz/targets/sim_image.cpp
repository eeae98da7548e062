// SPDX-License-Identifier: Apache-2.0
// Images of memory cards, and what a card with such blocks does.
#include "sim/cards/memory_card.h"
#include "sim/data/named_file.h"
#include "support/input.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

// The image as a file, in memory where the system has a folder for that.
class ImageFile {
public:
    explicit ImageFile(ByteView bytes)
    {
        const int descriptor = ::open(file_.path().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (descriptor < 0 || ::write(descriptor, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
            std::abort();
        }
        ::close(descriptor);
    }
    ~ImageFile() { ::unlink(file_.path().c_str()); }
    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;

    const sim::NamedFile& file() const { return file_; }

private:
    sim::NamedFile file_{::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp",
                         "vorn-fuzz-" + std::to_string(::getpid()) + ".image"};
};

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
        const ImageFile image(input.rest());
        sim::SectorCard card(sim::loadImage(image.file()));
        use(card, seed);
    } catch (const std::runtime_error&) { // the complaint that a person gets
    }
    return 0;
}
