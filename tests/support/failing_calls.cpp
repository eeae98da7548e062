// SPDX-License-Identifier: Apache-2.0
#include "support/failing_calls.h"

#include "support/open_mode.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <iconv.h>
#include <link.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>

namespace vorn::test {
namespace {

// Where code of the library lies in memory, and of what it hands its allocations to.
struct Range {
    std::uintptr_t from;
    std::uintptr_t to;
};
constexpr int kRangesMax = 16;

struct State {
    bool armed = false;
    bool struck = false;
    Site site{};
    How how{};
    int n = 0;
    bool forGood = false;
    int calls[static_cast<int>(Site::Count)] = {};
    Range ranges[kRangesMax] = {};
    int rangeCount = 0;
};

State state;

int addRanges(dl_phdr_info* object, std::size_t, void*)
{
    if (std::strstr(object->dlpi_name, "ICC_COMM_VORN") == nullptr &&
        std::strstr(object->dlpi_name, "libcjson") == nullptr) {
        return 0;
    }
    for (int i = 0; i < object->dlpi_phnum && state.rangeCount < kRangesMax; ++i) {
        const ElfW(Phdr)& segment = object->dlpi_phdr[i];
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0) {
            const std::uintptr_t from = object->dlpi_addr + segment.p_vaddr;
            state.ranges[state.rangeCount++] = {from, from + segment.p_memsz};
        }
    }
    return 0;
}

bool ofTheLibrary(const void* caller)
{
    const auto address = reinterpret_cast<std::uintptr_t>(caller);
    for (int i = 0; i < state.rangeCount; ++i) {
        if (address >= state.ranges[i].from && address < state.ranges[i].to) {
            return true;
        }
    }
    return false;
}

// Is this the call that is to fail?
bool strikes(Site site, const void* caller)
{
    if (!state.armed || !ofTheLibrary(caller)) {
        return false;
    }
    const int count = ++state.calls[static_cast<int>(site)];
    if (site != state.site || (state.forGood ? count < state.n : count != state.n)) {
        return false;
    }
    state.struck = true;
    return true;
}

int fails(int error)
{
    errno = state.how == How::Interrupt ? EINTR : error;
    return -1;
}

Site siteOf(int descriptor, Site tty)
{
    if (descriptor == STDOUT_FILENO || descriptor == STDERR_FILENO) {
        return Site::Print;
    }
    struct stat status = {};
    const bool regular = syscall(SYS_fstat, descriptor, &status) == 0 && S_ISREG(status.st_mode);
    return regular ? Site::LogWrite : tty;
}

template <class Function>
Function next(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

const char* nameOf(Site site)
{
    static const char* const names[] = {"open",     "read",      "write", "terminal",   "status", "allocate",
                                        "log open", "log write", "print", "iconv_open", "iconv"};
    return names[static_cast<int>(site)];
}

const char* nameOf(How how)
{
    static const char* const names[] = {"fails", "is interrupted", "is cut short"};
    return names[static_cast<int>(how)];
}

namespace failing_calls {

void arm(Site site, How how, int n, bool forGood)
{
    state = State{};
    dl_iterate_phdr(addRanges, nullptr);
    state.site = site;
    state.how = how;
    state.n = n;
    state.forGood = forGood;
    state.armed = true;
}

bool disarm()
{
    state.armed = false;
    return state.struck;
}

int callsSinceArmed(Site site) { return state.calls[static_cast<int>(site)]; }

bool allocationsFail()
{
#ifdef __SANITIZE_ADDRESS__
    return false;
#else
    return true;
#endif
}

} // namespace failing_calls
} // namespace vorn::test

using namespace vorn::test;

// ---------------------------------------------------------------- what the library calls instead of libc

extern "C" {

int open(const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = vorn::test::openMode(flags, arguments);
    va_end(arguments);
    const bool device = std::strncmp(path, "/dev/", 5) == 0;
    if (strikes(device ? Site::Open : Site::LogOpen, __builtin_return_address(0))) {
        return fails(EMFILE);
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

ssize_t read(int descriptor, void* buffer, std::size_t size)
{
    if (strikes(Site::Read, __builtin_return_address(0))) {
        if (state.how != How::Short) {
            return fails(EIO);
        }
        size = size > 0 ? 1 : 0;
    }
    return syscall(SYS_read, descriptor, buffer, size);
}

ssize_t write(int descriptor, const void* bytes, std::size_t size)
{
    const void* caller = __builtin_return_address(0);
    if (state.armed && ofTheLibrary(caller) && strikes(siteOf(descriptor, Site::Write), caller)) {
        if (state.how != How::Short) {
            return fails(EIO);
        }
        size = size > 0 ? 1 : 0;
    }
    return syscall(SYS_write, descriptor, bytes, size);
}

int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    std::va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (strikes(Site::Terminal, __builtin_return_address(0))) {
        return fails(EIO);
    }
    return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
}

int tcgetattr(int descriptor, struct termios* settings) noexcept
{
    if (strikes(Site::Terminal, __builtin_return_address(0))) {
        return fails(EIO);
    }
    return next<int (*)(int, struct termios*)>("tcgetattr")(descriptor, settings);
}

int tcsetattr(int descriptor, int action, const struct termios* settings) noexcept
{
    if (strikes(Site::Terminal, __builtin_return_address(0))) {
        return fails(EIO);
    }
    return next<int (*)(int, int, const struct termios*)>("tcsetattr")(descriptor, action, settings);
}

int tcflush(int descriptor, int queue) noexcept
{
    if (strikes(Site::Terminal, __builtin_return_address(0))) {
        return fails(EIO);
    }
    return next<int (*)(int, int)>("tcflush")(descriptor, queue);
}

int tcdrain(int descriptor)
{
    if (strikes(Site::Terminal, __builtin_return_address(0))) {
        return fails(EIO);
    }
    return next<int (*)(int)>("tcdrain")(descriptor);
}

int fstat(int descriptor, struct stat* status) noexcept
{
    if (strikes(Site::Status, __builtin_return_address(0))) {
        return fails(EIO);
    }
    return next<int (*)(int, struct stat*)>("fstat")(descriptor, status);
}

int poll(struct pollfd* descriptors, nfds_t count, int timeout)
{
    if (strikes(Site::Status, __builtin_return_address(0))) {
        return fails(ENOMEM);
    }
    return next<int (*)(struct pollfd*, nfds_t, int)>("poll")(descriptors, count, timeout);
}

iconv_t iconv_open(const char* to, const char* from)
{
    if (strikes(Site::OpenIconv, __builtin_return_address(0))) {
        errno = EINVAL;
        return reinterpret_cast<iconv_t>(-1);
    }
    return next<iconv_t (*)(const char*, const char*)>("iconv_open")(to, from);
}

std::size_t iconv(iconv_t descriptor, char** in, std::size_t* inLeft, char** out, std::size_t* outLeft)
{
    if (strikes(Site::Iconv, __builtin_return_address(0))) {
        errno = EILSEQ;
        return static_cast<std::size_t>(-1);
    }
    using Iconv = std::size_t (*)(iconv_t, char**, std::size_t*, char**, std::size_t*);
    return next<Iconv>("iconv")(descriptor, in, inLeft, out, outLeft);
}

#ifndef __SANITIZE_ADDRESS__
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

void* malloc(std::size_t size)
{
    if (strikes(Site::Allocate, __builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size)
{
    if (strikes(Site::Allocate, __builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size)
{
    if (strikes(Site::Allocate, __builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_realloc(block, size);
}
#endif

} // extern "C"
