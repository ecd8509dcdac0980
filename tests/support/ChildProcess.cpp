#include "tests/support/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/Deadline.h"
#include "tests/support/LogSocket.h"
#include "tests/support/TemporaryDirectory.h"

namespace KoTest
{

namespace
{

constexpr int EXEC_FAILED = 127;

/// Where the forked child's sink sends its lines.
int sLogDescriptor = -1;

/// Sends a line whole and waits for room, so that no line of a burst is lost.
int sendToParent(int opcode, int severity, const char* line)
{
    const int formerErrno = errno;
    char datagram[1500];
    const int length = std::snprintf(datagram, sizeof(datagram), "<%d>child[%d]: (%d) %s", 8 + severity,
                                     getpid(), opcode, line);
    while (send(sLogDescriptor, datagram, static_cast<std::size_t>(length), MSG_NOSIGNAL) < 0 &&
           errno == EINTR)
    {
    }
    errno = formerErrno;
    return static_cast<int>(std::strlen(line));
}

/// Splits "<PRI>program[pid]: (opcode) line".
LogLine parseDatagram(const std::string& datagram)
{
    int priority = -1;
    int opcode = -1;
    const std::size_t bracket = datagram.find('[');
    const std::size_t text = datagram.find(") ");
    const bool isParsed = bracket != std::string::npos && text != std::string::npos &&
                          std::sscanf(datagram.c_str(), "<%d>", &priority) == 1 &&
                          std::sscanf(datagram.c_str() + bracket, "[%*d]: (%d)", &opcode) == 1;
    EXPECT_TRUE(isParsed) << datagram;
    return LogLine{opcode, priority & 7, isParsed ? datagram.substr(text + 2) : datagram};
}

/// One child on its way: its outputs go to files, its log lines to a socket of the parent.
class Run
{
public:
    Run()
        : m_logSocket(openLogSocket(&::bind, logPath()))
    {
    }
    ~Run() { close(m_logSocket); }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    std::string logPath() const { return m_directory.file("log"); }

    /// True in the child, whose outputs are redirected then.
    bool fork()
    {
        std::fflush(nullptr);
        m_result.pid = ::fork();
        if (m_result.pid == 0)
        {
            const rlimit noCoreFiles{0, 0};
            setrlimit(RLIMIT_CORE, &noCoreFiles);
            redirect(STDOUT_FILENO, "out");
            redirect(STDERR_FILENO, "err");
        }
        return m_result.pid == 0;
    }

    pid_t pid() const { return m_result.pid; }

    ChildResult finish(std::uint64_t timeoutMs)
    {
        const Stopwatch watch;
        int status = 0;
        while (waitpid(m_result.pid, &status, WNOHANG) == 0)
        {
            if (watch.isPast(timeoutMs) && !m_result.timedOut)
            {
                m_result.timedOut = true;
                kill(m_result.pid, SIGKILL);
            }
            pollfd waiting{m_logSocket, POLLIN, 0};
            poll(&waiting, 1, 1);
            drainLog();
        }
        drainLog();
        m_result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        m_result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
        m_result.standardOutput = m_directory.read("out");
        m_result.standardError = m_directory.read("err");
        return m_result;
    }

private:
    void redirect(int descriptor, const char* name) const
    {
        const int file =
            open(m_directory.file(name).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        dup2(file, descriptor);
    }

    void drainLog()
    {
        char buffer[4096];
        ssize_t count = 0;
        while ((count = recv(m_logSocket, buffer, sizeof(buffer), MSG_DONTWAIT)) >= 0)
            m_result.log.push_back(parseDatagram(std::string(buffer, static_cast<std::size_t>(count))));
    }

    TemporaryDirectory m_directory;
    int m_logSocket;
    ChildResult m_result;
};

[[noreturn]] void runForkedBody(const std::function<int()>& body, const std::string& logPath)
{
    sLogDescriptor = openLogSocket(&::connect, logPath);
    KoPlatform::setLogSink(&sendToParent);
    const bool hadFailure = testing::Test::HasFailure();
    int status = body();
    if (!hadFailure && testing::Test::HasFailure())
        status = ChildProcess::EXPECTATION_FAILED;
    std::fflush(nullptr);
    _exit(status);
}

[[noreturn]] void executeProgram(const ChildProcess::Program& program, const std::string& logPath)
{
    setenv("KO_PLATFORM_LOG", logPath.c_str(), 1);
    for (const auto& [name, value] : program.environment)
        setVariable(name.c_str(), value);
#ifdef KO_TEST_EMULATOR
    std::vector<std::string> words = {KO_TEST_EMULATOR};
#else
    std::vector<std::string> words;
#endif
    words.push_back(program.path);
    words.insert(words.end(), program.arguments.begin(), program.arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    execvp(pointers[0], pointers.data());
    _exit(EXEC_FAILED);
}

} // namespace

std::vector<std::string> ChildResult::logTexts() const
{
    std::vector<std::string> result;
    for (const LogLine& line : log)
        result.push_back(line.withoutPrefix(pid));
    return result;
}

std::string ChildResult::describe() const
{
    std::ostringstream text;
    text << "exit status " << exitStatus << ", signal " << signal << (timedOut ? ", timed out" : "")
         << "\nstdout:\n"
         << standardOutput << "\nstderr:\n"
         << standardError << "\nlog:\n";
    for (const LogLine& line : log)
        text << line.describe() << "\n";
    return text.str();
}

ChildResult ChildProcess::run(const std::function<int()>& body, std::uint64_t timeoutMs)
{
    Run child;
    if (child.fork())
        runForkedBody(body, child.logPath());
    return child.finish(timeoutMs);
}

ChildResult ChildProcess::execute(const Program& program, std::uint64_t timeoutMs)
{
    Run child;
    if (child.fork())
        executeProgram(program, child.logPath());
    if (program.whileRunning)
        program.whileRunning(child.pid());
    return child.finish(timeoutMs);
}

} // namespace KoTest
