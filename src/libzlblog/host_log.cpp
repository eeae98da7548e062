// SPDX-License-Identifier: Apache-2.0
// The bridge to the host platform's own log library, which is loaded only when the host asks for it.
#include "public/console.h"

#include "vorn/log.h"

#include <dlfcn.h>

// A terminal's C library may be older than the one the library is built with: these have been there all along, under
// the first version of the target, in the C library's own libdl then.
#if defined(__aarch64__)
__asm__(".symver dlopen,dlopen@GLIBC_2.17");
__asm__(".symver dlsym,dlsym@GLIBC_2.17");
__asm__(".symver dlclose,dlclose@GLIBC_2.17");
#endif

namespace {

using HostLog = void (*)(void* a1, void* a2, void* a3, int a4, void* a6);

// Kept internal: exported objects of these names would take the place of libc's warn and error in the host.
void* dllInst;
HostLog info;
HostLog warn;
HostLog error;

HostLog functionNamed(const char* name) { return reinterpret_cast<HostLog>(dlsym(dllInst, name)); }

void forgetFunctions() { info = warn = error = nullptr; }

} // namespace

extern "C" {

int log_init()
{
    void* const loaded = dlopen(VORN_HOST_LOG_LIBRARY, RTLD_LAZY);
    if (loaded == nullptr) {
        vorn::print("error open so\n");
        forgetFunctions();
        return 0;
    }
    if (dllInst != nullptr) {
        dlclose(dllInst); // only now: a library that was loaded before stays so, and counts once
    }
    dllInst = loaded;
    info = functionNamed("LogInfo");
    warn = functionNamed("LogWarn");
    error = functionNamed("LogError");
    if (info == nullptr || warn == nullptr || error == nullptr) {
        vorn::print("error open so 1\n");
        forgetFunctions(); // the library stays loaded, but none of it is called
        return 0;
    }
    return 1;
}

void log_close()
{
    if (dllInst != nullptr) {
        dlclose(dllInst);
        dllInst = nullptr; // closing it twice would take it away from somebody else who loaded it
    }
    forgetFunctions();
}

int messLog(void* a1, void* a2, void* a3, int a4, int level, void* a6)
{
    const HostLog functions[] = {info, warn, error};
    if (dllInst == nullptr || level < 1 || level > 3 || functions[level - 1] == nullptr) {
        return 0;
    }
    functions[level - 1](a1, a2, a3, a4, a6);
    return 0;
}

} // extern "C"
