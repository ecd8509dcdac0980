#include "pf/platform/KoPlatformChannel.h"

#include <random>

#include <sys/resource.h>

#include "tests/support/ChannelPeers.h"

namespace
{

using namespace KoPlatform;
using namespace KoTest;

constexpr unsigned long long NS_PER_US = 1000ULL;

unsigned int randomBelow(unsigned int limit)
{
    static std::minstd_rand sRandom(std::random_device{}());
    return static_cast<unsigned int>(sRandom()) % limit;
}

void echo(int channel)
{
    for (std::string text;;)
        reply(receive(channel, text), text);
}

/// Kills the peer in a thread once it is ready and some time has passed, and sends until that fails. \return
/// the nanoseconds from the death to the failure.
unsigned long long sendUntilDeath(Server& server, std::atomic<bool>& ready, unsigned int us,
                                  const std::string& message)
{
    const Connection connection = server.connect();
    std::atomic<unsigned long long> death{0};
    std::thread killer(
        [&]
        {
            EXPECT_TRUE(waitUntil([&] { return ready.load(); }));
            delayUntil(monotonicNow() + us * NS_PER_US);
            death = monotonicNow();
            server.peer.kill();
        });
    while (connection.send(message) >= 0)
    {
    }
    const int error = errno;
    const unsigned long long end = monotonicNow();
    EXPECT_EQ(error, ESRCH);
    EXPECT_EQ(connection.pulse(1), -1);
    killer.join();
    return end - death;
}

/// The bound that holds for a client's error, and what was seen.
void expectAtOnce(unsigned long long slowestNs)
{
    EXPECT_LE(slowestNs, slowness() * 50000ULL * NS_PER_US);
    testing::Test::RecordProperty("slowestUs", std::to_string(slowestNs / NS_PER_US));
}

TEST(KoPlatformChannelProcess, TellsClientsAtOnceThatTheirServerDiedAtAnyPointOfAnExchange)
{
    const auto before = holdings();
    std::atomic<bool> ready{true};
    unsigned long long slowest = 0;
    for (unsigned int round = 0; round < (slowness() == 1 ? 200U : 20U); ++round)
    {
        Server server(IN_PROCESS, echo);
        const std::string message(randomBelow(round % 4U == 0U ? 1000000U : 100U), 'x');
        slowest = std::max(slowest, sendUntilDeath(server, ready, randomBelow(3000U) * slowness(), message));
    }
    expectAtOnce(slowest);
    EXPECT_EQ(holdings(), before);
}

TEST(KoPlatformChannelProcess, TellsClientsThatTheirServerDiedWhateverItLeftBehind)
{
    enum Habit
    {
        IGNORES,
        RECEIVES,
        LEAVES_A_CHILD,
        LEAVES_A_PROGRAM
    };
    for (const Habit habit : {IGNORES, RECEIVES, LEAVES_A_CHILD, LEAVES_A_PROGRAM})
    {
        std::atomic<bool>& ready = makeShared<std::atomic<bool>>();
        const auto serve = [&](int channel)
        {
            std::string text;
            EXPECT_TRUE(habit == IGNORES || receive(channel, text) > 0);
            // The child of _Fork has no chance to close anything; it outlives the server for some time.
            if (habit == LEAVES_A_CHILD && _Fork() == 0)
                _exit(static_cast<int>(sleep(2 * slowness())));
            if (habit == LEAVES_A_PROGRAM && fork() == 0)
                execlp("sleep", "sleep", std::to_string(2U * slowness()).c_str(), nullptr);
            ready = true;
            pause();
        };
        Server server(IN_PROCESS, serve);
        expectAtOnce(sendUntilDeath(server, ready, 20000U, "x"));
    }
}

TEST(KoPlatformChannelProcess, NoticesDeadClientsOnlyByFailedRepliesAndKeepsNothingOfThem)
{
    const Channel channel;
    const auto before = holdings();
    for (unsigned int round = 0; round < (slowness() == 1 ? 100U : 12U); ++round)
    {
        const std::string message(randomBelow(round % 4U == 0U ? 1000000U : 100U), 'x');
        Client client(IN_PROCESS, channel,
                      [&](const Connection& connection)
                      {
                          for (;;)
                              EXPECT_EQ(connection.send(message) + connection.pulse(1),
                                        static_cast<int>(message.size()));
                      });
        const unsigned int us = randomBelow(3000U) * slowness();
        std::thread killer(
            [&, us]
            {
                delayUntil(monotonicNow() + us * NS_PER_US);
                client.kill();
            });
        if (round % 2U == 0U)
            killer.join();
        std::string text;
        while (const int sender = std::max(receive(channel.id, text, 20), 0))
        {
            EXPECT_TRUE(text == message);
            if (round % 2U == 0U)
            {
                client.join();
                delay(1); // only an immediate reply may miss the client's end
            }
            EXPECT_TRUE(reply(sender, text) == (round % 2U == 0U ? -1 : 0) || errno == ESRCH);
        }
        if (killer.joinable())
            killer.join();
    }
    EXPECT_EQ(holdings(), before);
}

TEST(KoPlatformChannelProcess, DeliversWhatEndedClientsHadSentToAReceiveThatDoesNotWait)
{
    const Channel channel;
    for (const int priority : {10, 50, 20})
        Client(IN_PROCESS, channel,
               [&](const Connection& connection)
               { EXPECT_EQ(connection.pulse(1, priority) + connection.pulse(2, priority), 0) << errno; });
    for (const int priority : {50, 50, 20, 20, 10, 10})
    {
        _msg_info info{};
        EXPECT_EQ(KoChannelAccess::receiveMessageOrPulse(channel.id, nullptr, 0, 0, &info), 0) << errno;
        EXPECT_EQ(info.priority, priority);
    }
}

TEST(KoPlatformChannelProcess, KeepsTheOrderOfAPulseAndAMessageOfANewClientThatMayHaveNoLargeFiles)
{
    const Channel channel;
    const Client client(IN_PROCESS, channel,
                        [](const Connection& connection)
                        {
                            EXPECT_EQ(connection.pulse(1, -1), 0);
                            const rlimit limit{300000, 300000};
                            setrlimit(RLIMIT_FSIZE, &limit);
                            EXPECT_EQ(connection.send("message"), 7);
                            EXPECT_EQ(connection.send(std::string(1000000, 'x')), -1);
                            EXPECT_EQ(errno, EFBIG);
                        });
    delay(20);
    EXPECT_EQ(MsgReceive(channel.id, nullptr, 0, nullptr), 0);
    EXPECT_EQ(MsgReply(MsgReceive(channel.id, nullptr, 0, nullptr), 7, nullptr, 0), 0);
}

TEST(KoPlatformChannelProcess, LeavesNothingOfItToAForkedChild)
{
    const auto before = holdings();
    const Channel channel;
    const Connection connection(0, channel.id);
    Server server(IN_PROCESS, echo);
    const Connection other = server.connect();
    EXPECT_EQ(other.send("before"), 6);
    Peer child(IN_PROCESS,
               [&]
               {
                   EXPECT_EQ(holdings(), before);
                   for (const int id : {connection.id, other.id})
                   {
                       EXPECT_EQ(MsgSendPulse(id, 10, 1, 0), -1);
                       EXPECT_EQ(errno, EBADF);
                   }
                   EXPECT_EQ(ChannelDestroy(channel.id), -1);
                   Server own(IN_THREAD, echo);
                   EXPECT_EQ(own.connect().send("own"), 3);
                   _exit(testing::Test::HasFailure());
               });
    child.join();
    EXPECT_EQ(other.send("after"), 5);
    EXPECT_EQ(connection.pulse(1), 0);
    EXPECT_EQ(KoChannelAccess::receivePulse(channel.id, nullptr, 0, 1000), 0);
    server.peer.kill();
}

TEST(KoPlatformChannelProcess, RefusesProcessesOfOtherUsers)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become somebody else";
    const Channel channel;
    const Peer stranger(IN_PROCESS,
                        [&, server = getpid()]
                        {
                            EXPECT_EQ(setuid(65534), 0);
                            EXPECT_EQ(ConnectAttach(0U, server, channel.id, 0U, 0), -1);
                            EXPECT_EQ(errno, EPERM);
                        });
    std::string text;
    EXPECT_EQ(receive(channel.id, text, 50), -1);
}

} // namespace
