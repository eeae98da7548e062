// SPDX-License-Identifier: Apache-2.0
// A host that has a function of its own for every name that the library exports, but for the calls it makes. The
// library does not meet them: a call with all that belongs to it runs as in any other host.
#include "sim/profiles/profile.h"
#include "sim/reader/pty_port.h"
#include "sim/reader/reader.h"

#include "ICC_COMM_VORN.h"

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <vector>

extern "C" void captured(const char* name)
{
    std::fprintf(stderr, "the library called the host's own %s\n", name);
    std::_Exit(1);
}

int main()
{
    char directory[] = "/tmp/vorn-own-names-XXXXXX"; // for the log files
    if (mkdtemp(directory) == nullptr || chdir(directory) != 0) {
        return 2;
    }
    vorn::sim::Reader reader;
    vorn::sim::load(vorn::sim::findProfile("debit"), reader);
    const vorn::sim::PtyPort port(reader, {});

    int cardType = VORN_OPEN_EITHER;
    int length = 0;
    std::vector<char> record(ICC_USER_INFO_CAPACITY);
    const int result =
        IC_GetInfo(port.name().c_str(), "", 9600, 10, &cardType, "", "ABCDEFGHIJKL", &length, record.data());
    std::printf("%d, %d characters\n", result, length);
    const bool logged = unlink(VORN_TRACE_FILE) == 0 && unlink(VORN_SERVICE_FILE) == 0;
    rmdir(directory);
    return result == 0 && logged && std::strncmp(record.data(), "A019", 4) == 0 ? 0 : 1;
}
