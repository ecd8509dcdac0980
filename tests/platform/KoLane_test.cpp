// Peers that break the rules of the exchange between processes, or end in the middle of it: played by hand,
// on the layout that both sides share.
#include "pf/platform/KoLaneMemory.h"

#include "pf/platform/KoLaneBell.h"
#include "pf/platform/KoLocalSocket.h"

#include <array>
#include <ctime>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include "tests/support/ChannelPeers.h"
#include "tests/support/Threads.h"

namespace
{

using namespace KoPlatform;
using namespace KoTest;

/// One end of a lane whose every step the test decides, with the hello that a client says.
struct Lane
{
    Lane() = default;
    /// A client's end, connected to a channel of this process.
    explicit Lane(int channel)
        : socket(connectLocal(getpid(), channel))
        , descriptors{memory.create() ? memory.descriptor() : -1, makeBell(), makeBell(), 0}
    {
    }
    ~Lane()
    {
        for (const int descriptor : {socket, descriptors[LANE_SERVER_BELL], descriptors[LANE_CLIENT_BELL]})
            close(descriptor);
    }
    Lane(const Lane&) = delete;
    Lane& operator=(const Lane&) = delete;

    bool sayHello() const { return sendDescriptors(socket, &hello, helloBytes, said.data(), saidCount); }
    void queue(std::uint32_t bytes, std::uint32_t replyRoom) const
    {
        memory.header().messageBytes = bytes;
        memory.header().replyRoom = replyRoom;
        setState(LANE_QUEUED, LANE_SERVER_BELL);
    }
    void answer(std::uint32_t bytes, int status, int error) const
    {
        memory.header().replyBytes = bytes;
        memory.header().status = status;
        memory.header().error = error;
        std::copy_n("xyz", 3, static_cast<char*>(memory.part(3).iov_base));
        storeShared<std::uint32_t>(memory.header().state, LANE_REPLIED);
    }
    void setState(std::uint32_t state, LaneDescriptor bell) const
    {
        storeShared(memory.header().state, state);
        ringBell(descriptors[bell]);
    }

