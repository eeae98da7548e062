// SPDX-License-Identifier: Apache-2.0
#include "tools/session/reader_version.h"

#include "tools/explain/present.h"
#include "tools/session/session.h"

#include "ICC_COMM_VORN.h"

#include <algorithm>

namespace vorn::tool {

namespace {

constexpr std::size_t kLongest = 64; // characters of a version

struct VersionCall {
    CallTarget target;
    char version[ICC_DEVICE_TEXT_CAPACITY] = {};
    char date[ICC_DEVICE_TEXT_CAPACITY] = {};
    char serial[ICC_DEVICE_TEXT_CAPACITY] = {};
};

int askVersion(VersionCall& call) { return GetDevInfo(call.target.port, call.version, call.date, call.serial); }

// A version is one short line of text. Echoes, login prompts and instruments that send by themselves are not.
bool looksLikeVersion(const std::string& text)
{
    return !text.empty() && text.size() <= kLongest &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return c >= 0x20 && c < 0x7F; });
}

Failure noReader(const std::string& why)
{
    return {Exit::WrongDevice, "what answers at this port is no reader: " + why,
            "name the tty that the reader is attached to; 'vorn ports' shows what answers where"};
}

} // namespace

std::string readerVersion(Session& session)
{
    std::string version;
    for (int turn = 0; turn < 2; ++turn) { // who talks by himself does not say the same twice
        VersionCall call{CallTarget(session)};
        const int result = session.run("GetDevInfo", askVersion, call);
        const Bytes& sent = session.line().rawSent();
        const Bytes& received = session.line().strayBytes();
        if (!sent.empty() &&
            std::search(received.begin(), received.end(), sent.begin(), sent.end()) != received.end()) {
            throw noReader("it echoes what it is sent");
        }
        session.check(result, Call::Device);
        if (!looksLikeVersion(call.version)) {
            throw noReader("its answer is no version");
        }
        if (turn > 0 && version != call.version) {
            throw noReader("it answers the same question differently");
        }
        version = call.version;
    }
    return version;
}

} // namespace vorn::tool
