// SPDX-License-Identifier: Apache-2.0
// A host in C++, built by CMakeLists.txt beside it against the installed package.
#include <ICC_COMM_VORN.h>
#include <vorn/convert.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

int main(int argc, char** argv)
{
    std::vector<char> record(ICC_USER_INFO_CAPACITY);
    std::vector<char> tags(16);
    std::strcpy(tags.data(), "A");
    int cardType = VORN_OPEN_EITHER;
    int length = 0;
    char none[1] = "";
    std::string port = argc > 1 ? argv[1] : "ttyS0";

    const int result = IC_GetInfo(port.data(), none, 9600, 30, &cardType, none, tags.data(), &length, record.data());
    const std::string beginning = "A0196229990000710246589"; // of the profile "debit"
    if (result != VORN_OK || beginning.compare(0, beginning.size(), record.data(), beginning.size()) != 0) {
        std::printf("result %d, record %s\n", result, record.data());
        return 1;
    }
    return 0;
}
