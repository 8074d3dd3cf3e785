#pragma once

// Mutexes the thread-safety analysis knows as locks, and the scoped holders
// that take them. Declare guarded members with GUARDED_BY(m_mutex) and the
// analysis checks every access (core/ThreadAnnotations.h).

#include "core/ThreadAnnotations.h"

#include <condition_variable>
#include <mutex>

class CAPABILITY("mutex") CMutex {
public:
    void lock() ACQUIRE() { m_mutex.lock(); }
    void unlock() RELEASE() { m_mutex.unlock(); }
    // For a condition variable's wait (through CUniqueLock).
    std::mutex& Native() { return m_mutex; }

private:
    std::mutex m_mutex;
};

// Holds a mutex for its scope.
template <typename Mutex>
class SCOPED_CAPABILITY CLockGuard {
public:
    explicit CLockGuard(Mutex& mutex) ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
    ~CLockGuard() RELEASE() { m_mutex.unlock(); }

    CLockGuard(const CLockGuard&) = delete;
    CLockGuard& operator=(const CLockGuard&) = delete;

private:
    Mutex& m_mutex;
};

// Holds a CMutex for its scope and lends it to a condition variable's wait,
// which gives it back before returning.
class SCOPED_CAPABILITY CUniqueLock {
public:
    explicit CUniqueLock(CMutex& mutex) ACQUIRE(mutex) : m_lock(mutex.Native()) {}
    ~CUniqueLock() RELEASE() {}

    CUniqueLock(const CUniqueLock&) = delete;
    CUniqueLock& operator=(const CUniqueLock&) = delete;

    std::unique_lock<std::mutex>& Native() { return m_lock; }

private:
    std::unique_lock<std::mutex> m_lock;
};
