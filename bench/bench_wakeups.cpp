// Wake-ups against what a user would pick instead: a pulse against a bare eventfd, read or polled by a loop;
// a trigger against the C library's semaphore.

#include "bench/BenchSupport.h"
#include "pf/oswrapper/KoChannelAccess.h"
#include "pf/oswrapper/KoTriggerAccess.h"
#include "pf/platform/KoPlatformChannel.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <string>
#include <thread>

#include <semaphore.h>
#include <sys/epoll.h>

namespace
{

using namespace KoBench;

/// A waiting loop that is woken by pulses.
class PulseLoop
{
public:
    PulseLoop()
        : m_channel(KoPlatform::ChannelCreate(0U))
    {
        require(KoChannelAccess::attach(m_connection, m_channel, 0, 0U), "attach");
    }
    ~PulseLoop()
    {
        KoPlatform::ConnectDetach(m_connection);
        KoPlatform::ChannelDestroy(m_channel);
    }
    PulseLoop(const PulseLoop&) = delete;
    PulseLoop& operator=(const PulseLoop&) = delete;

    void ring() const { require(KoPlatform::MsgSendPulse(m_connection, 10, 1, 0) == 0, "MsgSendPulse"); }
    void await() const
    {
        _pulse pulse = {};
        require(KoChannelAccess::receivePulse(m_channel, &pulse, sizeof(pulse), -1) == 0, "receivePulse");
    }

private:
    int m_channel;
    int m_connection = -1;
};

/// A waiting loop on an eventfd, as loops with several sources and a time limit wait.
class EpollLoop
{
public:
    EpollLoop()
        : m_epoll(epoll_create1(0))
    {
        epoll_event event = {};
        event.events = EPOLLIN | EPOLLET;
        require(epoll_ctl(m_epoll, EPOLL_CTL_ADD, m_bell.descriptor(), &event) == 0, "epoll_ctl");
    }
    ~EpollLoop() { close(m_epoll); }
    EpollLoop(const EpollLoop&) = delete;
    EpollLoop& operator=(const EpollLoop&) = delete;

    void ring() const { m_bell.ring(); }
    void await() const
    {
        epoll_event event = {};
        require(epoll_wait(m_epoll, &event, 1, -1) == 1, "epoll_wait");
    }

private:
    const Bell m_bell;
    int m_epoll;
};

class TriggerBell
{
public:
    TriggerBell() { KoTriggerAccess::create(m_trigger); }
    ~TriggerBell() { KoTriggerAccess::destroy(m_trigger); }
    TriggerBell(const TriggerBell&) = delete;
    TriggerBell& operator=(const TriggerBell&) = delete;

    void ring() { KoTriggerAccess::signal(m_trigger); }
    void await() { KoTriggerAccess::wait(m_trigger); }

private:
    KoOSTypes::TRIGGER_HANDLE m_trigger = {};
};

class SemaphoreBell
{
public:
    SemaphoreBell() { sem_init(&m_semaphore, 0, 0U); }
    ~SemaphoreBell() { sem_destroy(&m_semaphore); }
    SemaphoreBell(const SemaphoreBell&) = delete;
    SemaphoreBell& operator=(const SemaphoreBell&) = delete;

    void ring() { sem_post(&m_semaphore); }
    void await() { sem_wait(&m_semaphore); }

private:
    sem_t m_semaphore;
};

/// Two threads wake each other in turns.
template <class SomeBell>
void wakeInTurns(benchmark::State& state, bool pin)
{
    const Pinned pinned(pin);
    SomeBell there;
    SomeBell back;
    std::atomic<bool> ends{false};
    std::thread partner(
        [&]
        {
            while (!ends.load(std::memory_order_relaxed))
            {
                there.await();
                back.ring();
            }
        });
    for (auto _ : state)
    {
        there.ring();
        back.await();
    }
    ends = true;
    there.ring();
    partner.join();
}

template <class SomeBell>
void wakeNobody(benchmark::State& state)
{
    SomeBell bell;
    for (auto _ : state)
    {
        bell.ring();
        bell.await();
    }
}

template <class SomeBell>
void registerBell(const std::string& who)
{
    for (const bool pin : {true, false})
    {
        const std::string name = "wakeInTurns/" + std::string(pin ? "pinned/" : "anywhere/") + who;
        benchmark::RegisterBenchmark(name.c_str(), &wakeInTurns<SomeBell>, pin)->UseRealTime();
    }
}

} // namespace

int main(int argc, char** argv)
{
    registerBell<PulseLoop>("pulse");
    registerBell<Bell>("eventfd");
    registerBell<EpollLoop>("epoll");
    registerBell<TriggerBell>("trigger");
    registerBell<SemaphoreBell>("semaphore");
    benchmark::RegisterBenchmark("wakeNobody/trigger", &wakeNobody<TriggerBell>);
    benchmark::RegisterBenchmark("wakeNobody/semaphore", &wakeNobody<SemaphoreBell>);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return EXIT_SUCCESS;
}
