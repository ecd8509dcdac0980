#pragma once

#include "pf/platform/KoChannelLock.h"
#include "pf/platform/KoLaneMemory.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <sys/uio.h>

/// Messages and pulses between two processes of one host.
///
/// A *lane* carries one exchange at a time: shared memory holds the bytes, an eventfd in each direction is
/// the bell, and a socket tells each side that the other has gone. The client makes all of it and hands it
/// over the socket; attaching asks nothing of the server but that it listens. A connection is a pool of
/// lanes, so that its threads do not wait for each other; what the server sees of a connection is its lanes.
///
/// Nothing that the other process writes into the shared memory is believed: a claim is read once and
/// limited to what is really there.
namespace KoPlatform
{

/// A list of message parts. The caller has checked that `bytes` is the sum of their lengths, at most INT_MAX.
struct SLaneParts
{
    const iovec* parts;
    int count;
    std::size_t bytes;
};

class ClientLane;
class ServerLane;

// ---------------------------------------------------------------------------------------------- client half

/// A connection to a channel of another process.
///
/// send and sendPulse may be called by any number of threads at once; close by any thread at any time. The
/// owner destroys the object when no call is under way; the destructor closes.
class LaneClient
{
public:
    LaneClient() noexcept;
    ~LaneClient();
    LaneClient(const LaneClient&) = delete;
    LaneClient& operator=(const LaneClient&) = delete;

    /// Connects; once. Does not block. \param connection is told to the server as the sender's number of
    /// the connection. \return 0, or -1 with `errno`: `ESRCH` no such process or channel; `EPERM` another
    /// user's; `EAGAIN` too many clients connect to the server at this moment; `EMFILE`, `ENFILE`, `ENOMEM`,
    /// `EFBIG`.
    int open(int pid, int channel, int connection) noexcept;

    /// Sends a message and waits for its reply. \param priority and \param thread are told to the server.
    /// \param deadlineNs absolute, on the monotonic clock; NO_DEADLINE for none.
    /// \return the status of the reply, or -1 with `errno`: `ESRCH` the peer is gone; `ETIMEDOUT`; `EBADF`
    /// closed meanwhile; `ECANCELED` the calling thread is to be terminated: everything here is in order,
    /// the caller puts its own things in order and calls endCallingThread; `EMFILE`, `ENFILE`, `ENOMEM`,
    /// `EAGAIN`, `EFBIG` no lane, or no lane large enough, could be made; else what the server gave to
    /// replyError. Absorbs interruptions.
    int send(const SLaneParts& message, const SLaneParts& reply, unsigned long long deadlineNs, int priority,
             int thread) noexcept;

    /// Queues a pulse. Never blocks. Pulses that were sent arrive even if the connection is closed or the
    /// process ends right after. \return 0, or -1 with `errno`: `ESRCH`, `EAGAIN` too many are queued,
    /// `EBADF`, `EMFILE`, `ENFILE`, `ENOMEM`.
    int sendPulse(int priority, int code, std::int64_t value) noexcept;

    /// Ends the connection: sends that are under way and later ones fail with `EBADF`.
    void close() noexcept;

    /// Hold the pool across a fork, so that the child finds it whole.
    void lockForFork() noexcept;
    void unlockAfterFork() noexcept;

    /// In a forked child: closes the parent's descriptors without a word to the server. The object must not
    /// be used, nor destroyed, afterwards.
    void abandonInChild() noexcept;

private:
    ClientLane* takeLane() noexcept;
    void giveLaneBack(ClientLane* lane) noexcept;
    ClientLane* popIdle() noexcept;
    ClientLane* makeLane() noexcept;
    bool findServerProcess(const ClientLane& lane) noexcept;
    void link(ClientLane& lane) noexcept;
    void unlink(ClientLane& lane) noexcept;
    bool isUsable() const noexcept;

    ChannelLock m_lock;             // guards the pool and the lane of the pulses
    ClientLane* m_lanes = nullptr;  // all lanes
    ClientLane* m_idle = nullptr;   // those that wait for the next message, the last used first
    ClientLane* m_pulses = nullptr; // the lane of the pulses, made by the first one
    int m_idleCount = 0;
    int m_pid = 0;
    int m_channel = 0;
    int m_connection = 0;
    int m_process = -1; // tells of the end of the server's process; -1 where the kernel cannot
    bool m_processKnown = false;
    std::atomic<bool> m_closed{false};
    std::atomic<bool> m_peerGone{false};
};

// ---------------------------------------------------------------------------------------------- server half

/// What there is to tell about a message.
struct SLaneMessage
{
    int pid;                    ///< the sender's process, as the kernel says
    int thread;                 ///< as the sender says
    int connection;             ///< as the sender says
    int lane;                   ///< small number of the lane within its channel
    int priority;               ///< from 0 to 255
    std::size_t bytes;          ///< what the sender sent
    std::size_t copiedBytes;    ///< what the parts had room for
    std::size_t replyBytesRoom; ///< what the sender has room for
};

/// What a channel is told about its lanes. All calls come out of LaneServer's handleEvent, resumePulses and
/// close, that is, with the channel's lock held by their caller.
class ILaneChannel
{
public:
    /// A client has come: the channel may put a record of its own into ServerLane::context.
    /// \return false refuses the client; laneClosed is not called then.
    virtual bool laneOpened(ServerLane& lane) = 0;
    /// A message waits in the lane; fetch it with ServerLane::receive when its turn has come. Not called
    /// again for this lane before that message has been received and replied to.
    virtual void messageArrived(ServerLane& lane, int priority) = 0;
    /// A pulse has arrived. \return false when there is no room: it stays in the lane until resumePulses.
    virtual bool pulseArrived(ServerLane& lane, int priority, int code, std::int64_t value) = 0;
    /// The client has gone (or is cut off). A message of it that is still queued has to be dropped; replying
    /// to one that was received fails with `ESRCH`. The lane may be freed when this returns, unless retained.
    virtual void laneClosed(ServerLane& lane) = 0;

protected:
    ~ILaneChannel() = default;
};

/// The listening side of a channel and its lanes. It puts its descriptors into the channel's epoll set,
/// edge-triggered, and is told of their events.
///
/// Not synchronised: the channel's lock is held for every call.
class LaneServer
{
public:
    explicit LaneServer(ILaneChannel& channel) noexcept;
    ~LaneServer();
    LaneServer(const LaneServer&) = delete;
    LaneServer& operator=(const LaneServer&) = delete;

