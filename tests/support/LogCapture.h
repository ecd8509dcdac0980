#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include <unistd.h>

#include "pf/platform/KoPlatformLog.h"

namespace KoTest
{

/// One line as the logger receives it.
struct LogLine
{
    int opcode;
    int severity;
    std::string text; ///< with its "pid %d: " prefix

    std::string withoutPrefix(pid_t pid) const;
    /// "severity (opcode) text".
    std::string describe() const;
};

/// The prefix that every line of a process carries.
std::string pidPrefix(pid_t pid = getpid());

/// Receives this process's log lines instead of the logger while it lives. Captures nest: the innermost one
/// receives. Any thread may log meanwhile. Receiving a line keeps errno.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// From now on lines are recorded, but the logger's answer is -1 with this errno (0 = success again).
    void failWith(int errorNumber) { m_error = errorNumber; }

    std::vector<LogLine> lines() const;
    /// The texts of one severity without the prefix.
    std::vector<std::string> texts(int severity) const;
    std::size_t size() const { return lines().size(); }

private:
    static int receive(int opcode, int severity, const char* line);

    mutable std::mutex m_lock;
    std::vector<LogLine> m_lines;
    std::atomic<int> m_error{0};
    LogCapture* m_outer;
    KoPlatform::LogSink m_outerSink;
};

} // namespace KoTest
