#include "tests/support/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/Deadline.h"
#include "tests/support/TemporaryDirectory.h"

namespace KoTest
{

namespace
{

constexpr int EXEC_FAILED = 127;

/// A descriptor that is closed at the end of its scope.
class Descriptor
{
public:
    Descriptor() = default;
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return m_descriptor; }
    void set(int descriptor) { m_descriptor = descriptor; }
    void reset()
    {
        if (m_descriptor >= 0)
        {
            close(m_descriptor);
        }
        m_descriptor = -1;
    }

private:
    int m_descriptor = -1;
};

/// The parent's ends of what the child writes to.
struct Channels
{
    Descriptor outRead, outWrite, errRead, errWrite, logRead, logWrite;

    void openPipes()
    {
        int out[2] = {-1, -1};
        int err[2] = {-1, -1};
        EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(err, O_CLOEXEC), 0);
        outRead.set(out[0]);
        outWrite.set(out[1]);
        errRead.set(err[0]);
        errWrite.set(err[1]);
    }

    void openLogPair()
    {
        int log[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, log), 0);
        logRead.set(log[0]);
        logWrite.set(log[1]);
    }

    void bindLogSocket(const std::string& path)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        ASSERT_LT(path.size(), sizeof(address.sun_path));
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
        logRead.set(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        const void* const generic = &address;
        ASSERT_EQ(bind(logRead.get(), static_cast<const sockaddr*>(generic), sizeof(address)), 0);
    }

    void takeOutputInChild()
    {
        dup2(outWrite.get(), STDOUT_FILENO);
        dup2(errWrite.get(), STDERR_FILENO);
    }

    void closeChildEnds()
    {
        outWrite.reset();
        errWrite.reset();
        logWrite.reset();
    }
};

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

/// Appends what is there; false at the end of the data.
bool drain(int descriptor, std::string& text)
{
    char buffer[65536];
    const ssize_t count = ::read(descriptor, buffer, sizeof(buffer));
    if (count > 0)
    {
        text.append(buffer, static_cast<std::size_t>(count));
    }
    return count > 0 || (count < 0 && errno == EINTR);
}

void drainLog(int descriptor, std::vector<LogLine>& log)
{
    char buffer[4096];
    ssize_t count = 0;
    while ((count = recv(descriptor, buffer, sizeof(buffer), MSG_DONTWAIT)) >= 0)
    {
        const std::string datagram(buffer, static_cast<std::size_t>(count));
        LogLine line{-1, -1, datagram};
        EXPECT_TRUE(parseLogDatagram(datagram, line)) << datagram;
        log.push_back(line);
    }
}

/// Reads until both outputs are closed; kills the child when the deadline passes first.
void collect(Channels& channels, ChildResult& result, const Deadline& deadline)
{
    bool outOpen = true;
    bool errOpen = true;
    while (outOpen || errOpen)
    {
        pollfd waits[3] = {{outOpen ? channels.outRead.get() : -1, POLLIN, 0},
                           {errOpen ? channels.errRead.get() : -1, POLLIN, 0},
                           {channels.logRead.get(), POLLIN, 0}};
        const int ready = poll(waits, 3, deadline.remainingMs());
        if (ready == 0)
        {
            result.timedOut = true;
            kill(result.pid, SIGKILL);
            return;
        }
        outOpen = outOpen && (waits[0].revents == 0 || drain(channels.outRead.get(), result.standardOutput));
        errOpen = errOpen && (waits[1].revents == 0 || drain(channels.errRead.get(), result.standardError));
        drainLog(channels.logRead.get(), result.log);
    }
}

/// A child may close its outputs and live on: the deadline holds for its end, too.
int awaitEnd(ChildResult& result, const Deadline& deadline)
{
    int status = 0;
    while (waitpid(result.pid, &status, WNOHANG) == 0)
    {
        if (deadline.hasPassed() && !result.timedOut)
        {
            result.timedOut = true;
            kill(result.pid, SIGKILL);
        }
        poll(nullptr, 0, 1);
    }
    return status;
}

