#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
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
};

/// The prefix that every line of a process carries.
std::string pidPrefix(pid_t pid = getpid());

/// Receives this process's log lines instead of the logger while it lives. Captures nest: the innermost one
/// receives. Any thread may log meanwhile. Receiving a line allocates nothing and keeps errno; lines beyond
/// the capacity fail the test.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// From now on lines are recorded, but the logger's answer is -1 with this errno (0 = success again).
    void failWith(int errorNumber);

    std::vector<LogLine> lines() const;
    /// The texts of one severity, or of all, without the prefix.
    std::vector<std::string> texts(int severity = -1) const;
    std::size_t size() const;
    void clear();

private:
    static constexpr std::size_t CAPACITY = 512;
    static constexpr std::size_t LINE_BYTES = 1280;

    struct Slot
    {
        int opcode;
        int severity;
        char text[LINE_BYTES];
    };

    static int receive(int opcode, int severity, const char* line);
    int record(int opcode, int severity, const char* line);

    mutable std::mutex m_lock;
    std::unique_ptr<Slot[]> m_slots;
    std::size_t m_size = 0;
    std::size_t m_dropped = 0;
    std::atomic<int> m_error{0};
    LogCapture* m_outer;
    KoPlatform::LogSink m_outerSink;
};

} // namespace KoTest
