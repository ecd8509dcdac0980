#pragma once

#include <atomic>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include <sys/prctl.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "pf/oswrapper/KoChannelAccess.h"
#include "pf/platform/KoPlatformChannel.h"
#include "pf/platform/KoPlatformRetry.h"
#include "tests/platform/LockTestSupport.h"

namespace KoTest
{

enum Place
{
    IN_THREAD,
    IN_PROCESS
};

/// Runs a body beside the test: in a thread, or in a forked child, which dies with the test.
class Peer
{
public:
    Peer(Place place, const std::function<void()>& body)
    {
        std::fflush(nullptr);
        if (place == IN_THREAD)
            m_thread = std::thread(body);
        else if ((m_pid = fork()) == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            body();
            std::fflush(nullptr);
            _exit(testing::Test::HasFailure() ? EXIT_FAILURE : EXIT_SUCCESS);
        }
    }
    ~Peer() { join(); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// The process to attach to: the child, or 0 for the own one.
    int pid() const { return m_pid; }
    void kill()
    {
        m_expectedStatus = SIGKILL;
        ::kill(m_pid, SIGKILL);
    }
    void join()
    {
        int status = m_expectedStatus;
        if (m_thread.joinable())
            m_thread.join();
        if (m_pid > 0)
            KoPlatform::repeatInterrupted([&] { return waitpid(m_pid, &status, 0); });
        EXPECT_EQ(status, m_expectedStatus);
        m_pid = 0;
    }

private:
    std::thread m_thread;
    pid_t m_pid = 0;
    int m_expectedStatus = 0;
};

/// A channel of this process.
class Channel
{
public:
    Channel() { EXPECT_GT(id, 0); }
    ~Channel() { KoPlatform::ChannelDestroy(id); }
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    const int id = KoPlatform::ChannelCreate(0U);
};

/// A connection to a channel; the reply has the size of the message.
class Connection
{
public:
    Connection(int pid, int channel) { EXPECT_TRUE(KoChannelAccess::attach(id, channel, pid, 0U)) << errno; }
    ~Connection() { KoPlatform::ConnectDetach(id); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    int send(const std::string& message, std::string& reply) const
    {
        reply.resize(message.size());
        const int size = static_cast<int>(message.size());
        return KoChannelAccess::send(id, message.data(), size, reply.data(), size);
    }
    int send(const std::string& message) const
    {
        std::string reply;
        return send(message, reply);
    }
    int pulse(int code, int priority = 10, std::intptr_t value = 0) const
    {
        return KoPlatform::MsgSendPulse(id, priority, code, value);
    }

    int id = -1;
};

/// A peer that sends to a channel of the test.
class Client : public Peer
{
public:
    Client(Place place, const Channel& channel, const std::function<void(const Connection&)>& body)
        : Peer(place, [&channel, body, server = getpid()] { body(Connection(server, channel.id)); })
    {
    }
};

/// A peer that serves a channel of its own.
class Server
{
public:
    Server(Place place, const std::function<void(int channel)>& serve)
        : m_channel(makeShared<std::atomic<int>>())
        , peer(place,
               [this, serve]
               {
                   const Channel own;
                   m_channel = own.id;
                   serve(own.id);
               })
    {
        EXPECT_TRUE(waitUntil([&] { return m_channel != 0; }));
    }
    Connection connect() const { return Connection(peer.pid(), m_channel); }

private:
    std::atomic<int>& m_channel;

public:
    Peer peer;
};

/// Receives a message of up to 1 MiB. \return the receive id.
inline int receive(int channel, std::string& text, int timeoutMs = -1)
{
    text.resize(1U << 20U);
    _msg_info info{};
    const int sender = KoChannelAccess::receive(channel, text.data(), 1 << 20, timeoutMs, &info);
    text.resize(static_cast<std::size_t>(info.msglen));
    return sender;
}

inline int reply(int sender, const std::string& text)
{
    const int size = static_cast<int>(text.size());
    return KoPlatform::MsgReply(sender, size, text.data(), size);
}

/// What exchanges may leave behind: open descriptors and shared regions of this process.
inline std::pair<std::ptrdiff_t, int> holdings()
{
    int regions = 0;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        regions += line.find("memfd:") != std::string::npos ? 1 : 0;
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return {std::distance(begin(descriptors), end(descriptors)), regions};
}

} // namespace KoTest
