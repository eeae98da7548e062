// SPDX-License-Identifier: Apache-2.0
// Names of ports as people write them: what is let through lies below /dev and is one name to the library.
#include "support/tool_output.h"
#include "tools/session/port_name.h"

using namespace vorn;
using namespace vorn::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string written = stringOf(ByteView(data, size)).c_str(); // an argument ends with its first NUL
    try {
        const std::string name = tool::portName(written);
        require(!name.empty() && name.size() < 128 - sizeof ":9600,N,8,1", "the library's parameter has room");
        require(name[0] != '/' && name.find_first_of(":,") == std::string::npos, "it is one name below /dev");
        require(("/" + name + "/").find("/../") == std::string::npos, "it does not climb");
    } catch (const tool::Failure& failure) {
        requirePrintable(failure.what());
        requirePrintable(failure.hint());
    }
    return 0;
}
