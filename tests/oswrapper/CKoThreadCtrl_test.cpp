#include "pf/oswrapper/CKoThreadCtrl.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/CKoCriticalSection.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "tests/platform/LockTestSupport.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/SignalStorm.h"

static thread_local bool tRefuseThreads = false;

#ifndef KO_TEST_SANITIZER
extern "C" int pthread_create(pthread_t* handle, const pthread_attr_t* attributes, void* (*routine)(void*),
                              void* argument) noexcept
{
    static const auto sReal = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return tRefuseThreads ? EAGAIN : sReal(handle, attributes, routine, argument);
}
#endif

namespace
{

using Ctrl = CKoThreadCtrl;
using KoTest::waitUntil;

class Body final : public CKoThreadCtrl::IRunnable
{
public:
    explicit Body(std::function<void()> function)
        : m_function(std::move(function))
    {
    }
    void run() override { m_function(); }
    int start(bool detached = false, int priority = Ctrl::INHERITPRIORITY, int stackSize = 1)
    {
        return Ctrl::startThread(*this, detached, priority, stackSize);
    }

private:
    const std::function<void()> m_function;
};

/// Keeps threads until it is opened.
class Gate
{
public:
    Gate() { m_section.lock(); }
    void open() { m_section.unlock(); }
    void pass()
    {
        m_section.lock();
        m_section.unlock();
    }

private:
    CKoCriticalSection m_section;
};

long long linesOf(const char* path)
{
    std::ifstream file(path);
    return std::count(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>(), '\n');
}

TEST(CKoThreadCtrl, JoinsWithAndWithoutALimitThatInterruptionsDoNotExtend)
{
    std::atomic<bool> end{false};
    Body body([&] { waitUntil([&] { return KoOperatingSystem::sleepMs(1), end.load(); }); });
    const KoTest::SignalStorm storm(KoTest::SignalStorm::WHOLE_PROCESS, 100);
    const int tid = body.start();
    ASSERT_GT(tid, 1);
    for (const unsigned int timeoutMs : {50U, 1U})
    {
        const KoTest::Stopwatch watch;
        EXPECT_EQ(Ctrl::join(tid, static_cast<int>(timeoutMs)), -2);
        EXPECT_TRUE(watch.isWithin(timeoutMs, 2000));
    }
    end = true;
    EXPECT_EQ(Ctrl::join(tid, 0), 0);
    EXPECT_EQ(Ctrl::join(tid, -1), -1);
    EXPECT_GT(storm.count(), 0U);
}

TEST(CKoThreadCtrl, NumbersThreadsAndLetsTheNumbersGo)
{
    std::atomic<int> seen{0};
    Body body([&] { seen = Ctrl::getCurrentThreadId(); });
    const int first = body.start();
    for (int i = 0; i < 3000 / static_cast<int>(KoTest::slowness()); ++i)
    {
        ASSERT_EQ(Ctrl::join(first, -1), 0);
        ASSERT_EQ(seen, first);
        ASSERT_EQ(body.start(), first);
    }
    EXPECT_EQ(Ctrl::join(first, -1), 0);
    for (int i = 0; i < 20; ++i)
    {
        EXPECT_EQ(body.start(true, Ctrl::PRIORITY_LOWEST), first);
        ASSERT_TRUE(waitUntil([&] { return Ctrl::getPriority(first) == -1; }));
    }
    Gate gate;
    Body waiting([&] { gate.pass(); });
    std::set<int> numbers;
    for (int i = 0; i < 100; ++i)
        numbers.insert(waiting.start());
    EXPECT_EQ(numbers.size(), 100U);
    EXPECT_EQ(*numbers.rbegin() - *numbers.begin(), 99);
    gate.open();
    for (const int tid : numbers)
        EXPECT_EQ(Ctrl::join(tid, -1), 0);
}

TEST(CKoThreadCtrl, RefusesWhatCannotBeJoinedOrReached)
{
    Gate gate;
    Body waiting([&] { gate.pass(); });
    const int joinable = waiting.start();
    const int detached = waiting.start(true);
    Body joining([&] { waitUntil([&] { return Ctrl::join(joinable, -1) == 0; }); });
    const int joiner = joining.start();
    std::atomic<int> foreign{0};
    std::thread other(
        [&]
        {
            foreign = Ctrl::getCurrentThreadId();
            gate.pass();
        });
    ASSERT_TRUE(waitUntil([&] { return foreign != 0 && Ctrl::join(joinable, 1) == -1; }));
    EXPECT_EQ(KoPlatform::ThreadJoin_r(joinable, nullptr), EBUSY);
    const struct
    {
        int tid;
        int error;
    } cases[] = {{detached, EINVAL}, {foreign, EINVAL}, {1, EDEADLK},
                 {999, ESRCH},       {-1, ESRCH},       {1 << 20, ESRCH}};
    for (const auto& test : cases)
    {
        EXPECT_EQ(KoPlatform::ThreadJoin_r(test.tid, nullptr), test.error) << test.tid;
        EXPECT_EQ(Ctrl::getPriority(test.tid) != -1, test.error != ESRCH) << test.tid;
        EXPECT_EQ(Ctrl::setThreadName(test.tid, "test"), test.error != ESRCH) << test.tid;
    }
    EXPECT_EQ(Ctrl::terminate(999), -1);
    gate.open();
    other.join();
    EXPECT_EQ(Ctrl::join(joiner, -1), 0);
    EXPECT_TRUE(waitUntil([&] { return Ctrl::getPriority(detached) == -1; }));
}

TEST(CKoThreadCtrl, SchedulesAndNamesThreads)
{
    Gate gate;
    std::atomic<unsigned int> kernelId{0U};
    Body body(
        [&]
        {
            EXPECT_EQ(getpriority(PRIO_PROCESS, 0), 8); // before anything else
            kernelId = KoPlatform::kernelThreadSelf();
            gate.pass();
        });
    const int tid = body.start(false, Ctrl::PRIORITY_BELOW_NORMAL);
    EXPECT_TRUE(Ctrl::setThreadName(tid, "Aufz\xc3\xa4hlung \xe2\x82\xac\xe2\x82\xac"));
    EXPECT_FALSE(Ctrl::setThreadName(tid, nullptr));
    EXPECT_FALSE(Ctrl::setThreadName(tid, std::string(100, 'x').c_str()));
    ASSERT_TRUE(waitUntil([&] { return kernelId != 0U; }));
    int previous = Ctrl::PRIORITY_BELOW_NORMAL;
    for (const int priority : {Ctrl::PRIORITY_LOWEST, Ctrl::PRIORITY_HIGHEST, Ctrl::PRIORITY_ABOVE_NORMAL})
    {
        EXPECT_EQ(Ctrl::setPriority(tid, priority), previous);
        EXPECT_EQ(Ctrl::getPriority(tid), priority);
        previous = priority;
    }
    for (const int refused : {0, 100})
        EXPECT_EQ(Ctrl::setPriority(tid, refused), previous);
    std::string name;
    std::getline(std::ifstream("/proc/self/task/" + std::to_string(kernelId) + "/comm"), name);
    EXPECT_EQ(name, "Aufz\xc3\xa4hlung \xe2\x82\xac");
    gate.open();
    EXPECT_EQ(Ctrl::join(tid, -1), 0);
    EXPECT_EQ(Ctrl::setPriority(tid, Ctrl::PRIORITY_NORMAL), -1);
}

std::atomic<int> sThreadLocalsDestroyed{0};
struct ThreadLocal
{
    int use = 0;
    ~ThreadLocal()
    {
        const int tid = Ctrl::getCurrentThreadId();
        std::thread([&] { EXPECT_EQ(Ctrl::terminate(tid), -1); }).join();
        KoOperatingSystem::sleepMs(1); // may still wait
        ++sThreadLocalsDestroyed;
    }
};
thread_local ThreadLocal tLocal;

/// Ends threads soon after they have called `wait`, at other moments of it every time.
void endWaiters(const char* what, const std::function<void()>& wait, std::atomic<bool>& computing)
{
    for (unsigned int round = 0; round < 4; ++round)
    {
        struct Frame
        {
            std::atomic<bool> gone{false};
        } entered, unwound;
        Body body(
            [&]
            {
                const struct Unwinding
                {
                    std::atomic<bool>& done;
                    ~Unwinding() { done = true; }
                } frame{unwound.gone};
                tLocal.use = 1;
                entered.gone = true;
                wait();
            });
        const int destroyed = sThreadLocalsDestroyed;
        computing = true;
        const int tid = body.start();
        ASSERT_TRUE(waitUntil([&] { return entered.gone.load(); }));
        usleep(round * round * 100);
        EXPECT_EQ(Ctrl::terminate(tid), 0) << what;
        computing = false;
        ASSERT_EQ(Ctrl::join(tid, 20000), 0) << what;
        EXPECT_FALSE(unwound.gone) << what;
        EXPECT_EQ(sThreadLocalsDestroyed, destroyed + 1) << what;
    }
}

TEST(CKoThreadCtrl, EndsThreadsInEveryKindOfWaitWithoutUnwindingThem)
{
    constexpr int LONG_MS = 1000000;
    _sync held = KoTest::makeMutex();
    _sync mutex = KoTest::makeMutex();
    _sync condition{};
    _sync semaphore{};
    KoPlatform::sem_init(&semaphore, 0, 0U);
    KoTest::Holder holder(held);
    Body sleeping([] { KoOperatingSystem::sleepMs(LONG_MS); });
    const int sleeper = sleeping.start();
    std::atomic<bool> computing{true};
    const auto awaitCondition = [&]
    {
        KoPlatform::pthread_mutex_lock(&mutex);
        KoPlatform::pthread_cond_wait(&condition, &mutex);
    };
    const auto compute = [&]
    {
        while (computing)
            ++tLocal.use;
        KoOperatingSystem::sleepMs(LONG_MS);
    };
    endWaiters(
        "sleep", [] { KoOperatingSystem::sleepMs(LONG_MS); }, computing);
    endWaiters(
        "join", [&] { Ctrl::join(sleeper, -1); }, computing);
    endWaiters(
        "timed join", [&] { Ctrl::join(sleeper, LONG_MS); }, computing);
    endWaiters(
        "mutex", [&] { KoPlatform::pthread_mutex_lock(&held); }, computing);
    endWaiters("condition", awaitCondition, computing);
    endWaiters(
        "semaphore", [&] { KoPlatform::sem_wait(&semaphore); }, computing);
    endWaiters("computation, then sleep", compute, computing);
    // Nobody has left anything behind.
    EXPECT_EQ(KoPlatform::pthread_cond_destroy(&condition), 0);
    EXPECT_EQ(KoPlatform::pthread_mutex_trylock(&mutex), 0);
    EXPECT_EQ(semaphore.owner, 0U);
    EXPECT_EQ(Ctrl::terminate(sleeper), 0);
    EXPECT_EQ(Ctrl::join(sleeper, -1), 0);
}

TEST(CKoThreadCtrl, LosesNoWakeUpToThreadsThatAreEnded)
{
    constexpr int UNITS = 400;
    _sync mutex = KoTest::makeMutex();
    _sync condition{};
    int units = 0;
    int taken = 0;
    const auto add = [&](int& counter)
    {
        KoPlatform::pthread_mutex_lock(&mutex);
        ++counter;
        KoPlatform::pthread_mutex_unlock(&mutex);
    };
    Body consuming(
        [&]
        {
            for (;; KoPlatform::pthread_mutex_unlock(&mutex))
            {
                KoPlatform::pthread_mutex_lock(&mutex);
                while (units == taken)
                    KoPlatform::pthread_cond_wait(&condition, &mutex);
                ++taken;
            }
        });
    int threads[8];
    std::generate(std::begin(threads), std::end(threads), [&] { return consuming.start(); });
    for (int i = 0; i < UNITS; ++i)
    {
        add(units);
        KoPlatform::pthread_cond_signal(&condition);
        EXPECT_EQ(Ctrl::terminate(threads[i % 8]), 0);
        EXPECT_EQ(Ctrl::join(threads[i % 8], -1), 0);
        threads[i % 8] = consuming.start();
    }
    const auto allTaken = [&]
    {
        int none = 0;
        KoPlatform::pthread_mutex_lock(&mutex);
        none = units - taken;
        KoPlatform::pthread_mutex_unlock(&mutex);
        return none == 0;
    };
    EXPECT_TRUE(waitUntil(allTaken));
    for (const int tid : threads)
        EXPECT_TRUE(Ctrl::terminate(tid) == 0 && Ctrl::join(tid, -1) == 0);
    EXPECT_EQ(KoPlatform::pthread_cond_destroy(&condition), 0);
}

TEST(CKoThreadCtrl, EndingAThreadDoesNotWaitForTheNextOneOfItsNumber)
{
    Body sleeping([] { KoOperatingSystem::sleepMs(100000); });
    for (int round = 0; round < 100; ++round)
    {
        const int tid = sleeping.start(true);
        std::thread ending([&] { EXPECT_EQ(Ctrl::terminate(tid), 0); });
        std::vector<int> next;
        do
            next.push_back(sleeping.start());
        while (next.back() != tid && next.size() < 8U);
        ending.join();
        for (const int each : next)
            EXPECT_TRUE(Ctrl::terminate(each) == 0 && Ctrl::join(each, -1) == 0);
    }
}

TEST(CKoThreadCtrl, EndsTheCallingThreadWhoeverStartedIt)
{
    Body own([] { KoPlatform::ThreadDestroy(0, -1, &sThreadLocalsDestroyed); });
    void* value = nullptr;
    EXPECT_EQ(KoPlatform::ThreadJoin_r(own.start(), &value), 0);
    EXPECT_EQ(value, &sThreadLocalsDestroyed);
    Body leaving(
        []
        {
            tLocal.use = 1;
            pthread_exit(nullptr);
        });
    EXPECT_EQ(Ctrl::join(leaving.start(), -1), 0);
    // The main thread goes, and the process goes on.
    const auto leaveMainThread = []
    {
        static Body sLast([] { _exit(waitUntil([] { return Ctrl::terminate(1) == -1; }) ? 5 : 1); });
        sLast.start(true);
        Ctrl::terminate();
        return 0;
    };
    EXPECT_EQ(KoTest::ChildProcess::run(leaveMainThread).exitStatus, 5);
}

TEST(CKoThreadCtrl, LeavesNothingBehindWhenTheHostRefusesAThread)
{
    const KoTest::AssertionCounter assertions(1U);
    Body body([] { doAssert(__LINE__, "CKoThreadCtrl_test", "the smallest stack is enough for this"); });
    const int next = body.start();
    EXPECT_EQ(Ctrl::join(next, -1), 0);
    const long long before = linesOf("/proc/self/maps");
    EXPECT_EQ(body.start(false, Ctrl::INHERITPRIORITY, -1), 0);
    tRefuseThreads = KoTest::FaultInjection::isAvailable();
    for (int i = 0; tRefuseThreads && i < 100; ++i)
        EXPECT_EQ(body.start(i % 2 == 0), 0);
    tRefuseThreads = false;
    EXPECT_EQ(linesOf("/proc/self/maps"), before);
    Body idle([] {});
    EXPECT_EQ(idle.start(), next);
    EXPECT_EQ(Ctrl::join(next, -1), 0);
}

struct AtExit
{
    std::function<void()> action;
    ~AtExit()
    {
        if (action)
            action();
    }
} sAtExit;

TEST(CKoThreadCtrl, StartsOverInAForkedChild)
{
    Gate gate;
    Body waiting([&] { gate.pass(); });
    const int tid = waiting.start();
    const auto inChild = [&]
    {
        EXPECT_EQ(Ctrl::getCurrentThreadId(), 1);
        EXPECT_EQ(Ctrl::getPriority(1), Ctrl::PRIORITY_ABOVE_NORMAL);
        EXPECT_TRUE(Ctrl::join(tid, -1) == -1 && Ctrl::terminate(tid) == -1);
#ifndef KO_TEST_SANITIZER // which cannot start threads in a child of several
        EXPECT_EQ((new Body([] { KoOperatingSystem::sleepMs(1); }))->start(), 2);
        // Static objects that are older than any thread may join threads.
        sAtExit.action = [] { _exit(Ctrl::join(2, -1) == 0 && !testing::Test::HasFailure() ? 3 : 1); };
        std::exit(1);
#endif
        return 3;
    };
    Body sleeping([] { KoOperatingSystem::sleepMs(100000); });
    Body last(
        [&] { _exit(waitUntil([] { return !Ctrl::setThreadName(1, ""); }) ? Ctrl::terminate(tid + 1) : 1); });
    Body forking(
        [&]
        {
            EXPECT_EQ(KoTest::ChildProcess::run(inChild).exitStatus, 3);
#ifndef KO_TEST_SANITIZER
            // Its one thread returns from here, beside another one with the number that it had.
            int status = 0;
            const pid_t child = fork();
            if (child != 0)
                EXPECT_TRUE(waitpid(child, &status, 0) == child && status == 0);
            else
                for (Body* const body : {&sleeping, &sleeping, &last})
                    body->start(true);
#endif
        });
    EXPECT_EQ(Ctrl::join(forking.start(false, Ctrl::PRIORITY_ABOVE_NORMAL), -1), 0);
    gate.open();
    EXPECT_EQ(Ctrl::join(tid, -1), 0);
}

} // namespace
