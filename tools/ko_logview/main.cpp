// Log viewer: binds the logger's socket and prints every line that arrives, until it is told to end.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "tools/ko_logview/LogDatagram.h"
#include "tools/ko_logview/LogSocket.h"

namespace
{

volatile std::sig_atomic_t sEndRequested = 0;

extern "C" void requestEnd(int /*signal*/)
{
    sEndRequested = 1;
}

struct Options
{
    std::string socketPath = "/dev/log";
    std::string severityText = "Debug2";
    KoLogView::LogFilter filter;
    unsigned long count = 0; ///< 0 = no limit
};

std::string checkSeverity(const std::string& text)
{
    return KoLogView::severityFromText(text) ? std::string() : "no severity: " + text;
}

/// An option that takes one value and may be repeated.
template <class T>
void declareList(CLI::App& app, const std::string& name, std::vector<T>& values,
                 const std::string& description)
{
    app.add_option(name, values, description + " (may be repeated)")->allow_extra_args(false);
}

void declareOptions(CLI::App& app, Options& options)
{
    app.add_option("--socket", options.socketPath, "path of the datagram socket to listen at")
        ->envname("KO_PLATFORM_LOG")
        ->capture_default_str();
    app.add_option("--severity", options.severityText,
                   "least severe lines to show: Shutdown, Critical, Error, Warning, Notice, Info, Debug1, "
                   "Debug2, or 0 to 7")
        ->check(CLI::Validator(checkSeverity, "SEVERITY"))
        ->capture_default_str();
    declareList(app, "--module", options.filter.modules, "show only lines of this module number");
    declareList(app, "--code", options.filter.codes, "show only lines with this code");
    declareList(app, "--process", options.filter.processes,
                "show only lines of this program (by name) or process (by number)");
    declareList(app, "--text", options.filter.texts, "show only lines that contain this text");
    declareList(app, "--not-text", options.filter.notTexts, "hide lines that contain this text");
    app.add_option("--count", options.count, "end after so many lines were shown (0 = never)")
        ->capture_default_str();
    app.set_version_flag("--version", "ko_logview " KO_TOOL_VERSION);
}

/// The local time of day of a line's arrival, to the millisecond.
std::string arrivalTime()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char text[40];
    const std::size_t length = std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
    std::snprintf(text + length, sizeof(text) - length, ".%03ld", now.tv_nsec / 1000000L);
    return text;
}

/// Prints a datagram unless it is filtered out; bytes of another form are shown as they are, escaped.
bool show(const std::string& bytes, const KoLogView::LogFilter& filter)
{
    const std::optional<KoLogView::LogDatagram> datagram = KoLogView::parseDatagram(bytes);
    const std::string foreign = datagram ? std::string() : KoLogView::printable(bytes);
    if (datagram ? !filter.accepts(*datagram) : !filter.acceptsForeign(foreign))
    {
        return false;
    }
    const std::string time = arrivalTime();
    if (datagram)
    {
        std::printf("%s  %-8s  %s[%s]  module %u  code %u  %s\n", time.c_str(),
                    KoLogView::severityName(datagram->severity), datagram->program.c_str(),
                    datagram->process.c_str(), datagram->module, datagram->code, datagram->text.c_str());
    }
    else
    {
        std::printf("%s  foreign   %s\n", time.c_str(), foreign.c_str());
    }
    return true;
}

/// Termination is let in only while waiting, so that no line is cut short and none is missed.
sigset_t blockTermination()
{
    struct sigaction action
    {
    };
    action.sa_handler = requestEnd;
    sigemptyset(&action.sa_mask);
    sigset_t ends;
    sigemptyset(&ends);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
    {
        sigaction(signal, &action, nullptr);
        sigaddset(&ends, signal);
    }
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t waitMask;
    sigprocmask(SIG_BLOCK, &ends, &waitMask);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
    {
        sigdelset(&waitMask, signal);
    }
    return waitMask;
}

/// Shows lines until the count is reached, the output is gone or the end is requested; lines that have
/// arrived by then are still shown.
bool showLines(KoLogView::LogSocket& socket, const Options& options, const sigset_t& waitMask)
{
    std::string datagram;
    unsigned long shown = 0;
    while (options.count == 0 || shown < options.count)
    {
        const KoLogView::LogSocket::Received received =
            sEndRequested != 0 ? socket.take(datagram) : socket.wait(datagram, waitMask);
        if (received == KoLogView::LogSocket::DATAGRAM)
        {
            shown += show(datagram, options.filter) ? 1U : 0U;
            if (std::fflush(stdout) != 0)
            {
                return false;
            }
        }
        else if (sEndRequested != 0)
        {
            break;
        }
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app("Shows the log lines of processes that log to a socket, one per line with its arrival time, "
                 "severity, program and process, module, code and text.");
    declareOptions(app, options);
    CLI11_PARSE(app, argc, argv);
    options.filter.leastSevere = *KoLogView::severityFromText(options.severityText);

    const sigset_t waitMask = blockTermination();
    KoLogView::LogSocket socket;
    const std::string error = socket.open(options.socketPath);
    if (!error.empty())
    {
        std::fprintf(stderr, "ko_logview: cannot listen at %s: %s\n", options.socketPath.c_str(),
                     error.c_str());
        return EXIT_FAILURE;
    }
    return showLines(socket, options, waitMask) ? EXIT_SUCCESS : EXIT_FAILURE;
}
