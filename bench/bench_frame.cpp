// Memory and the report path, each beside the plain calls that a process would make without the library.

#include "pf/oswrapper/KoMemUtilities.h"
#include "pf/oswrapper/KoMemory.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/util/KoBacktrace.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace
{

void koMemory(benchmark::State& state)
{
    const unsigned int size = static_cast<unsigned int>(state.range(0));
    for (auto _ : state)
    {
        void* block = KoMemory::alloc(size);
        benchmark::DoNotOptimize(block);
        KoMemory::release(block);
    }
}

void mallocFree(benchmark::State& state)
{
    const std::size_t size = static_cast<std::size_t>(state.range(0));
    for (auto _ : state)
    {
        void* block = std::malloc(size);
        benchmark::DoNotOptimize(block);
        std::free(block);
    }
}

/// As a program uses memory: many blocks at a time, released in another order.
template <void* (*Allocate)(unsigned int), void (*Release)(void*)>
void manyBlocks(benchmark::State& state)
{
    const unsigned int size = static_cast<unsigned int>(state.range(0));
    std::vector<void*> blocks(256);
    for (auto _ : state)
    {
        for (void*& block : blocks)
        {
            block = Allocate(size);
        }
        for (std::size_t i = 0; i < blocks.size(); ++i)
        {
            Release(blocks[(i * 37) % blocks.size()]);
        }
    }
    state.SetItemsProcessed(state.iterations() * 256);
}

void* allocatePlain(unsigned int size)
{
    return std::malloc(size);
}

void releasePlain(void* block)
{
    std::free(block);
}

/// A logger that takes everything, and a connection to it for the calls made without the library.
class Logger
{
public:
    static constexpr int BATCH = 8; ///< fits into the queue of a datagram socket

    Logger()
        : m_path("/tmp/ko_bench_log_" + std::to_string(getpid()))
        , m_receiver(::socket(AF_UNIX, SOCK_DGRAM, 0))
        , m_sender(::socket(AF_UNIX, SOCK_DGRAM, 0))
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, m_path.c_str());
        if (::bind(m_receiver, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
            ::connect(m_sender, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0)
        {
            std::perror("logger");
            std::exit(EXIT_FAILURE);
        }
        ::setenv("KO_PLATFORM_LOG", m_path.c_str(), 1);
    }

    ~Logger()
    {
        ::close(m_receiver);
        ::close(m_sender);
        ::unlink(m_path.c_str());
    }

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    int sender() const { return m_sender; }

    void drain() const
    {
        char text[2048];
        while (::recv(m_receiver, text, sizeof(text), MSG_DONTWAIT) > 0)
        {
        }
    }

private:
    std::string m_path;
    int m_receiver;
    int m_sender;
};

const Logger& logger()
{
    static const Logger instance;
    return instance;
}

/// Measures the senders alone: the queue is emptied outside the measured time.
template <class Send>
void measureLines(benchmark::State& state, Send send)
{
    const Logger& receiver = logger();
    for (auto _ : state)
    {
        const auto begin = std::chrono::steady_clock::now();
        for (int i = 0; i < Logger::BATCH; ++i)
        {
            send(receiver, i);
        }
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(elapsed.count());
        receiver.drain();
    }
    state.SetItemsProcessed(state.iterations() * Logger::BATCH);
}

void koSyslogLine(benchmark::State& state)
{
    measureLines(
        state, [](const Logger&, int number)
        { KoSyslog::logMsg(0, KoSyslog::Info, "%s:%u: state changed to %d", "CKoBench", 42U, number); });
}

void snprintfAndSend(benchmark::State& state)
{
    measureLines(state,
                 [](const Logger& receiver, int number)
                 {
                     char line[1025];
                     const int length = std::snprintf(line, sizeof(line),
                                                      "<%d>%s[%d]: (%d) pid %d: %s:%u: state changed to %d",
                                                      13, program_invocation_short_name, ::getpid(), 10000,
                                                      ::getpid(), "CKoBench", 42U, number);
                     ::send(receiver.sender(), line, static_cast<std::size_t>(length),
                            MSG_DONTWAIT | MSG_NOSIGNAL);
                 });
}

void koFill8(benchmark::State& state)
{
    std::vector<unsigned char> bytes(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
    {
        KoMemUtilities::memFillUInt8(bytes.data(), static_cast<unsigned int>(bytes.size()), 0x5A);
        benchmark::ClobberMemory();
    }
}

void stdFill8(benchmark::State& state)
{
    std::vector<unsigned char> bytes(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
    {
        std::fill(bytes.begin(), bytes.end(), static_cast<unsigned char>(0x5A));
        benchmark::ClobberMemory();
    }
}

void koBacktrace(benchmark::State& state)
{
    for (auto _ : state)
    {
        KoBacktrace::doBacktraceNoAlloc("bench", "/tmp", "bench", false);
    }
    ::unlink(("/tmp/PID" + std::to_string(getpid()) + ".bench").c_str());
}

BENCHMARK(koMemory)->RangeMultiplier(4)->Range(16, 4096);
BENCHMARK(mallocFree)->RangeMultiplier(4)->Range(16, 4096);
BENCHMARK_TEMPLATE(manyBlocks, KoMemory::alloc, releaseMemory)->Arg(16)->Arg(256);
BENCHMARK_TEMPLATE(manyBlocks, allocatePlain, releasePlain)->Arg(16)->Arg(256);
BENCHMARK(koSyslogLine)->UseManualTime();
BENCHMARK(snprintfAndSend)->UseManualTime();
BENCHMARK(koFill8)->Arg(64)->Arg(4096);
BENCHMARK(stdFill8)->Arg(64)->Arg(4096);
BENCHMARK(koBacktrace);

} // namespace

BENCHMARK_MAIN();