    int socket = -1;
    LaneMemory memory;
    std::array<int, 4> descriptors{-1, -1, -1, -1};
    SLaneHello hello{LANE_MAGIC, LANE_VERSION, sizeof(SLaneHeader), 1};
    std::size_t helloBytes = sizeof(SLaneHello);
    std::array<int, 4> said = descriptors;
    std::size_t saidCount = LANE_DESCRIPTORS;
};

/// Lets the channel look at what has come. \return the receive id, or -1 when there is no message.
int serve(const Channel& channel, _msg_info& info, int bytes = 1 << 20)
{
    static char sBuffer[1 << 20];
    info = _msg_info{};
    return KoChannelAccess::receive(channel.id, sBuffer, bytes, 20, &info);
}

TEST(KoLane, TurnsClientsAwayWhoseHelloIsWrongAndServesTheOthers)
{
    const Channel channel;
    const auto before = holdings();
    std::array<int, 5> odd;
    const int seals[] = {0, F_SEAL_SHRINK, F_SEAL_SHRINK | F_SEAL_WRITE};
    for (std::size_t i = 0; i < 3; ++i)
    {
        odd[i] = memfd_create("test", MFD_ALLOW_SEALING);
        const off_t bytes = i == 1 ? LANE_AREA_OFFSET : 1 << 20;
        EXPECT_EQ(ftruncate(odd[i], bytes) + fcntl(odd[i], F_ADD_SEALS, seals[i]), 0);
    }
    ASSERT_EQ(pipe(&odd[3]), 0);
    const auto beSomebodyElse = [&](Lane& lane)
    {
        close(lane.socket);
        lane.hello.version += syscall(SYS_setresuid, -1, 65534, -1) != 0 ? 1U : 0U; // only root can
        lane.socket = connectLocal(getpid(), channel.id);
        syscall(SYS_setresuid, -1, 0, -1);
    };
    const std::function<void(Lane&)> faults[] = {
        [](Lane& lane) { lane.hello.magic ^= 1U; },
        [](Lane& lane) { ++lane.hello.version; },
        [](Lane& lane) { --lane.hello.headerBytes; },
        [](Lane& lane) { --lane.helloBytes; },
        [](Lane& lane) { lane.helloBytes += sizeof(int); },
        [](Lane& lane) { lane.saidCount = 1; },
        [](Lane& lane) { lane.said[(lane.saidCount = 4) - 1] = 0; },
        [&](Lane& lane) { lane.said[LANE_MEMORY] = odd[0]; },
        [&](Lane& lane) { lane.said[LANE_MEMORY] = odd[1]; },
        [&](Lane& lane) { lane.said[LANE_MEMORY] = odd[2]; },
        [&](Lane& lane) { lane.said[LANE_MEMORY] = odd[3]; },
        [&](Lane& lane) { lane.said[LANE_SERVER_BELL] = odd[0]; },
        [&](Lane& lane) { lane.said[LANE_CLIENT_BELL] = odd[4]; },
        beSomebodyElse,
    };
    _msg_info info{};
    for (const auto& fault : faults)
    {
        Lane bad(channel.id), silent(channel.id), good(channel.id);
        fault(bad);
        EXPECT_TRUE(bad.sayHello() && good.sayHello());
        bad.queue(1, 0);
        good.queue(2, 0);
        EXPECT_EQ(MsgReply(serve(channel, info), 0, nullptr, 0), 0);
        EXPECT_EQ(info.msglen, 2) << &fault - faults;
        EXPECT_EQ(serve(channel, info), -1);
        EXPECT_TRUE(isHungUp(bad.socket)) << &fault - faults;
        EXPECT_FALSE(isHungUp(good.socket) || isHungUp(silent.socket));
    }
    EXPECT_EQ(serve(channel, info), -1);
    for (const int descriptor : odd)
        close(descriptor);
    EXPECT_EQ(holdings(), before);
}

TEST(KoLane, BelievesNothingThatAClientWritesIntoTheSharedMemory)
{
    const struct
    {
        std::uint32_t bytes, replyRoom;
        int priority, buffer, received, seenPriority;
        bool givesUp, replied, cutOff;
    } claims[] = {
        {~0U, 0, 10, 100, -1, 0, false, false, true},                   // more than an int holds
        {70000, 0, 10, 1 << 20, -1, 0, false, false, true},             // more than the file has
        {70000, 0, -5, 100, 100, 0, false, true, false},                // the same, but nobody looks there
        {8, ~0U, 9999, 100, 8, 255, false, false, true},                // no room for the reply
        {8, 8, 10, 100, 8, 10, true, false, false},                     // when it had been received
        {LANE_SMALL_AREA, 8, 0, 1 << 20, 65536, 0, false, true, false}, // all there is
    };
    const Channel channel;
    for (const auto& claim : claims)
    {
        Lane client(channel.id);
        client.memory.header().priority = claim.priority;
        EXPECT_TRUE(client.sayHello());
        client.queue(claim.bytes, claim.replyRoom);
        _msg_info info{};
        const int id = serve(channel, info, claim.buffer);
        EXPECT_EQ(id > 0 ? info.msglen : -1, claim.received) << claim.bytes;
        EXPECT_EQ(info.priority, claim.seenPriority);
        if (claim.givesUp)
            client.setState(LANE_CANCELLED, LANE_SERVER_BELL);
        EXPECT_EQ(reply(id, std::string(100000, 'a')), claim.replied ? 0 : -1) << claim.bytes;
        EXPECT_EQ(serve(channel, info), -1);
        EXPECT_EQ(isHungUp(client.socket), claim.cutOff) << claim.bytes;
        EXPECT_EQ(client.memory.header().state == LANE_REPLIED, claim.replied) << claim.bytes;
    }
    const Lane pulses(channel.id);
    EXPECT_TRUE(pulses.sayHello());
    pulses.memory.header().pulsesSent = LANE_PULSES + 1U;
    EXPECT_EQ(KoChannelAccess::receivePulse(channel.id, nullptr, 0, 20), -1);
    EXPECT_TRUE(isHungUp(pulses.socket));
}

/// Plays the server of one exchange that a child process starts, up to the end of the lane. \return what the
/// child's call ended with: the status, or the negative error number.
int playServer(const std::function<void(const Lane&)>& play)
{
    static int sChannel = 1000000; // no channel of the layer's
    int listener = listenLocal(getpid(), ++sChannel);
    std::atomic<int>& result = makeShared<std::atomic<int>>();
    const auto send = [&, server = getpid()]
    {
        char reply[] = "abc";
        const int status = MsgSend(ConnectAttach(0U, server, sChannel, 0U, 0), "123", 3, reply, 2);
        result = status >= 0 ? status : -errno;
        EXPECT_STREQ(reply, status >= 0 ? "xyc" : "abc");
    };
    Peer client(IN_PROCESS, send);
    Lane lane;
    EXPECT_TRUE(waitUntil([&] { return (lane.socket = acceptLocal(listener)) != -1; }));
    closeDescriptor(listener);
    const auto hearHello = [&]
    { return receiveDescriptors(lane.socket, &lane.hello, sizeof(SLaneHello), lane.descriptors.data(), 3); };
    EXPECT_TRUE(waitUntil(hearHello) && lane.memory.adopt(lane.descriptors[LANE_MEMORY]));
    EXPECT_TRUE(waitUntil([&] { return loadShared(lane.memory.header().state) == LANE_QUEUED; }));
    play(lane);
    shutdown(lane.socket, SHUT_RDWR);
    client.join();
    return result;
}

TEST(KoLane, EndsASendWhateverTheServerDoesAndTakesNoMoreThanItHasRoomFor)
{
    // An answer counts, also if nobody rings and the server is gone right after.
    EXPECT_EQ(playServer([](const Lane& lane) { lane.answer(2, 5, 0); }), 5);
    EXPECT_EQ(playServer([](const Lane& lane) { lane.answer(~0U, 6, 0); }), 6);
    EXPECT_EQ(playServer([](const Lane& lane) { lane.answer(2, 5, EDOM); }), -EDOM);
    for (const std::uint32_t state : {LANE_IDLE + 0U, LANE_QUEUED + 0U, LANE_RECEIVED + 0U, 77U})
        EXPECT_EQ(playServer([&](const Lane& lane) { lane.setState(state, LANE_CLIENT_BELL); }), -ESRCH)
            << state;
}

TEST(KoLane, TurnsClientsAwayWithoutSpinningWhileThereAreNoDescriptors)
{
    const Channel channel;
    const Lane early(channel.id);
    EXPECT_TRUE(early.sayHello());
    rlimit former{};
    getrlimit(RLIMIT_NOFILE, &former);
    const int next = dup(0);
    close(next);
    const rlimit limit{static_cast<rlim_t>(next), former.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    const std::clock_t start = std::clock();
    EXPECT_EQ(KoChannelAccess::receivePulse(channel.id, nullptr, 0, 300), -1);
    EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC / 8);
    EXPECT_TRUE(isHungUp(early.socket));
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &former), 0);
    const Lane served(channel.id);
    EXPECT_TRUE(served.sayHello());
    served.queue(2, 0);
    _msg_info info{};
    EXPECT_EQ(MsgReply(serve(channel, info), 0, nullptr, 0), 0);
}

