#include "pf/oswrapper/KoChannelAccess.h"

#include "tests/support/ChannelPeers.h"
#include "tests/support/SignalStorm.h"

namespace
{

using namespace KoTest;

TEST(KoChannelAccess, TakesWhatIsQueuedAndDropsPulsesWhereAMessageIsWanted)
{
    const Channel channel;
    const Connection connection(0, channel.id);
    _pulse pulse{};
    const iovec part{&pulse, sizeof(pulse)};
    const auto take = [&](int way)
    {
        switch (way)
        {
        case 0:
            return KoChannelAccess::receivePulse(channel.id, &pulse, sizeof(pulse), 0);
        case 1:
            return KoChannelAccess::receiveMessageOrPulse(channel.id, &pulse, sizeof(pulse), 0, nullptr);
        default:
            return KoChannelAccess::receiveMessageOrPulsev(channel.id, &part, 1, 0, nullptr);
        }
    };
    for (int way = 0; way < 3; ++way)
    {
        EXPECT_EQ(take(way), -1);
        EXPECT_EQ(errno, ETIMEDOUT);
        EXPECT_EQ(connection.pulse(way + 5), 0);
        EXPECT_EQ(take(way), 0);
        EXPECT_EQ(pulse.code, way + 5);
    }
    int none = 5;
    EXPECT_FALSE(KoChannelAccess::attach(none, 12345, 0, 0U));
    EXPECT_EQ(none, -1);
}

TEST(KoChannelAccess, KeepsOneDeadlineThroughInterruptionsAndDroppedPulses)
{
    constexpr int LIMIT_MS = 100;
    const Channel channel;
    const Connection connection(0, channel.id);
    char byte = 0;
    const iovec part{&byte, 1};
    const std::function<int()> calls[] = {
        [&] { return KoChannelAccess::receive(channel.id, &byte, 1, LIMIT_MS, nullptr); },
        [&] { return KoChannelAccess::receivev(channel.id, &part, 1, LIMIT_MS, nullptr); },
        [&] { return KoChannelAccess::receivePulse(channel.id, &byte, 1, LIMIT_MS); },
        [&] { return KoChannelAccess::receiveMessageOrPulse(channel.id, &byte, 1, LIMIT_MS, nullptr); },
        [&] { return KoChannelAccess::receiveMessageOrPulsev(channel.id, &part, 1, LIMIT_MS, nullptr); },
        [&] { return KoChannelAccess::sendv(connection.id, &part, 1, nullptr, 0, LIMIT_MS); }};
    for (const auto& call : calls)
    {
        std::atomic<bool> ended{false};
        std::thread flood(
            [&]
            {
                while (!ended && &call - calls < 2)
                    connection.pulse(1);
            });
        {
            const SignalStorm storm(SignalStorm::CALLING_THREAD, 100);
            const Stopwatch watch;
            EXPECT_EQ(call(), -1);
            EXPECT_EQ(errno, ETIMEDOUT);
            EXPECT_TRUE(watch.isWithin(LIMIT_MS, 2000)) << &call - calls;
        }
        ended = true;
        flood.join();
        while (KoChannelAccess::receivePulse(channel.id, &byte, 1, 0) == 0)
        {
        }
    }
}

TEST(KoChannelAccess, WaitsWithoutLimitThroughInterruptions)
{
    const Channel channel;
    const Client client(IN_THREAD, channel,
                        [](const Connection& connection)
                        {
                            KoPlatform::delay(20);
                            EXPECT_EQ(connection.pulse(1) + connection.pulse(2), 0);
                            KoPlatform::delay(20);
                            EXPECT_EQ(connection.send("message"), 7);
                        });
    const SignalStorm storm(SignalStorm::WHOLE_PROCESS, 100);
    EXPECT_EQ(KoChannelAccess::receivePulse(channel.id, nullptr, 0, -1), 0);
    std::string text;
    const int sender = receive(channel.id, text, -1);
    EXPECT_EQ(text, "message");
    KoPlatform::delay(20);
    EXPECT_EQ(reply(sender, text), 0);
}

} // namespace
