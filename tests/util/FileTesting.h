#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "pf/util/CKoFileHandle.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

namespace KoTest
{

/// Descriptors that this process has open.
inline std::ptrdiff_t openDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/// Runs a body that changes what belongs to the whole process (limits, user, current directory) in a child.
inline void inChild(const std::function<void()>& body)
{
    const ChildResult result = ChildProcess::run(
        [&]
        {
            body();
            return 0;
        });
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
}

/// Sets the soft limit of a resource of this process.
inline void limit(__rlimit_resource resource, rlim_t value)
{
    rlimit limits{};
    EXPECT_EQ(getrlimit(resource, &limits), 0);
    limits.rlim_cur = value;
    EXPECT_EQ(setrlimit(resource, &limits), 0);
}

/// Gives up a superuser's rights for good: from now on permissions count.
inline void becomeNobody()
{
    constexpr uid_t NOBODY = 65534;
    EXPECT_TRUE(geteuid() != 0 || setresuid(NOBODY, NOBODY, NOBODY) == 0);
}

/// What failed, as an error number; 0 for a call that succeeded.
template <typename Call>
int errorOf(Call call)
{
    errno = 0;
    const bool succeeded = call();
    return succeeded ? 0 : errno;
}

} // namespace KoTest
