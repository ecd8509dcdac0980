#include <cstdlib>

#include <gmock/gmock.h>

#include "tests/support/TemporaryDirectory.h"

/// Log lines and backtraces that a test does not ask for go nowhere instead of to this machine's logger and
/// shared memory.
int main(int argc, char** argv)
{
    const KoTest::TemporaryDirectory stray;
    setenv("KO_PLATFORM_LOG", stray.file("log").c_str(), 0);
    setenv("KO_ASSERTION_BACKTRACE_DIR", stray.path().c_str(), 0);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
