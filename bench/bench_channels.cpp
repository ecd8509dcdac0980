// Messages against what a user would pick instead: pipes, seqpacket sockets, a POSIX queue, and shared memory
// with eventfds.
//
// A round trip is a message into the server's own buffer and a reply of the same size into the client's, for
// everybody. Names are roundTrip/<threads or processes>/<pinned or anywhere>/<bytes>/<who>.

#include "bench/BenchSupport.h"
#include "pf/oswrapper/KoChannelAccess.h"
#include "pf/platform/KoPlatformChannel.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <thread>

#include <fcntl.h>
#include <mqueue.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace KoBench;

constexpr std::size_t PAGE = 4096;
constexpr std::size_t HUGE_MESSAGE = 4U << 20U;
constexpr std::size_t SHORT_REPLY = 64;

/// Memory on whole pages that have been touched, shared with forked children or not.
class Pages
{
public:
    enum Sharing
    {
        OWN = MAP_PRIVATE,
        SHARED = MAP_SHARED
    };

    Pages(std::size_t bytes, Sharing sharing)
        : m_bytes(bytes)
        , m_start(mmap(nullptr, bytes, PROT_READ | PROT_WRITE, sharing | MAP_ANONYMOUS, -1, 0))
    {
        require(m_start != MAP_FAILED, "mmap");
        std::memset(m_start, 0, bytes);
    }
    ~Pages() { munmap(m_start, m_bytes); }
    Pages(const Pages&) = delete;
    Pages& operator=(const Pages&) = delete;

    char* start() const { return static_cast<char*>(m_start); }

private:
    std::size_t m_bytes;
    void* m_start;
};

/// The sizes of a round trip.
struct Sizes
{
    std::size_t message;
    std::size_t reply;
};

/// A way between a client and a server. It is made before the server starts, in a thread or a forked child.
class Link
{
public:
    Link() = default;
    virtual ~Link() = default;
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    virtual void startServer() {}
    virtual void startClient(int) {}
    virtual void stopServer() {}
    /// The client's half: sends the message and gets the reply, both in the buffer.
    virtual void exchange(char* buffer) = 0;
    /// The server's two halves.
    virtual void receive(char* buffer) = 0;
    virtual void reply(const char* buffer) = 0;
};

class ChannelLink : public Link
{
public:
    explicit ChannelLink(Sizes sizes)
        : m_sizes(sizes)
        , m_id(*new (m_shared.start()) std::atomic<int>(0))
    {
    }
    ~ChannelLink() override
    {
        if (m_connection != -1)
        {
            KoPlatform::ConnectDetach(m_connection);
        }
    }

    void startServer() override
    {
        const int id = KoPlatform::ChannelCreate(0U);
        require(id != -1, "ChannelCreate");
        m_id.store(id, std::memory_order_release);
    }
    void startClient(int server) override
    {
        while (m_id.load(std::memory_order_acquire) == 0)
        {
            sched_yield();
        }
        require(KoChannelAccess::attach(m_connection, m_id.load(), server, 0U), "attach");
    }
    void stopServer() override { KoPlatform::ChannelDestroy(m_id.load()); }
    void exchange(char* buffer) override
    {
        require(KoChannelAccess::send(m_connection, buffer, static_cast<int>(m_sizes.message), buffer,
                                      static_cast<int>(m_sizes.reply)) == 0,
                "send");
    }
    void receive(char* buffer) override
    {
        m_sender = KoChannelAccess::receiveMessageOrPulse(m_id.load(std::memory_order_relaxed), buffer,
                                                          static_cast<int>(m_sizes.message), -1, nullptr);
        require(m_sender > 0, "receiveMessageOrPulse");
    }
    void reply(const char* buffer) override
    {
        require(KoPlatform::MsgReply(m_sender, 0, buffer, static_cast<int>(m_sizes.reply)) == 0, "MsgReply");
    }

private:
    const Sizes m_sizes;
    const Pages m_shared{PAGE, Pages::SHARED};
    std::atomic<int>& m_id;
    int m_connection = -1;
    int m_sender = 0;
};

/// Two descriptors for each direction, of which the client uses the first pair and the server the second.
class DescriptorLink : public Link
{
public:
    ~DescriptorLink() override
    {
        for (const int descriptor : m_descriptors)
        {
            close(descriptor);
        }
    }