/// The memory that lanes of this process hold, in bytes.
long long laneMemory()
{
    long long bytes = 0;
    struct stat status;
    for (int descriptor = 3; descriptor < 256; ++descriptor)
        if (fcntl(descriptor, F_GET_SEALS) == F_SEAL_SHRINK && fstat(descriptor, &status) == 0)
            bytes += status.st_blocks * 512LL;
    return bytes;
}

TEST(KoLane, KeepsFewLanesAndLittleMemoryForTheNextMessage)
{
    constexpr int SENDERS = 12;
    const auto before = holdings();
    // Replies when all have sent: so each sender has a lane of its own.
    const auto serveTogether = [](int channel)
    {
        std::array<int, SENDERS> ids;
        std::string text;
        for (int& id : ids)
            id = receive(channel, text);
        for (int id : ids)
            EXPECT_EQ(reply(id, "same"), 0);
        while (reply(receive(channel, text), text) == 0)
            ;
    };
    Server server(IN_PROCESS, serveTogether);
    {
        const Connection connection = server.connect();
        const std::ptrdiff_t oneLane = holdings().first - before.first;
        inThreads(SENDERS, [&](int) { EXPECT_EQ(connection.send("same"), 4); });
        EXPECT_LE(holdings().first, before.first + 4 * oneLane);
        for (const std::size_t size : {40U << 20U, 9U << 20U, 65537U, 65536U, 1U, 0U, 2U << 20U})
        {
            const std::string message(size, 'm');
            std::string answer;
            const std::size_t replied = std::min<std::size_t>(size, 1U << 20U);
            EXPECT_EQ(connection.send(message, answer), static_cast<int>(replied));
            EXPECT_EQ(answer.substr(0, replied), message.substr(0, replied)) << size;
            EXPECT_LE(laneMemory(), (8 << 20) + 4 * 65536) << size;
        }
    }
    EXPECT_EQ(holdings(), before);
    server.peer.kill();
}

} // namespace
