#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

#include "tests/support/LogCapture.h"

namespace KoTest
{

/// How a child process ended and what it said.
struct ChildResult
{
    pid_t pid = 0;
    bool timedOut = false; ///< killed because it did not end before the deadline
    int exitStatus = -1;   ///< -1 when it did not exit by itself
    int signal = 0;        ///< the signal that ended it, 0 when it exited
    std::string standardOutput;
    std::string standardError;
    std::vector<LogLine> log;

    /// The log's texts without the "pid %d: " prefix.
    std::vector<std::string> logTexts() const;
    /// Everything, for failure messages.
    std::string describe() const;
};

/// Runs child processes to their end and collects what they did. The calling thread waits, bounded by a
/// deadline.
class ChildProcess
{
public:
    /// Status of a forked child in which a test expectation failed; its text is on standard output.
    static constexpr int EXPECTATION_FAILED = 97;

    /// Runs the body in a forked child, which ends with the body's result. Log lines arrive even in bursts.
    static ChildResult run(const std::function<int()>& body, std::uint64_t timeoutMs = 20000);

    /// What a freshly executed program is started with. An environment entry with a null value removes the
    /// name.
    struct Program
    {
        std::string path;
        std::vector<std::string> arguments;
        std::vector<std::pair<std::string, const char*>> environment;
        /// Called in the parent once the program was started; its output is collected afterwards.
        std::function<void(pid_t)> whileRunning;
    };

    /// Executes a program (under the emulator where this executable runs under it).
    static ChildResult execute(const Program& program, std::uint64_t timeoutMs = 20000);
};

} // namespace KoTest