    /// Listens for clients of channel `channel` of this process; once. \param epollDescriptor stays the
    /// caller's and outlives this object. \return 0, or -1 with `errno`: `EADDRINUSE` somebody has taken the
    /// name of this channel, try another number; `EMFILE`, `ENFILE`, `ENOMEM`.
    int open(int channel, int epollDescriptor) noexcept;

    /// Whether anybody has ever connected.
    bool hadClients() const noexcept { return m_slotCount != 0; }

    /// Whether an event of the epoll set is for handleEvent. The data of other events must be below 2^63.
    static bool isOwnEvent(std::uint64_t data) noexcept { return (data >> 63) != 0U; }

    /// Handles an event of the epoll set. Events that are stale are recognised.
    void handleEvent(std::uint64_t data, std::uint32_t events) noexcept;

    /// Tries again to deliver pulses that found no room. Cheap when there are none.
    void resumePulses() noexcept;

    /// Ends everything: all clients fail with `ESRCH` at once. laneClosed is called for each lane.
    void close() noexcept;

    /// For the handler that runs in a forked child: closes the parent's descriptors without touching the
    /// epoll set or the clients, which are still the parent's. The object must not be used, nor destroyed,
    /// afterwards.
    void abandonInChild() noexcept;

private:
    void acceptClients() noexcept;
    void hearNewClients() noexcept;
    bool acceptOne() noexcept;
    bool refuseOne() noexcept;
    void admit(int socket) noexcept;
    int findFreeSlot() noexcept;
    ServerLane* findLane(std::uint64_t data) const noexcept;
    void handleSocket(ServerLane& lane, std::uint32_t events) noexcept;
    bool welcome(ServerLane& lane) noexcept;
    void handleBell(ServerLane& lane) noexcept;
    bool deliverPulses(ServerLane& lane) noexcept;
    void remove(ServerLane& lane) noexcept;
    bool watch(int operation, int descriptor, std::uint32_t events, std::uint64_t data) const noexcept;

    ILaneChannel& m_channel;
    ServerLane** m_lanes = nullptr; // by slot; null where free
    int m_slotCount = 0;
    int m_epoll = -1;
    int m_listener = -1;
    int m_reserve = -1; // given up for a moment to refuse clients when descriptors have run out
    std::uint32_t m_generation = 0;
    bool m_acceptLater = false;
    bool m_pulsesHeldBack = false;
};

/// One lane, as the server sees it. The channel retains it while it works with it outside its lock. Between
/// messageArrived and the reply, at most one thread at a time may call receive or a reply.
class ServerLane
{
public:
    /// The channel's own record of the lane.
    void* context = nullptr;

    void retain() noexcept;
    /// The last release frees the lane.
    void release() noexcept;

    /// Fetches the message that messageArrived announced, as far as the parts have room. Never blocks;
    /// copies, so better called without the channel's lock. \return 0, or -1 with `errno`: `ECANCELED` the
    /// client gave up, or the message could not be fetched and its sender was told: there is nothing to reply
    /// to, look for the next message.
    int receive(const SLaneParts& parts, SLaneMessage& message) noexcept;

    /// Replies to the message that was received. Never blocks. \return 0, or -1 with `errno` = `ESRCH`: the
    /// client gave up or has gone.
    int reply(int status, const SLaneParts& parts) noexcept;

    /// Ends the client's call with an error number above 0. \return as reply.
    int replyError(int error) noexcept;

private:
    friend class LaneServer;

    enum class Phase : unsigned int
    {
        IDLE,    // nothing announced to the channel
        QUEUED,  // announced, not received
        RECEIVED // waits for the reply
    };

    ServerLane() noexcept = default;
    ~ServerLane();

    bool takeHello() noexcept;
    void breakOff() noexcept;
    void abandon() noexcept;
    int refuseMessage(int error) noexcept;
    bool hasSenderGone() const noexcept;
    int finish(int status, int error, std::size_t bytes) noexcept;

    std::atomic<unsigned int> m_references{1};
    std::atomic<Phase> m_phase{Phase::IDLE};
    std::atomic<bool> m_removed{false}; // from the server's lanes
    LaneMemory m_memory;
    int m_socket = -1;
    int m_bell = -1;       // rung by the client
    int m_clientBell = -1; // rung here
    int m_pid = 0;
    int m_connection = 0;
    int m_slot = 0;
    std::uint64_t m_tag = 0; // of its events, apart from their kind
    std::uint32_t m_pulsesTaken = 0;
    bool m_pulsesHeldBack = false;
    bool m_opened = false; // the channel knows it
    bool m_isNew = false;  // what it brought along has not been looked at
    bool m_hungUp = false; // kept for its last pulses, which are held back
    std::size_t m_replyRoom = 0;
    unsigned long long m_receivedNs = 0;
};

} // namespace KoPlatform
