// SPDX-License-Identifier: Apache-2.0
// Loads the library while the program runs, for a host that starts without it: load_library LIBRARY PORT
// The header gives the types; nothing of the library is linked.
#include <ICC_COMM_VORN.h>
#include <dlfcn.h>

#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

class CardLibrary {
public:
    explicit CardLibrary(const std::string& path) : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL), dlclose)
    {
        if (!handle_) {
            throw std::runtime_error(dlerror());
        }
        find(powerOn, "IC_PowerOn");
        find(getInfo, "IC_GetInfo");
    }

    decltype(&IC_PowerOn) powerOn = nullptr;
    decltype(&IC_GetInfo) getInfo = nullptr;

private:
    template <class Function>
    void find(Function& function, const char* name)
    {
        function = reinterpret_cast<Function>(dlsym(handle_.get(), name));
        if (function == nullptr) {
            throw std::runtime_error(std::string("not in this library: ") + name);
        }
    }

    std::unique_ptr<void, int (*)(void*)> handle_;
};

std::string cardRecord(const CardLibrary& library, const std::string& port)
{
    constexpr int speed = 9600, seconds = 20, usersCard = 1;
    std::vector<char> atr(ICC_ATR_CAPACITY), record(ICC_USER_INFO_CAPACITY);
    int result = library.powerOn(port.c_str(), "", speed, seconds, usersCard, 0, atr.data());
    int cardType = VORN_OPEN_EITHER, length = 0;
    if (result == VORN_OK) {
        result =
            library.getInfo(port.c_str(), "", speed, seconds, &cardType, "", "ABCDEFGHIJKL", &length, record.data());
    }
    if (result != VORN_OK) {
        throw std::runtime_error("no card data: " + std::to_string(result));
    }
    return {record.data(), static_cast<std::size_t>(length) - 1}; // the NUL is counted
}

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: " << argv[0] << " LIBRARY PORT\n";
        return 2;
    }
    try {
        const CardLibrary library(argv[1]);
        const std::string record = cardRecord(library, argv[2]);
        // Field A comes first; of an account number no more than the end is shown.
        const std::size_t digits = record.size() > 4 ? std::stoul(record.substr(1, 3)) : 0;
        std::cout << "card ..." << (digits > 4 ? record.substr(digits, 4) : "(none)") << '\n';
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
