// Logical timers beside what a user would pick: a sorted map of expiries, the sources of a GLib main loop,
// Qt's timers. The argument is the number of timers that are registered.
#include "pf/oswrapper/CLogicalTimer.h"
#include "pf/oswrapper/CLogicalTimerManager.h"
#include "pf/platform/KoPlatformClock.h"

#include <chrono>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#ifdef KO_BENCH_GLIB
#include <glib.h>
#endif
#ifdef KO_BENCH_QT
#include <QCoreApplication>
#include <QTimerEvent>
#endif

namespace
{

constexpr unsigned int NEWEST_MS = 3600000; // later than all that are registered
constexpr int DUE_COUNT = 10000;

int sFired = 0;

/// What the registered timers wait for: any time within the last half hour before NEWEST_MS.
unsigned int someMs()
{
    static std::mt19937 sEngine(1);
    return NEWEST_MS / 2 + static_cast<unsigned int>(sEngine() % (NEWEST_MS / 2));
}

/// Periods of the due timers: all alike, or any up to a second.
unsigned int periodMs(benchmark::State& state)
{
    static std::mt19937 sEngine(1);
    return state.range(0) == 0 ? 1U : 1U + static_cast<unsigned int>(sEngine() % 1000U);
}

class Timer : public CLogicalTimer
{
public:
    using CLogicalTimer::CLogicalTimer;
    void onTimeout() override { ++sFired; }
};

void startStopLogicalTimer(benchmark::State& state)
{
    CLogicalTimerManager manager(-1, false);
    std::vector<std::unique_ptr<Timer>> timers;
    for (int i = 0; i < state.range(0); ++i)
    {
        timers.push_back(std::make_unique<Timer>(manager));
        timers.back()->start(someMs(), true);
    }
    Timer timer(manager);
    for (auto _ : state)
    {
        timer.start(NEWEST_MS, true);
        timer.stop();
    }
}
BENCHMARK(startStopLogicalTimer)->Arg(10)->Arg(1000)->Arg(10000);

using Clock = std::chrono::steady_clock;
using TimerMap = std::multimap<Clock::time_point, int*>;

void startStopInMultimap(benchmark::State& state)
{
    TimerMap timers;
    for (int i = 0; i < state.range(0); ++i)
        timers.emplace(Clock::now() + std::chrono::milliseconds(someMs()), &sFired);
    for (auto _ : state)
    {
        const auto place = timers.emplace(Clock::now() + std::chrono::milliseconds(NEWEST_MS), &sFired);
        benchmark::DoNotOptimize(timers);
        timers.erase(place);
    }
}
BENCHMARK(startStopInMultimap)->Arg(10)->Arg(1000)->Arg(10000);

unsigned long long sNow = 0;

/// Of each round of 10,000 due timers only the dispatch is timed, with the return of each to its next place.
/// With different periods the timers are started anew for each round, one after the other, so that their next
/// expiries come in another order.
template <class StartAll, class Dispatch>
void dispatchRounds(benchmark::State& state, StartAll startAll, Dispatch dispatch)
{
    startAll();
    for (auto _ : state)
    {
        if (state.range(0) != 0)
        {
            state.PauseTiming();
            startAll();
            state.ResumeTiming();
        }
        sNow += 1000000ULL * (state.range(0) == 0 ? 1U : 2000U);
        dispatch();
    }
    state.SetItemsProcessed(state.iterations() * DUE_COUNT);
}

void dispatchLogicalTimers(benchmark::State& state)
{
    sNow = KoPlatform::monotonicNow();
    KoPlatform::setClockSource([] { return sNow; });
    {
        CLogicalTimerManager manager(-1, false);
        std::vector<std::unique_ptr<Timer>> timers(DUE_COUNT);
        const auto startAll = [&]
        {
            for (auto& timer : timers)
            {
                timer = std::make_unique<Timer>(manager);
                sNow += state.range(0) == 0 ? 0U : 10000U;
                timer->start(periodMs(state), false);
            }
        };
        dispatchRounds(state, startAll, [&] { manager.handleSignalledTimer(); });
    }
    KoPlatform::setClockSource(nullptr);
}
BENCHMARK(dispatchLogicalTimers)->Arg(0)->Arg(1);

struct Entry
{
    unsigned long long periodNs;
    int* fired;
};

void dispatchMultimap(benchmark::State& state)
{
    std::multimap<unsigned long long, Entry> timers;
    const auto startAll = [&]
    {
        timers.clear();
        for (int i = 0; i < DUE_COUNT; ++i)
        {
            const unsigned long long periodNs = periodMs(state) * 1000000ULL;
            sNow += state.range(0) == 0 ? 0U : 10000U;
            timers.emplace(sNow + periodNs, Entry{periodNs, &sFired});
        }
    };
    const auto dispatch = [&]
    {
        std::multimap<unsigned long long, Entry> fired;
        while (!timers.empty() && timers.begin()->first <= sNow)
        {
            auto node = timers.extract(timers.begin());
            node.key() += node.mapped().periodNs;
            ++*node.mapped().fired;
            fired.insert(fired.end(), std::move(node));
        }
        timers.merge(fired);
    };
    dispatchRounds(state, startAll, dispatch);
}
BENCHMARK(dispatchMultimap)->Arg(0)->Arg(1);

#ifdef KO_BENCH_GLIB
gboolean fire(gpointer fired)
{
    ++*static_cast<int*>(fired);
    return G_SOURCE_CONTINUE;
}

GSource* attach(GMainContext* context, unsigned int ms)
{
    GSource* const source = g_timeout_source_new(ms);
    g_source_set_callback(source, fire, &sFired, nullptr);
    g_source_attach(source, context);
    g_source_unref(source);
    return source;
}

void startStopInGlib(benchmark::State& state)
{
    GMainContext* const context = g_main_context_new();
    for (int i = 0; i < state.range(0); ++i)
        attach(context, someMs());
    for (auto _ : state)
        g_source_destroy(attach(context, NEWEST_MS));
    g_main_context_unref(context);
}
BENCHMARK(startStopInGlib)->Arg(10)->Arg(1000)->Arg(10000);

/// A period of 0 is due in every round.
void dispatchGlib(benchmark::State& state)
{
    GMainContext* const context = g_main_context_new();
    for (int i = 0; i < DUE_COUNT; ++i)
        attach(context, 0);
    for (auto _ : state)
        g_main_context_iteration(context, FALSE);
    g_main_context_unref(context);
    state.SetItemsProcessed(state.iterations() * DUE_COUNT);
}
BENCHMARK(dispatchGlib);
#endif

#ifdef KO_BENCH_QT
class QtTimers : public QObject
{
public:
    QtTimers()
    {
        static int sCount = 0;
        static QCoreApplication sApplication(sCount, nullptr);
    }
    void timerEvent(QTimerEvent*) override { ++sFired; }
};

void startStopInQt(benchmark::State& state)
{
    QtTimers timers;
    for (int i = 0; i < state.range(0); ++i)
        timers.startTimer(static_cast<int>(someMs()), Qt::PreciseTimer);
    for (auto _ : state)
        timers.killTimer(timers.startTimer(static_cast<int>(NEWEST_MS), Qt::PreciseTimer));
}
BENCHMARK(startStopInQt)->Arg(10)->Arg(1000)->Arg(10000);

void dispatchQt(benchmark::State& state)
{
    QtTimers timers;
    for (int i = 0; i < DUE_COUNT; ++i)
        timers.startTimer(0);
    for (auto _ : state)
        QCoreApplication::processEvents();
    state.SetItemsProcessed(state.iterations() * DUE_COUNT);
}
BENCHMARK(dispatchQt);
#endif

} // namespace

BENCHMARK_MAIN();
