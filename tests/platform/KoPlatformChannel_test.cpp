#include "pf/platform/KoPlatformChannel.h"

#include <climits>
#include <list>
#include <mutex>
#include <random>
#include <tuple>

#include "pf/platform/KoPlatformThread.h"
#include "tests/support/ChannelPeers.h"
#include "tests/support/SignalStorm.h"

namespace
{

using namespace KoPlatform;
using namespace KoTest;

/// Between two threads of this process, and between it and a child.
class KoPlatformChannel : public testing::TestWithParam<Place>
{
};

INSTANTIATE_TEST_SUITE_P(Between, KoPlatformChannel, testing::Values(IN_THREAD, IN_PROCESS),
                         [](const auto& place)
                         { return place.param == IN_THREAD ? "Threads" : "Processes"; });

/// What a buffer holds that had room for so many of these bytes.
std::string pattern(std::size_t size, unsigned int seed, std::size_t room)
{
    std::string bytes(room, '\0');
    for (std::size_t i = 0; i < std::min(size, room); ++i)
        bytes[i] = static_cast<char>((i * 2654435761U + seed) >> 13U);
    return bytes;
}

/// Parts of random sizes, some of them empty.
std::vector<iovec> split(std::string& bytes, unsigned int seed)
{
    std::minstd_rand random(seed + 1U);
    std::vector<iovec> parts;
    for (std::size_t done = 0; done < bytes.size(); done += parts.back().iov_len)
    {
        const std::size_t size = random() % 3U == 0U ? 0U : random() % (bytes.size() / 2U + 2U);
        parts.push_back(iovec{&bytes[done], std::min(size, bytes.size() - done)});
    }
    return parts;
}

int count(const std::vector<iovec>& parts)
{
    return static_cast<int>(parts.size());
}

struct Row
{
    std::size_t message, room, reply, replyRoom;
};

constexpr std::size_t MIB = 1U << 20U;
constexpr Row ROWS[] = {{0, 0, 0, 0},
                        {1, 1, 1, 1},
                        {0, 10, 10, 0},
                        {100, 10, 50, 7},
                        {100, 0, 50, 0},
                        {4095, 4096, 4097, 4098},
                        {65536, 65535, 65537, 65537},
                        {MIB + 1, MIB + 1, 3 * MIB, 3 * MIB},
                        {12 * MIB + 5, 12 * MIB, 5, 5},
                        {5, 5, 12 * MIB, 11 * MIB},
                        {64, 64, 64, 64}};
constexpr unsigned int EXCHANGES = 2U * sizeof(ROWS) / sizeof(ROWS[0]);

/// Sends a row's message at once or, in every second exchange, in parts.
void sendRow(const Connection& connection, unsigned int i)
{
    const Row& row = ROWS[i / 2U];
    std::string message = pattern(row.message, i, row.message);
    std::string reply(row.replyRoom, '\0');
    const std::vector<iovec> from = split(message, i);
    const std::vector<iovec> to = split(reply, i + 1U);
    const int status = i % 2U == 0U ? MsgSend(connection.id, message.data(), static_cast<int>(row.message),
                                              reply.data(), static_cast<int>(row.replyRoom))
                                    : MsgSendv(connection.id, from.data(), count(from), to.data(), count(to));
    EXPECT_EQ(status, static_cast<int>(i)) << errno;
    EXPECT_TRUE(reply == pattern(row.reply, ~i, row.replyRoom)) << i;
}

void serveRow(const Channel& channel, unsigned int i, int client)
{
    const Row& row = ROWS[i / 2U];
    const int room = static_cast<int>(row.room);
    std::string buffer(row.room, '\0');
    std::string reply = pattern(row.reply, ~i, row.reply);
    const std::vector<iovec> to = split(buffer, i + 2U);
    const std::vector<iovec> from = split(reply, i + 3U);
    _msg_info info{};
    const int sender = i % 2U == 0U ? MsgReceive(channel.id, buffer.data(), room, &info)
                                    : MsgReceivev(channel.id, to.data(), count(to), &info);
    EXPECT_TRUE(buffer == pattern(row.message, i, row.room)) << i;
    EXPECT_EQ(std::tuple(info.pid, info.chid), std::tuple(client, channel.id));
    EXPECT_EQ(std::tuple(info.msglen, info.srcmsglen, info.dstmsglen),
              std::tuple(std::min<std::size_t>(row.message, row.room), row.message, row.replyRoom));
    const int status = static_cast<int>(i);
    EXPECT_EQ(i % 2U == 0U ? MsgReply(sender, status, reply.data(), static_cast<int>(row.reply))
                           : MsgReplyv(sender, status, from.data(), count(from)),
              0);
}

TEST_P(KoPlatformChannel, CarriesBytesOfAnySizeInPartsAndCutsThemToTheRoom)
{
    const Channel channel;
    const Client client(GetParam(), channel,
                        [](const Connection& connection)
                        {
                            for (unsigned int i = 0; i < EXCHANGES; ++i)
                                sendRow(connection, i);
                        });
    for (unsigned int i = 0; i < EXCHANGES; ++i)
        serveRow(channel, i, GetParam() == IN_THREAD ? getpid() : client.pid());
}

TEST_P(KoPlatformChannel, ServesSeveralClientsByReceiversThatReplyToEachOthersMessages)
{
    const unsigned int rounds = slowness() == 1 ? 500U : 60U;
    const auto exchangeMany = [&](const Connection& connection)
    {
        inThreads(2,
                  [&](int thread)
                  {
                      for (unsigned int i = 0; i < rounds; ++i)
                      {
                          const std::size_t size = i * 37U % 6000U;
                          const std::string message =
                              pattern(size, i ^ static_cast<unsigned int>(thread), size);
                          std::string reply;
                          EXPECT_EQ(connection.send(message, reply), static_cast<int>(size)) << errno;
                          EXPECT_TRUE(reply == message) << i;
                      }
                  });
    };
    const Channel channel;
    std::list<Client> clients;
    for (int i = 0; i < 4; ++i)
        clients.emplace_back(GetParam(), channel, exchangeMany);
    std::atomic<bool> ended{false};
    std::mutex lock;
    std::pair<int, std::string> kept;
    const auto serve = [&](int)
    {
        while (!ended)
        {
            std::pair<int, std::string> next;
            next.first = receive(channel.id, next.second, 5);
            EXPECT_TRUE(next.first > 0 || errno == ETIMEDOUT) << errno;
            {
                const std::lock_guard<std::mutex> guard(lock);
                std::swap(next, kept);
            }
            EXPECT_TRUE(next.first <= 0 || reply(next.first, next.second) == 0) << errno;
        }
    };
    const SignalStorm storm(SignalStorm::WHOLE_PROCESS, 100);
    std::thread receivers([&] { inThreads(3, serve); });
    clients.clear();
    ended = true;
    receivers.join();
}

void expectRefused(int sender, int error)
{
    EXPECT_EQ(MsgReply(sender, error == EINVAL ? -1 : 0, nullptr, 0), -1);
    EXPECT_EQ(errno, error) << sender;
    EXPECT_EQ(MsgError(sender, error == EINVAL ? 0 : EIO), -1);
    EXPECT_EQ(errno, error) << sender;
}

TEST_P(KoPlatformChannel, EndsEachSendOnceAndNeverByAStaleId)
{
    const Channel channel;
    const Client client(GetParam(), channel,
                        [](const Connection& connection)
                        {
                            EXPECT_EQ(connection.send("a"), INT_MAX);
                            EXPECT_EQ(connection.send("b"), -1);
                            EXPECT_EQ(errno, EDOM);
                            while (MsgSend(connection.id, nullptr, 0, nullptr, 0) == 0)
                                ;
                        });
    std::string text;
    const int first = receive(channel.id, text);
    expectRefused(first, EINVAL);
    EXPECT_EQ(MsgReply(first, INT_MAX, nullptr, 0), 0);
    const int second = receive(channel.id, text);
    for (const int stale : {first, 0, -1, INT_MAX})
        expectRefused(stale, ESRCH);
    EXPECT_EQ(MsgError(second, EDOM), 0);
    expectRefused(second, ESRCH);
    bool isRepeated = false;
    for (unsigned int i = 0; i <= 40000U; i += slowness() * slowness())
    {
        const int later = MsgReceive(channel.id, nullptr, 0, nullptr);
        isRepeated = isRepeated || later == first || later == second;
        EXPECT_EQ(MsgReply(later, 0, nullptr, 0), 0);
    }
    EXPECT_FALSE(isRepeated);
    EXPECT_EQ(MsgReply(MsgReceive(channel.id, nullptr, 0, nullptr), 1, nullptr, 0), 0);
}

TEST_P(KoPlatformChannel, DeliversPulsesByPriorityToTheReceivesThatTakeThem)
{
    const Channel channel;
    std::atomic<int>& sent = makeShared<std::atomic<int>>();
    const std::intptr_t value = INTPTR_MIN + 5;
    const Client client(GetParam(), channel,
                        [&](const Connection& connection)
                        {
                            for (const auto& [code, priority] : {std::pair{-128, 10}, {2, 20}, {127, 10}})
                                EXPECT_EQ(connection.pulse(code, priority, value), 0) << errno;
                            sent = 1;
                            EXPECT_EQ(connection.send("message"), 7) << errno;
                        });
    EXPECT_TRUE(waitUntil([&] { return sent == 1; }));
    _pulse pulse{};
    for (const auto& [code, priority] : {std::pair{2, 20}, {-128, 10}, {127, 10}})
    {
        _msg_info info{};
        EXPECT_EQ(priority == 20 ? MsgReceive(channel.id, &pulse, sizeof(pulse), &info)
                                 : MsgReceivePulse(channel.id, &pulse, sizeof(pulse), &info),
                  0);
        EXPECT_EQ(std::tuple(pulse.code, info.priority), std::tuple(code, priority));
        EXPECT_EQ(pulse.value.sival_ptr, reinterpret_cast<void*>(value));
    }
    EXPECT_EQ(KoChannelAccess::receivePulse(channel.id, &pulse, sizeof(pulse), 50), -1) << "a message stays";
    EXPECT_EQ(errno, ETIMEDOUT);
    const Connection own(0, channel.id);
    EXPECT_EQ(own.pulse(1, 255) + own.pulse(2, 0), 0);
    std::string text;
    const int sender = receive(channel.id, text, 10000);
    EXPECT_EQ(text, "message");
    EXPECT_EQ(reply(sender, text), 0);
}

TEST_P(KoPlatformChannel, ForgetsASendThatTimedOutWhereverItWas)
{
    const Channel channel;
    std::atomic<int>& timedOut = makeShared<std::atomic<int>>();
    const Client client(GetParam(), channel,
                        [&](const Connection& connection)
                        {
                            const SignalStorm storm(SignalStorm::CALLING_THREAD, 100);
                            std::string text = "a";
                            const iovec part{text.data(), 1};
                            for (; timedOut < 3; ++timedOut, ++text[0])
                            {
                                const Stopwatch watch;
                                EXPECT_EQ(KoChannelAccess::sendv(connection.id, &part, 1, &part, 1, 40), -1);
                                EXPECT_EQ(errno, ETIMEDOUT);
                                EXPECT_TRUE(watch.isWithin(40, 500));
                            }
                            EXPECT_EQ(connection.send("d", text), 1) << errno;
                            EXPECT_EQ(text, "D");
                        });
    std::string text;
    const int late = receive(channel.id, text);
    EXPECT_EQ(text, "a");
    EXPECT_TRUE(waitUntil([&] { return timedOut == 3; }));
    const int sender = receive(channel.id, text);
    EXPECT_EQ(text, "d") << "the others were never received";
    EXPECT_EQ(reply(late, "A"), -1);
    EXPECT_EQ(errno, ESRCH);
    EXPECT_EQ(reply(sender, "D"), 0);
}

TEST_P(KoPlatformChannel, EndsEveryCallOnADestroyedChannelOrDetachedConnection)
{
    std::atomic<bool>& destroy = makeShared<std::atomic<bool>>();
    const Server server(GetParam(),
                        [&](int channel)
                        {
                            std::string text;
                            EXPECT_GT(receive(channel, text), 0);
                            EXPECT_TRUE(waitUntil([&] { return destroy.load(); }));
                        });
    const Connection connection = server.connect();
    const Connection detached = server.connect();
    const auto block = [&](int index)
    {
        if (index < 4)
        {
            EXPECT_EQ(MsgSend(index < 2 ? detached.id : connection.id, nullptr, 0, nullptr, 0), -1);
            EXPECT_EQ(errno, index < 2 ? EBADF : ESRCH) << index;
            return;
        }
        delay(30);
        EXPECT_EQ(ConnectDetach(detached.id), 0);
        delay(30);
        destroy = true;
    };
    inThreads(5, block);
    EXPECT_EQ(connection.pulse(1), -1);
    EXPECT_EQ(errno, ESRCH);
}

TEST_P(KoPlatformChannel, SurvivesThreadsThatAreEndedInASend)
{
    const auto serve = [](int channel)
    {
        std::string text;
        for (int sender = 0; text != "end" && (sender = receive(channel, text)) > 0;)
        {
            delay(text == "ended" ? 10 : 0);
            EXPECT_TRUE(reply(sender, text) == 0 || text == "ended");
        }
    };
    const Server server(GetParam(), serve);
    const Connection connection = server.connect();
    for (unsigned int round = 0; round < 10; ++round)
    {
        std::atomic<bool> sends{false};
        std::function<void()> body = [&]
        {
            sends = true;
            connection.send("ended");
        };
        const auto run = [](void* call) -> void*
        {
            (*static_cast<std::function<void()>*>(call))();
            return nullptr;
        };
        const int thread = ThreadCreate(0, run, &body, nullptr);
        EXPECT_TRUE(waitUntil([&] { return sends.load(); }));
        delayUntil(monotonicNow() + round * 300000ULL);
        ThreadDestroy(thread, -1, nullptr); // it may have got its reply and ended by itself
        EXPECT_EQ(ThreadJoin_r(thread, nullptr), 0);
        EXPECT_EQ(connection.send("alive"), 5);
    }
    EXPECT_EQ(connection.send("end"), 3);
}

TEST_P(KoPlatformChannel, RefusesPulsesBeyondItsQueueAndLosesNoneOfTheOthers)
{
    std::atomic<int>& accepted = makeShared<std::atomic<int>>();
    const auto receiveAll = [&](int channel)
    {
        _pulse pulse{};
        EXPECT_TRUE(waitUntil([&] { return accepted != 0; }));
        for (int i = 0; i < accepted; ++i)
        {
            EXPECT_EQ(KoChannelAccess::receivePulse(channel, &pulse, sizeof(pulse), 10000), 0) << i;
            EXPECT_EQ(pulse.value.sival_int, i);
        }
        EXPECT_EQ(KoChannelAccess::receivePulse(channel, &pulse, sizeof(pulse), 0), -1);
    };
    const Server server(GetParam(), receiveAll);
    const Connection connection = server.connect();
    int sent = 0;
    while (sent <= MAX_QUEUED_PULSES && connection.pulse(1, 10, sent) == 0)
        ++sent;
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(sent, GetParam() == IN_THREAD ? MAX_QUEUED_PULSES : 100);
    accepted = sent;
}

TEST(KoPlatformChannelCalls, RefuseWhatIsNotThereOrNotPossible)
{
    const Channel channel;
    const Connection connection(0, channel.id);
    const int id = connection.id;
    char byte = 'x';
    const iovec huge[] = {{&byte, INT_MAX}, {&byte, INT_MAX}};
    const struct
    {
        int error;
        std::function<int()> call;
    } cases[] = {
        {EINVAL, [] { return ChannelCreate(0x80U); }},
        {EINVAL, [] { return ChannelDestroy(12345); }},
        {ENOTSUP, [&] { return ConnectAttach(1U, 0, channel.id, 0U, 0); }},
        {ESRCH, [] { return ConnectAttach(0U, 0, 12345, 0U, 0); }},
        {ESRCH, [] { return ConnectAttach(0U, getppid(), 12345, 0U, 0); }},
        {ESRCH, [&] { return ConnectAttach(0U, INT_MAX, channel.id, 0U, 0); }},
        {ESRCH, [&] { return ConnectAttach(0U, -5, channel.id, 0U, 0); }},
        {EINVAL, [] { return ConnectDetach(12345); }},
        {EBADF, [] { return MsgSend(12345, nullptr, 0, nullptr, 0); }},
        {EBADF, [] { return MsgSendPulse(-1, 10, 1, 0); }},
        {EINVAL, [&] { return MsgSend(id, nullptr, 1, nullptr, 0); }},
        {EINVAL, [&] { return MsgSend(id, &byte, -1, nullptr, 0); }},
        {EINVAL, [&] { return MsgSendv(id, nullptr, 1, nullptr, 0); }},
        {EMSGSIZE, [&] { return MsgSendv(id, huge, 2, nullptr, 0); }},
        {EMSGSIZE, [&] { return MsgSendv(id, nullptr, 0, huge, 2); }},
        {EINVAL, [&] { return MsgSendPulse(id, 256, 1, 0); }},
        {EINVAL, [&] { return MsgSendPulse(id, 1, 128, 0); }},
        {ESRCH, [] { return MsgReceive(12345, nullptr, 0, nullptr); }},
        {ESRCH, [] { return MsgReceivePulse(-1, nullptr, 0, nullptr); }},
        {EINVAL, [&] { return MsgReceive(channel.id, nullptr, 1, nullptr); }},
        {EMSGSIZE, [&] { return MsgReceivev(channel.id, huge, 2, nullptr); }},
    };
    for (const auto& each : cases)
    {
        EXPECT_EQ(each.call(), -1) << &each - cases;
        EXPECT_EQ(errno, each.error) << &each - cases;
    }
}

} // namespace
