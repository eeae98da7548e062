// SPDX-License-Identifier: Apache-2.0
// Where the library works: in a process of its own, which is asked for one call after the other and can be ended. A
// call may wait for a card without a bound, and a card or a line may keep it busy as long as it likes.
#pragma once

#include "tools/session/line_watcher.h"

#include <sys/types.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>

namespace vorn::tool {

class CallRunner {
public:
    // logDirectory: the worker's working directory, where the library writes its log files, and what it prints.
    explicit CallRunner(std::string logDirectory);
    ~CallRunner();
    CallRunner(const CallRunner&) = delete;
    CallRunner& operator=(const CallRunner&) = delete;

    enum class End { Returned, Stopped, Died };

    // Asked again and again while a call runs: true ends it.
    using ShallStop = std::function<bool()>;

    // Runs the function in the worker on a copy of the arguments, which come back as the function left them.
    template <class Arguments>
    End run(int (*function)(Arguments&), Arguments& arguments, const ShallStop& shallStop)
    {
        static_assert(std::is_trivially_copyable_v<Arguments> && sizeof(Arguments) <= kRoom);
        return run(Function{reinterpret_cast<void (*)()>(function), apply<Arguments>}, &arguments, sizeof arguments,
                   shallStop);
    }

    int result() const { return result_; }               // of the call that returned
    int cardInterface() const { return cardInterface_; } // m_VrICType after it
    bool linkOpen() const { return linkOpen_; }          // some calls leave it so
    int signal() const { return signal_; }               // that a worker died of
    LineWatcher& watcher() { return watcher_; }
    const LineWatcher& watcher() const { return watcher_; }

    // Forks the worker now, while this process has no threads.
    void start();

private:
    static constexpr std::size_t kRoom = 256UL * 1024;
    // A function of a type that only `apply` knows.
    struct Function {
        void (*function)();
        int (*apply)(void (*function)(), void* arguments);
    };
    template <class Arguments>
    static int apply(void (*function)(), void* arguments)
    {
        return reinterpret_cast<int (*)(Arguments&)>(function)(*static_cast<Arguments*>(arguments));
    }
    struct Mailbox;

    End run(const Function& function, void* arguments, std::size_t size, const ShallStop& shallStop);
    End follow(const ShallStop& shallStop);
    void endWorker(bool kill);
    [[noreturn]] void work(int socket);

    std::string logDirectory_;
    Mailbox* mailbox_ = nullptr;
    pid_t worker_ = -1;
    int socket_ = -1;
    int result_ = 0;
    int cardInterface_ = 0;
    int signal_ = 0;
    bool linkOpen_ = false;
    LineWatcher watcher_;
};

} // namespace vorn::tool