void finish(Channels& channels, ChildResult& result, std::uint64_t timeoutMs)
{
    const Deadline deadline(timeoutMs);
    channels.closeChildEnds();
    collect(channels, result, deadline);
    const int status = awaitEnd(result, deadline);
    drainLog(channels.logRead.get(), result.log);
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

void forbidCoreFiles()
{
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
}

[[noreturn]] void runForkedBody(const std::function<int()>& body, Channels& channels)
{
    forbidCoreFiles();
    channels.takeOutputInChild();
    sLogDescriptor = channels.logWrite.get();
    KoPlatform::setLogSink(&sendToParent);
    const bool hadFailure = testing::Test::HasFailure();
    int status = body();
    if (!hadFailure && testing::Test::HasFailure())
    {
        status = ChildProcess::EXPECTATION_FAILED;
    }
    std::fflush(nullptr);
    _exit(status);
}

std::vector<std::string> emulatorWords()
{
#ifdef KO_TEST_EMULATOR
    return {KO_TEST_EMULATOR};
#else
    return {};
#endif
}

void applyEnvironment(const ChildProcess::Program& program)
{
    for (const auto& entry : program.environment)
    {
        if (entry.second == nullptr)
        {
            unsetenv(entry.first.c_str());
        }
        else
        {
            setenv(entry.first.c_str(), entry.second, 1);
        }
    }
}

[[noreturn]] void executeProgram(const ChildProcess::Program& program, Channels& channels,
                                 const std::string& logPath)
{
    forbidCoreFiles();
    channels.takeOutputInChild();
    setenv("KO_PLATFORM_LOG", logPath.c_str(), 1);
    applyEnvironment(program);
    std::vector<std::string> words = emulatorWords();
    words.push_back(program.path);
    words.insert(words.end(), program.arguments.begin(), program.arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words)
    {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    execvp(pointers[0], pointers.data());
    _exit(EXEC_FAILED);
}

} // namespace

bool parseLogDatagram(const std::string& datagram, LogLine& line)
{
    int priority = 0;
    int opcode = 0;
    int consumed = -1;
    const std::size_t bracket = datagram.find('[');
    if (bracket == std::string::npos || std::sscanf(datagram.c_str(), "<%d>", &priority) != 1 ||
        std::sscanf(datagram.c_str() + bracket, "[%*d]: (%d) %n", &opcode, &consumed) != 1 || consumed < 0)
    {
        return false;
    }
    line.opcode = opcode;
    line.severity = priority & 7;
    line.text = datagram.substr(datagram.find(") ") + 2);
    return true;
}

std::vector<std::string> ChildResult::logTexts() const
{
    const std::string prefix = "pid " + std::to_string(pid) + ": ";
    std::vector<std::string> result;
    for (const LogLine& line : log)
    {
        const bool hasPrefix = line.text.compare(0, prefix.size(), prefix) == 0;
        result.push_back(hasPrefix ? line.text.substr(prefix.size()) : line.text);
    }
    return result;
}

std::string ChildResult::describe() const
{
    std::string result = "exit status " + std::to_string(exitStatus) + ", signal " + std::to_string(signal) +
                         (timedOut ? ", timed out" : "") + "\nstdout:\n" + standardOutput + "\nstderr:\n" +
                         standardError + "\nlog:\n";
    for (const LogLine& line : log)
    {
        result +=
            std::to_string(line.severity) + " (" + std::to_string(line.opcode) + ") " + line.text + "\n";
    }
    return result;
}

ChildResult ChildProcess::run(const std::function<int()>& body, std::uint64_t timeoutMs)
{
    Channels channels;
    channels.openPipes();
    channels.openLogPair();
    std::fflush(nullptr);
    ChildResult result;
    result.pid = fork();
    if (result.pid == 0)
    {
        runForkedBody(body, channels);
    }
    finish(channels, result, timeoutMs);
    return result;
}

ChildResult ChildProcess::execute(const Program& program, std::uint64_t timeoutMs)
{
    const TemporaryDirectory directory;
    Channels channels;
    channels.openPipes();
    channels.bindLogSocket(directory.file("log"));
    std::fflush(nullptr);
    ChildResult result;
    result.pid = fork();
    if (result.pid == 0)
    {
        executeProgram(program, channels, directory.file("log"));
    }
    if (program.whileRunning)
    {
        program.whileRunning(result.pid);
    }
    finish(channels, result, timeoutMs);
    return result;
}

} // namespace KoTest
