/// @file ChildProcess.h
///
/// Child processes that run a part of a test, and memory that they share with it.
#ifndef CHILDPROCESS_H
#define CHILDPROCESS_H

#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/types.h>
#include <vector>

/// A value that child processes see and change, too.
template <typename T>
class Shared
{
public:
    Shared()
    {
        void* place =
            mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (place == MAP_FAILED)
            throw std::runtime_error("no shared memory");
        value = new (place) T;
    }
    ~Shared()
    {
        value->~T();
        munmap(value, sizeof(T));
    }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    T* operator->() const { return value; }
    T& operator*() const { return *value; }

private:
    T* value;
};

/// Runs `body(0)` to `body(count - 1)`, each in a process of its own, all at the same time. Returns
/// what they have returned (0 to 127), in that order; 128 and the signal's number for one that a
/// signal has ended. A process that takes longer than `seconds` is ended by SIGALRM.
std::vector<int> runProcesses(int count, unsigned seconds, const std::function<int(int)>& body);

/// The number in an environment variable, or `otherwise`. Long runs set some.
int numberFromEnvironment(const char* variable, int otherwise);

#endif
