#pragma once

#include <atomic>
#include <filesystem>
#include <string>

#include <sched.h>
#include <unistd.h>

#include "pf/oswrapper/KoSharedMemoryAccess.h"
#include "tests/platform/LockTestSupport.h"

namespace KoTest
{

constexpr char HOST_DIRECTORY[] = "/dev/shm/";

/// A name of an object that nobody else uses; removed at the end.
class ObjectName
{
public:
    ObjectName()
    {
        static std::atomic<int> sCount{0};
        m_name = "/ko-test-" + std::to_string(getpid()) + "-" + std::to_string(++sCount);
    }
    ~ObjectName() { KoSharedMemoryAccess::unlink(m_name.c_str()); }
    ObjectName(const ObjectName&) = delete;
    ObjectName& operator=(const ObjectName&) = delete;

    const char* c_str() const { return m_name.c_str(); }
    operator const char*() const { return c_str(); }
    std::string path() const { return HOST_DIRECTORY + m_name.substr(1); }
    bool exists() const { return std::filesystem::exists(path()); }
    /// Bytes; -1 when there is no such object.
    long long size() const
    {
        std::error_code error;
        const auto bytes = std::filesystem::file_size(path(), error);
        return error ? -1 : static_cast<long long>(bytes);
    }

private:
    std::string m_name;
};

/// Lets two peers start their rounds together. In memory that both share.
struct Starter
{
    std::atomic<unsigned int> arrived[2]{};

    void await(unsigned int side, unsigned int round)
    {
        arrived[side] = round;
        while (arrived[1U - side] < round)
            sched_yield();
    }
};

} // namespace KoTest
