#pragma once

#include "pf/platform/KoLane.h"

namespace KoPlatform
{

/// One lane, as the client sees it. Used by one thread at a time, apart from wake. Links belong to the pool.
class ClientLane
{
public:
    ClientLane() noexcept = default;
    ~ClientLane();
    ClientLane(const ClientLane&) = delete;
    ClientLane& operator=(const ClientLane&) = delete;

    /// Connects the lane's socket. \return as LaneClient::open.
    bool connect(int pid, int channel) noexcept;

    /// A descriptor that tells of the end of the server's process, for the connection to keep; -1 with
    /// `errno`.
    int openServerProcess(int pid) const noexcept;

    /// Makes memory and bells and hands them over. \param process as openServerProcess, or -1.
    bool equip(int process, int connection) noexcept;

    /// One exchange. \param closed whether the connection has been closed. \return as LaneClient::send.
    int exchange(const SLaneParts& message, const SLaneParts& reply, unsigned long long deadlineNs,
                 int priority, int thread, const std::atomic<bool>& closed) noexcept;

    /// Whether the lane may carry another exchange: the last one was not broken off.
    bool isReusable() const noexcept { return m_reusable; }

    /// As LaneClient::sendPulse. \param process as openServerProcess, or -1.
    int pushPulse(int priority, int code, std::int64_t value, int process) noexcept;

    /// Lets an exchange that is under way in another thread look around.
    void wake() noexcept;

    /// Closes the descriptors without telling the server: for a forked child.
    void abandon() noexcept;

    ClientLane* next = nullptr;     ///< in the list of all lanes of the connection
    ClientLane* nextIdle = nullptr; ///< in the list of those that wait

private:
    bool watch(int descriptor, std::uint32_t events) noexcept;
    bool handOver(int connection) noexcept;
    void queueMessage(const SLaneParts& message, std::size_t replyRoom, int priority, int thread) noexcept;
    int awaitReply(unsigned long long deadlineNs, const std::atomic<bool>& closed) noexcept;
    int waitForChange(unsigned long long deadlineNs) noexcept;
    bool isReplied() const noexcept;
    int fetchReply(const SLaneParts& reply) noexcept;
    bool breakOff() noexcept;
    bool isServerGone(int process) const noexcept;

    LaneMemory m_memory;
    int m_socket = -1;
    int m_epoll = -1;
    int m_serverBell = -1;
    int m_bell = -1; // rung by the server, and by wake
    std::uint32_t m_pulsesSent = 0;
    bool m_reusable = true;
};

} // namespace KoPlatform
