#include "tests/support/LogCapture.h"

#include <cerrno>

#include <unistd.h>

namespace KoTest
{

namespace
{

std::atomic<LogCapture*> sCurrent{nullptr};

} // namespace

std::string pidPrefix(pid_t pid)
{
    return "pid " + std::to_string(pid) + ": ";
}

std::string LogLine::withoutPrefix(pid_t pid) const
{
    const std::string prefix = pidPrefix(pid);
    return text.compare(0, prefix.size(), prefix) == 0 ? text.substr(prefix.size()) : text;
}

std::string LogLine::describe() const
{
    return std::to_string(severity) + " (" + std::to_string(opcode) + ") " + text;
}

LogCapture::LogCapture()
    : m_outer(sCurrent.exchange(this))
    , m_outerSink(KoPlatform::setLogSink(&LogCapture::receive))
{
}

LogCapture::~LogCapture()
{
    KoPlatform::setLogSink(m_outerSink);
    sCurrent = m_outer;
}

int LogCapture::receive(int opcode, int severity, const char* line)
{
    const int formerErrno = errno;
    LogLine received{opcode, severity, line};
    const int length = static_cast<int>(received.text.size());
    LogCapture& capture = *sCurrent;
    {
        const std::lock_guard<std::mutex> guard(capture.m_lock);
        capture.m_lines.push_back(std::move(received));
    }
    const int error = capture.m_error;
    errno = error == 0 ? formerErrno : error;
    return error == 0 ? length : -1;
}

std::vector<LogLine> LogCapture::lines() const
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_lines;
}

std::vector<std::string> LogCapture::texts(int severity) const
{
    std::vector<std::string> result;
    for (const LogLine& line : lines())
        if (line.severity == severity)
            result.push_back(line.withoutPrefix(getpid()));
    return result;
}

} // namespace KoTest
