#include "tests/support/LogCapture.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <unistd.h>

#include <gtest/gtest.h>

namespace KoTest
{

namespace
{

std::atomic<LogCapture*> sInnermost{nullptr};

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

LogCapture::LogCapture()
    : m_slots(new Slot[CAPACITY])
    , m_outer(sInnermost.exchange(this))
    , m_outerSink(KoPlatform::setLogSink(&LogCapture::receive))
{
}

LogCapture::~LogCapture()
{
    KoPlatform::setLogSink(m_outerSink);
    sInnermost = m_outer;
    EXPECT_EQ(m_dropped, 0U) << "lines beyond the capacity of the log capture";
}

int LogCapture::receive(int opcode, int severity, const char* line)
{
    LogCapture* const capture = sInnermost;
    return capture == nullptr ? 0 : capture->record(opcode, severity, line);
}

int LogCapture::record(int opcode, int severity, const char* line)
{
    const int formerErrno = errno;
    const std::size_t length = std::strlen(line);
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        if (m_size < CAPACITY)
        {
            Slot& slot = m_slots[m_size++];
            const std::size_t kept = std::min(length, LINE_BYTES - 1);
            slot.opcode = opcode;
            slot.severity = severity;
            std::memcpy(slot.text, line, kept);
            slot.text[kept] = '\0';
        }
        else
        {
            ++m_dropped;
        }
    }
    const int error = m_error;
    errno = error == 0 ? formerErrno : error;
    return error == 0 ? static_cast<int>(length) : -1;
}

void LogCapture::failWith(int errorNumber)
{
    m_error = errorNumber;
}

std::vector<LogLine> LogCapture::lines() const
{
    const std::lock_guard<std::mutex> guard(m_lock);
    std::vector<LogLine> result;
    result.reserve(m_size);
    for (std::size_t i = 0; i < m_size; ++i)
        result.push_back(LogLine{m_slots[i].opcode, m_slots[i].severity, m_slots[i].text});
    return result;
}

std::vector<std::string> LogCapture::texts(int severity) const
{
    std::vector<std::string> result;
    for (const LogLine& line : lines())
        if (severity < 0 || line.severity == severity)
            result.push_back(line.withoutPrefix(getpid()));
    return result;
}

std::size_t LogCapture::size() const
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_size;
}

void LogCapture::clear()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    m_size = 0;
    m_dropped = 0;
}

} // namespace KoTest
