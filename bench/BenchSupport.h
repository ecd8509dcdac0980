#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <sched.h>
#include <sys/eventfd.h>
#include <unistd.h>

/// What the benchmarks share.
namespace KoBench
{

[[noreturn]] inline void giveUp(const char* what)
{
    std::perror(what);
    std::exit(EXIT_FAILURE);
}

/// Ends the program when a step failed that has nothing to do with speed.
inline void require(bool success, const char* what)
{
    if (!success)
    {
        giveUp(what);
    }
}

/// The calling thread's affinity, put back at the end. Partners inherit it.
class Pinned
{
public:
    explicit Pinned(bool pin)
    {
        sched_getaffinity(0, sizeof(m_former), &m_former);
        if (pin)
        {
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(0, &one);
            sched_setaffinity(0, sizeof(one), &one);
        }
    }
    ~Pinned() { sched_setaffinity(0, sizeof(m_former), &m_former); }
    Pinned(const Pinned&) = delete;
    Pinned& operator=(const Pinned&) = delete;

private:
    cpu_set_t m_former;
};

/// Rings a bell, or waits for it.
class Bell
{
public:
    Bell()
        : m_descriptor(eventfd(0U, 0))
    {
        require(m_descriptor != -1, "eventfd");
    }
    ~Bell() { close(m_descriptor); }
    Bell(const Bell&) = delete;
    Bell& operator=(const Bell&) = delete;

    int descriptor() const { return m_descriptor; }
    void ring() const { require(eventfd_write(m_descriptor, 1U) == 0, "eventfd_write"); }
    void await() const
    {
        eventfd_t count = 0U;
        require(eventfd_read(m_descriptor, &count) == 0, "eventfd_read");
    }

private:
    int m_descriptor;
};

} // namespace KoBench
