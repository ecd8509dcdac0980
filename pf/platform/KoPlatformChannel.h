#pragma once

#include "pf/base/KoExport.h"

#include <csignal>
#include <cstdint>
#include <sys/uio.h>

/// A pulse as receives deliver it: a small notification that nobody replies to. 16 bytes on every target.
struct _pulse
{
    std::uint16_t type;            ///< 0
    std::uint16_t subtype;         ///< 0
    std::int8_t code;              ///< given by the sender
    std::uint8_t unused[3];        ///< 0
    alignas(8) union sigval value; ///< given by the sender; holds a whole pointer on every target
};

/// What a receive tells about a message. Of a pulse it tells `chid`, `scoid` and `priority`; all else is 0.
struct _msg_info
{
    int pid;       ///< the sender's process
    int tid;       ///< the sender's thread, numbered as in KoPlatformThread.h
    int chid;      ///< the channel it came in on
    int coid;      ///< the connection, as the sender knows it
    int scoid;     ///< the connection, as the receiver knows it
    int msglen;    ///< bytes that were copied to the receiver
    int srcmsglen; ///< bytes the sender sent
    int dstmsglen; ///< bytes the sender has room for in its reply
    int priority;  ///< of the sender or the pulse
};

/// Message channels: a server receives on a channel, clients send on connections to it, within a process or
/// between processes of one host.
///
/// A send blocks until the message has been received and replied to. The order of delivery is by priority
/// (that of the sending thread, or the pulse's), then by arrival. Message sizes are limited by INT_MAX only.
/// A pulse never blocks its sender and is never replied to.
///
/// All functions return -1 with `errno` on failure; any thread may call them, any number of threads on one
/// channel or connection. Calls that block honour an armed timeout (KoPlatformTimeout.h): receives for the
/// receive state, sends for the send and the reply state. They are the places where a thread that is
/// being terminated ends.
///
/// Only processes of the same user, or root, may connect. A forked child has none of its parent's
/// channels, connections and timers.
namespace KoPlatform
{

/// Flags of ChannelCreate. Both are accepted; delivery is by priority anyway, and a client that gives up is
/// seen by the failure of the reply only: no pulse tells of it.
constexpr unsigned int CHANNEL_FIXED_PRIORITY = 0x1U;
constexpr unsigned int CHANNEL_UNBLOCK = 0x2U;

/// Index of ConnectAttach that asks for a connection id outside the range of descriptors. All connection ids
/// are, whatever index is asked for.
constexpr unsigned int CONNECTION_SIDE_CHANNEL = 0x40000000U;

/// Flag of ConnectAttach: the connection ends with `exec`. All connections do.
constexpr int CONNECTION_CLOSE_ON_EXEC = 0x1;

/// Pulses that a channel queues at most, those of timers apart.
constexpr int MAX_QUEUED_PULSES = 4096;

/// Creates a channel that any process of the same user may connect to.
/// \param flags any of the flags above.
/// \return the channel's id, above 0, the lowest that is free. `EINVAL` for other flags; `ENOMEM`; `EMFILE`
/// or `ENFILE` without free descriptors; `EAGAIN` when the process has too many channels.
KO_EXPORT int ChannelCreate(unsigned int flags);

/// Destroys a channel with all that is queued on it. Blocked receives and sends on it fail with `ESRCH` at
/// once, also those whose message was received and not replied to. Connections to it stay attached and
/// fail with `ESRCH`; its timers stay until they are destroyed and never expire again.
/// \return 0; `EINVAL` when there is no such channel.
KO_EXPORT int ChannelDestroy(int chid);

/// Connects to a channel. This asks nothing of the server. The first client from another process that a
/// channel ever has may find its receiver up to 10 ms late.
///
/// \param node 0, the own host; any other is `ENOTSUP`.
/// \param pid the channel's process; 0 is the calling one.
/// \param index 0 or CONNECTION_SIDE_CHANNEL.
/// \param flags 0 or CONNECTION_CLOSE_ON_EXEC.
/// \return the connection's id, never a descriptor's number. `ESRCH` when there is no such process or
/// channel; `EPERM` when it is another user's; `EINVAL` for other flags; `ENOMEM`, `EMFILE`, `ENFILE`,
/// `EFBIG`; `EAGAIN` when the process has too many connections, or when too many clients connect to the
/// server at this moment.
KO_EXPORT int ConnectAttach(unsigned int node, int pid, int chid, unsigned int index, int flags);

/// Ends a connection. Threads that are blocked in a send on it fail with `EBADF`. Pulses that were sent
/// stay queued; timers that are aimed at it expire without effect from then on.
/// \return 0; `EINVAL` when there is no such connection.
KO_EXPORT int ConnectDetach(int coid);

/// Sends a message and waits until it has been replied to.
/// \param message its bytes; may be null for none.
/// \param reply receives as much of the reply as has room; may be null for none.
/// \return the status that the server replied with. `EBADF` when there is no such connection, or when it ends
/// meanwhile; `ESRCH` when the channel or its process is gone or ends meanwhile; `ETIMEDOUT` when an armed
/// timeout ran out; `EINVAL` for negative sizes and for null with a size above 0; `EMFILE`, `ENOMEM`,
/// `EAGAIN`, `EFBIG` (the process's limit of file sizes) when the message could not be carried to another
/// process; else the error that the server gave to
/// MsgError. Interruptions by signals are absorbed. After a failure the server may have received the message,
/// but its reply reaches nobody.
KO_EXPORT int MsgSend(int coid, const void* message, int bytes, void* reply, int replyBytes);

/// The same with parts. A part list may be null if its count is 0. Besides, `EMSGSIZE` when a sum of lengths
/// is beyond INT_MAX.
KO_EXPORT int MsgSendv(int coid, const iovec* parts, int partCount, const iovec* replyParts,
                       int replyPartCount);

/// Waits for a message or a pulse, whichever is first in the order of delivery.
/// \param buffer receives as much of the message or the `_pulse` record as has room; may be null for none.
/// \param info receives what there is to tell, if it is not null.
/// \return the receive id of a message, above 0, which has to be replied to; 0 for a pulse. `ESRCH` when
/// there is no such channel, or when it is destroyed meanwhile; `ETIMEDOUT` when an armed timeout ran out;
/// `EINTR` when a signal handler interrupted the wait; `EINVAL` for a negative size and for null with a size
/// above 0. What is queued already is delivered even when the deadline has passed.
KO_EXPORT int MsgReceive(int chid, void* buffer, int bytes, _msg_info* info);

/// The same into parts. A part list may be null if its count is 0. Besides, `EMSGSIZE` when the sum of the
/// lengths is beyond INT_MAX.
KO_EXPORT int MsgReceivev(int chid, const iovec* parts, int partCount, _msg_info* info);

/// Waits for a pulse; messages stay queued. Parameters and failures as of MsgReceive. \return 0.
KO_EXPORT int MsgReceivePulse(int chid, void* pulse, int bytes, _msg_info* info);

/// Replies to a received message and so ends the sender's call. Any thread of the receiving process may
/// reply, once. Never blocks. \param status what the sender's call returns, 0 or above. \param reply its
/// bytes, of which the sender gets as many as it has room for; may be null for none. \return 0. `ESRCH` when
/// the receive id is not one that waits for a reply, or when its sender gave up or ended; the id is used up
/// then too. `EINVAL` for a negative status or size and for null with a size above 0: the id stays.
KO_EXPORT int MsgReply(int rcvid, int status, const void* reply, int bytes);

/// The same with parts. A part list may be null if its count is 0. Besides, `EMSGSIZE` when the sum of the
/// lengths is beyond INT_MAX.
KO_EXPORT int MsgReplyv(int rcvid, int status, const iovec* parts, int partCount);

/// Ends the sender's call with a failure: it returns -1 and `errno` has the given value, above 0. Results as
/// of MsgReply.
KO_EXPORT int MsgError(int rcvid, int error);

/// Queues a pulse on the connection's channel.
/// \param priority from 0 to 255; -1 is that of the calling thread.
/// \param code from -128 to 127.
/// \param value a number or a pointer, delivered as it is.
/// \return 0. `EBADF` when there is no such connection; `ESRCH` when the channel or its process is gone;
/// `EAGAIN` when the queue is full; `EINVAL` for a priority or code out of range; `ENOMEM`, `EMFILE` when it
/// could not be queued.
KO_EXPORT int MsgSendPulse(int coid, int priority, int code, std::intptr_t value);

} // namespace KoPlatform
