// SPDX-License-Identifier: Apache-2.0
// Application selection: directories, nested and endless ones, and selection by partial names.
#include "card/selection.h"
#include "support/calls.h"
#include "support/readers.h"

using namespace vorn;
using namespace vorn::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    AnsweringReader reader(input);
    beginWorld(&reader);
    Text port(ByteView(reinterpret_cast<const std::uint8_t*>("ttyS1:9600,N"), 12));
    vr_comportmode = 0;
    vrdk03com_handle = OpenDev(0, port.writable());

    const std::uint8_t how = input.byte();
    const Exact given(input.counted());
    switch (how & 0x03) {
    case 0: {
        Candidates<alist> list;
        require(vrdk_checkADF(given.data(), given.size(), &list.head()) >= 0, "a count of applications");
        break;
    }
    case 1: {
        Candidates<alist> list;
        require(vrdk_PseAppSelect(given.data(), given.size(), &list.head()) >= 0, "a count of applications");
        break;
    }
    case 2: {
        Candidates<flist> list;
        const int count = vrdk_AidAppSelect(how >> 7, given.data(), given.size(), &list.head());
        require(count >= 0 && count <= VORN_AID_CANDIDATES_MAX, "a count of candidates");
        break;
    }
    default: {
        Output fci(VORN_RESPONSE_MAX);
        unsigned char length = 0;
        vrdk_FinalAppSelect(given.data(), given.size(), fci.bytes(), &length);
        Output identifier(20);
        if (VR_selectapp(identifier.text()) == 0) {
            require(identifier.length() == 19, "the identifier's digits");
        }
        break;
    }
    }
    endOfCalls();
    return 0;
}