    void exchange(char* buffer) override
    {
        transferAll(m_sizes.message, [&](std::size_t done, std::size_t left)
                    { return write(toServer(), buffer + done, left); });
        transferAll(m_sizes.reply, [&](std::size_t done, std::size_t left)
                    { return read(fromServer(), buffer + done, left); });
    }
    void receive(char* buffer) override
    {
        transferAll(m_sizes.message, [&](std::size_t done, std::size_t left)
                    { return read(fromClient(), buffer + done, left); });
    }
    void reply(const char* buffer) override
    {
        transferAll(m_sizes.reply, [&](std::size_t done, std::size_t left)
                    { return write(toClient(), buffer + done, left); });
    }

protected:
    explicit DescriptorLink(Sizes sizes)
        : m_sizes(sizes)
    {
    }

    /// Server's input, client's output, client's input, server's output.
    int m_descriptors[4] = {-1, -1, -1, -1};

private:
    int fromClient() const { return m_descriptors[0]; }
    int toServer() const { return m_descriptors[1]; }
    int fromServer() const { return m_descriptors[2]; }
    int toClient() const { return m_descriptors[3]; }

    template <class Transfer>
    static void transferAll(std::size_t bytes, Transfer transfer)
    {
        for (std::size_t done = 0; done < bytes;)
        {
            const ssize_t count = transfer(done, bytes - done);
            require(count > 0, "read or write");
            done += static_cast<std::size_t>(count);
        }
    }

    const Sizes m_sizes;
};

class PipeLink : public DescriptorLink
{
public:
    explicit PipeLink(Sizes sizes)
        : DescriptorLink(sizes)
    {
        constexpr int ROOM = 1 << 20;
        require(pipe(m_descriptors) == 0 && pipe(m_descriptors + 2) == 0, "pipe");
        fcntl(m_descriptors[0], F_SETPIPE_SZ, ROOM);
        fcntl(m_descriptors[2], F_SETPIPE_SZ, ROOM);
    }
};

class SocketLink : public DescriptorLink
{
public:
    explicit SocketLink(Sizes sizes)
        : DescriptorLink(sizes)
    {
        int pair[2];
        require(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair) == 0, "socketpair");
        m_descriptors[0] = pair[0];
        m_descriptors[3] = dup(pair[0]);
        m_descriptors[1] = pair[1];
        m_descriptors[2] = dup(pair[1]);
    }
};

/// A POSIX queue for each direction.
class QueueLink : public Link
{
public:
    explicit QueueLink(Sizes sizes)
        : m_sizes(sizes)
    {
        for (int i = 0; i < 2; ++i)
        {
            const std::string name = "/ko_bench_" + std::to_string(getpid()) + "_" + std::to_string(i);
            mq_attr attributes = {};
            attributes.mq_maxmsg = 1;
            attributes.mq_msgsize = static_cast<long>(std::max(sizes.message, sizes.reply));
            m_queues[i] = mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600, &attributes);
            mq_unlink(name.c_str());
        }
    }
    ~QueueLink() override
    {
        mq_close(m_queues[0]);
        mq_close(m_queues[1]);
    }

    /// Whether messages of that size fit into a queue of this machine.
    static bool isAvailable(Sizes sizes)
    {
        const QueueLink link(sizes);
        return link.m_queues[0] != -1 && link.m_queues[1] != -1;
    }

    void exchange(char* buffer) override
    {
        require(mq_send(m_queues[0], buffer, m_sizes.message, 0U) == 0, "mq_send");
        require(mq_receive(m_queues[1], buffer, m_sizes.reply, nullptr) >= 0, "mq_receive");
    }
    void receive(char* buffer) override
    {
        require(mq_receive(m_queues[0], buffer, m_sizes.message, nullptr) >= 0, "mq_receive");
    }
    void reply(const char* buffer) override
    {
        require(mq_send(m_queues[1], buffer, m_sizes.reply, 0U) == 0, "mq_send");
    }

private:
    const Sizes m_sizes;
    mqd_t m_queues[2] = {-1, -1};
};

/// A shared buffer, used by the message and then by the reply.
class SharedBufferLink : public Link
{
public:
    explicit SharedBufferLink(Sizes sizes)
        : m_sizes(sizes)
        , m_shared(std::max(sizes.message, sizes.reply), Pages::SHARED)
    {
    }

