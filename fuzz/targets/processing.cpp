// SPDX-License-Identifier: Apache-2.0
// Processing options, the records that an AFL names, issuer scripts, and the card commands alone.
#include "support/calls.h"
#include "support/readers.h"

using namespace vorn;
using namespace vorn::fuzz;

namespace {

void options(Input& input)
{
    const Exact fci(input.counted());
    const Exact terminal(input.counted());
    std::uint8_t aip[2];
    Output afl(VORN_RESPONSE_MAX);
    unsigned char aipLength = 0;
    unsigned char aflLength = 0;
    if (terminal.size() != 0) {
        vrdk_GetProcOptions(fci.data(), static_cast<unsigned char>(fci.size()), terminal.data(), terminal.size(), aip,
                            &aipLength, afl.bytes(), &aflLength);
        require(aipLength <= sizeof aip, "the AIP has two bytes");
    }
}

void records(Input& input)
{
    const Exact afl(input.counted());
    const Exact wanted(input.take(input.byte() & 0x1F));
    Output data(VORN_APPDATA_CAPACITY);
    Output authenticated(VORN_APPDATA_CAPACITY);
    int dataLength = 0;
    int authenticatedLength = 0;
    vrdk_GetAppData(afl.data(), static_cast<unsigned char>(afl.size()), wanted.data(),
                    static_cast<unsigned char>(wanted.size()), data.bytes(), &dataLength, authenticated.bytes(),
                    &authenticatedLength);
    require(dataLength >= 0 && dataLength <= VORN_APPDATA_CAPACITY && authenticatedLength >= 0 &&
                authenticatedLength <= VORN_APPDATA_CAPACITY,
            "the lengths of an application's records");
}

void script(Input& input)
{
    const Exact commands(input.take(input.word() & 0x3FF));
    int count = -1;
    vrdk_exeicscript(commands.data(), commands.size(), &count);
    require(count >= 0 && count <= commands.size(), "the count of commands");
}

void commands(Input& input)
{
    Output out(VORN_PAYLOAD_MAX);
    unsigned char byteLength = 0;
    int length = 0;
    Output random(512);
    const Exact data(input.counted());
    const auto count = static_cast<unsigned char>(data.size());
    vrdk_getrandom(input.word() & 0x1FF, random.bytes());
    VR_read_binary(input.byte(), 0, 0, out.bytes(), &length);
    require(length >= 0 && length <= VORN_PAYLOAD_MAX, "the length of a file");
    vrdk_ExternalAuth(data.data(), count);
    vrdk_InternalAuth(data.data(), count, out.bytes(), &byteLength);
    vrdk_VerifyPin(0x80, data.data(), count);
    vrdk_GetData(input.byte(), out.bytes(), &byteLength);
    vrdk_GenerateAC(0x80, data.data(), count, out.bytes(), &byteLength);
    vrdk_getwalletinfo(out.bytes(), &length);
    require(length >= 0 && length <= VORN_PAYLOAD_MAX, "the length of the wallet's answer");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    AnsweringReader reader(input);
    beginWorld(&reader);
    Text port(ByteView(reinterpret_cast<const std::uint8_t*>("ttyS1:9600,N"), 12));
    vr_comportmode = 0;
    vrdk03com_handle = OpenDev(0, port.writable());
    switch (input.byte() & 0x03) {
    case 0:
        options(input);
        break;
    case 1:
        records(input);
        break;
    case 2:
        script(input);
        break;
    default:
        commands(input);
        break;
    }
    endOfCalls();
    return 0;
}
