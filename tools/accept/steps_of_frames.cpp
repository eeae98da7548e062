// SPDX-License-Identifier: Apache-2.0
// Steps about frames that hosts do not send: of every size, wrong, cut, two at once. After each the reader has to be
// answering again.
#include "sim/reader/line_decoder.h"
#include "tools/accept/steps.h"
#include "tools/cli/errors.h"

#include <algorithm>

namespace vorn::tool::accept {

namespace {

constexpr Time kCutPatience{2000};
constexpr std::size_t kFrameOfNothing = 8; // characters of a frame without content

const Bytes kFieldOff{0x32, 0x25, 0x00, 0x00};
const Bytes kUnknown{0x32, 0x7F};

void recover(Bench& bench)
{
    for (int i = 0; i < 3; ++i) {
        if (bench.line.answers()) {
            return;
        }
    }
    throw Failure(Exit::ReaderSilent, "the reader does not answer any more",
                  "switch it off and on; what it was sent last is told above");
}

void sendAndNote(Bench& bench, const char* name, const Bytes& frame)
{
    bench.line.makeReady();
    bench.findings.reply(name, bench.line.raw(frame).answer());
    recover(bench);
}

// An APDU of zeros for a slot without power, in a frame of so many characters.
Bytes frameOf(std::uint8_t slot, std::size_t characters)
{
    Bytes content{0x32, 0x26, slot};
    content.resize((characters - kFrameOfNothing) / 2);
    return sim::encodeFrame(content);
}

// A PSAM slot whose answer can be told from silence.
std::optional<std::uint8_t> talkingSlot(Bench& bench)
{
    for (int i = 3; i >= 0; --i) {
        const auto slot = static_cast<std::uint8_t>(kFirstPsam + i);
        if (bench.line.raw(frameOf(slot, 24)).status) {
            return slot;
        }
    }
    return std::nullopt;
}

void findLongest(Bench& bench, std::uint8_t slot, const std::function<bool(const Reply&)>& taken)
{
    for (const std::size_t size : {24U, 128U, 130U, 536U, 1024U, 2050U, 2052U}) {
        const Reply reply = bench.line.raw(frameOf(slot, size));
        if (!taken(reply)) {
            bench.findings.reply("frames.longer", reply.answer());
            recover(bench);
            return;
        }
        bench.findings.number("frames.longest", static_cast<long>(size));
    }
}

} // namespace

void tryFrameSizes(Bench& bench)
{
    sendAndNote(bench, "frames.empty", sim::encodeFrame({}));
    sendAndNote(bench, "frames.shortest", sim::encodeFrame({0x32}));
    const auto slot = talkingSlot(bench);
    if (!slot) {
        return;
    }
    const auto status = bench.line.raw(frameOf(*slot, 24)).status;
    const auto taken = [&](const Reply& reply) { return reply.status == status; };
    const auto word = [&](std::size_t size) {
        return taken(bench.line.raw(frameOf(*slot, size))) ? "taken" : "not taken";
    };
    bench.findings.word("frames.128", word(128));
    Bytes odd = frameOf(*slot, 128);
    odd.insert(odd.end() - 1, 0x30);
    sendAndNote(bench, "frames.129", odd);
    bench.findings.word("frames.130", word(130));
    findLongest(bench, *slot, taken);
}

void sendUnknown(Bench& bench)
{
    sendAndNote(bench, "malformed.command", sim::encodeFrame(kUnknown));
    sendAndNote(bench, "malformed.parameter", sim::encodeFrame({0x32, 0x22, 0x01, 0x80}));
    sendAndNote(bench, "malformed.slot", sim::encodeFrame({0x32, 0x22, 0x01, 0x80, 0x20}));
}

void sendWrongCheck(Bench& bench)
{
    Bytes wrong = sim::encodeFrame(kFieldOff);
    wrong[wrong.size() - 2] ^= 0x01U;
    sendAndNote(bench, "malformed.check", wrong);
    wrong = sim::encodeFrame(kFieldOff);
    wrong[1] = 'A';
    sendAndNote(bench, "malformed.character", wrong);
}

void cutFrame(Bench& bench)
{
    bench.line.makeReady();
    const Bytes whole = sim::encodeFrame(kFieldOff);
    const Bytes half(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(whole.size() / 2));
    const Reply cut = bench.line.raw(half, 1, kCutPatience);
    bench.findings.reply("malformed.cut", cut.answer());
    if (!cut.heard.bytes.empty()) {
        bench.findings.time("malformed.cut.time", cut.heard.first);
    }
    const Reply next = bench.line.raw(whole);
    const Reply usual = bench.line.raw(whole);
    bench.findings.word("malformed.cut.next", next.status && next.status == usual.status ? "taken" : "lost");
    recover(bench);
}

// Two commands whose answers differ: which of them come?
void sendTwoFrames(Bench& bench)
{
    bench.line.makeReady();
    const Bytes first = sim::encodeFrame(kFieldOff);
    const Bytes second = sim::encodeFrame(kUnknown);
    const Bytes firstAlone = bench.line.raw(first).heard.bytes;
    const Bytes secondAlone = bench.line.raw(second).heard.bytes;
    if (firstAlone.empty() || secondAlone.empty() || firstAlone == secondAlone) {
        return;
    }
    Bytes both = first;
    both.insert(both.end(), second.begin(), second.end());
    const Bytes heard = bench.line.raw(both, 2).heard.bytes;
    const auto holds = [&heard](const Bytes& part) {
        return std::search(heard.begin(), heard.end(), part.begin(), part.end()) != heard.end();
    };
    const bool one = holds(firstAlone), two = holds(secondAlone);
    bench.findings.word("malformed.two", one && two ? "both" : one ? "first" : two ? "second" : "neither");
    recover(bench);
}

} // namespace vorn::tool::accept