    void exchange(char* buffer) override
    {
        std::memcpy(m_shared.start(), buffer, m_sizes.message);
        m_toServer.ring();
        m_toClient.await();
        std::memcpy(buffer, m_shared.start(), m_sizes.reply);
    }
    void receive(char* buffer) override
    {
        m_toServer.await();
        std::memcpy(buffer, m_shared.start(), m_sizes.message);
    }
    void reply(const char* buffer) override
    {
        std::memcpy(m_shared.start(), buffer, m_sizes.reply);
        m_toClient.ring();
    }

private:
    const Sizes m_sizes;
    const Pages m_shared;
    const Bell m_toServer;
    const Bell m_toClient;
};

constexpr char GO_ON = 0;
constexpr char END = 1;

void serve(Link& link, Sizes sizes)
{
    const Pages buffer(std::max(sizes.message, sizes.reply), Pages::OWN);
    link.startServer();
    bool goesOn = true;
    while (goesOn)
    {
        link.receive(buffer.start());
        goesOn = buffer.start()[0] == GO_ON;
        link.reply(buffer.start());
    }
    link.stopServer();
}

void exchangeAll(benchmark::State& state, Link& link, Sizes sizes, int server)
{
    const Pages buffer(std::max(sizes.message, sizes.reply), Pages::OWN);
    link.startClient(server);
    for (auto _ : state)
    {
        link.exchange(buffer.start());
    }
    buffer.start()[0] = END;
    link.exchange(buffer.start());
}

template <class SomeLink>
void betweenThreads(benchmark::State& state, Sizes sizes, bool pin)
{
    const Pinned pinned(pin);
    SomeLink link(sizes);
    std::thread server([&] { serve(link, sizes); });
    exchangeAll(state, link, sizes, 0);
    server.join();
}

template <class SomeLink>
void betweenProcesses(benchmark::State& state, Sizes sizes, bool pin)
{
    const Pinned pinned(pin);
    SomeLink link(sizes);
    const pid_t server = fork();
    if (server == 0)
    {
        serve(link, sizes);
        _exit(EXIT_SUCCESS);
    }
    exchangeAll(state, link, sizes, server);
    waitpid(server, nullptr, 0);
}

template <class SomeLink>
void registerLink(const char* who, Sizes sizes)
{
    for (const bool pin : {true, false})
    {
        const std::string end =
            std::string(pin ? "/pinned/" : "/anywhere/") + std::to_string(sizes.message) + "/" + who;
        const auto add = [&](const std::string& name, void (*run)(benchmark::State&, Sizes, bool)) {
            benchmark::RegisterBenchmark(("roundTrip/" + name + end).c_str(), run, sizes, pin)->UseRealTime();
        };
        if (sizes.message != HUGE_MESSAGE)
        {
            add("threads", &betweenThreads<SomeLink>);
        }
        add("processes", &betweenProcesses<SomeLink>);
    }
}

/// What a huge message cannot do without: a copy into shared memory and a copy out of it.
void copyTwice(benchmark::State& state)
{
    const Pinned pinned(true);
    const Pages from(HUGE_MESSAGE, Pages::OWN);
    const Pages shared(HUGE_MESSAGE, Pages::SHARED);
    const Pages to(HUGE_MESSAGE, Pages::OWN);
    for (auto _ : state)
    {
        std::memcpy(shared.start(), from.start(), HUGE_MESSAGE);
        benchmark::ClobberMemory();
        std::memcpy(to.start(), shared.start(), HUGE_MESSAGE);
        benchmark::ClobberMemory();
    }
}

void registerAll()
{
    for (const std::size_t size : {std::size_t{64}, PAGE, std::size_t{65536}})
    {
        const Sizes sizes = {size, size};
        registerLink<ChannelLink>("channel", sizes);
        registerLink<PipeLink>("pipe", sizes);
        registerLink<SocketLink>("seqpacket", sizes);
        registerLink<SharedBufferLink>("eventfd", sizes);
        if (QueueLink::isAvailable(sizes))
        {
            registerLink<QueueLink>("posixQueue", sizes);
        }
    }
    registerLink<ChannelLink>("channel", Sizes{HUGE_MESSAGE, SHORT_REPLY});
    registerLink<SharedBufferLink>("eventfd", Sizes{HUGE_MESSAGE, SHORT_REPLY});
    benchmark::RegisterBenchmark("copyTwice", &copyTwice)->UseRealTime();
}

} // namespace

int main(int argc, char** argv)
{
    registerAll();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return EXIT_SUCCESS;
}
