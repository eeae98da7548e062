// SPDX-License-Identifier: Apache-2.0
// The daemon has a thread for each client and for each slot.
#pragma once

#include <pthread.h>

namespace vorn::ifd {

class Mutex {
public:
    void lock() { pthread_mutex_lock(&mutex_); }
    bool tryLock(); // false: somebody holds it
    void unlock() { pthread_mutex_unlock(&mutex_); }

private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

// Holds a mutex while it lives.
class Held {
public:
    explicit Held(Mutex& mutex) : mutex_(mutex) { mutex_.lock(); }
    ~Held() { mutex_.unlock(); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

private:
    Mutex& mutex_;
};

} // namespace vorn::ifd
