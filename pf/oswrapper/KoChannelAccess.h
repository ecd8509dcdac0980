#pragma once

#include "pf/base/KoExport.h"

struct iovec;
struct _msg_info;

/// Connecting to message channels, sending messages and receiving messages and pulses, each operation bounded
/// by a time-out where that is wanted. Interruptions by signals are absorbed. Creating channels, replying and
/// sending pulses are calls of the platform (KoPlatformChannel.h).
///
/// Time-outs are milliseconds: -1 waits without limit, 0 takes what is there without waiting. An operation
/// has one deadline, which neither interruptions nor dropped pulses extend. Failures give -1 with the reason
/// in the last error, `ETIMEDOUT` once the deadline has passed; nothing is logged. Only the calling thread
/// blocks; any number of threads may receive on one channel or send on one connection. When a channel or its
/// process ends, operations on it fail with `ESRCH`.
namespace KoChannelAccess
{

/// Connects to a channel, in one attempt. \param connection receives the connection's id, -1 on failure.
/// \param pid the channel's process, 0 for the calling one. \param node 0, the own host.
/// \return whether that worked.
KO_EXPORT bool attach(int& connection, const int& channel, int pid, unsigned int node);

/// Sends a message and waits for the reply. \param reply receives as much of the reply as has room.
/// \return the status that the server replied with (0 or above), or -1.
KO_EXPORT int send(const int& connection, const void* message, int messageBytes, void* reply, int replyBytes);

/// The same, from parts and into parts.
KO_EXPORT int sendv(const int& connection, const iovec* messageParts, int messagePartCount,
                    const iovec* replyParts, int replyPartCount);

/// The same, bounded. The server may have received a message whose time ran out; its reply reaches nobody.
KO_EXPORT int sendv(const int& connection, const iovec* messageParts, int messagePartCount,
                    const iovec* replyParts, int replyPartCount, int timeoutMs);

/// Waits for a pulse; messages stay queued. \param pulse receives the `_pulse` record. \return 0, or -1.
KO_EXPORT int receivePulse(const int& channel, void* pulse, int bytes, int timeoutMs);

/// Waits for a message or a pulse. \param buffer receives as much of it as has room. \param info receives
/// what there is to tell about it; may be null. \return the receive id of a message (above 0), which has to
/// be replied to; 0 for a pulse; or -1.
KO_EXPORT int receiveMessageOrPulse(const int& channel, void* buffer, int bytes, int timeoutMs,
                                    _msg_info* info);

/// The same into parts.
KO_EXPORT int receiveMessageOrPulsev(const int& channel, const iovec* parts, int partCount, int timeoutMs,
                                     _msg_info* info);

/// Waits for a message; pulses that come meanwhile are consumed and dropped. \return the receive id (above
/// 0), or -1.
KO_EXPORT int receive(const int& channel, void* buffer, int bytes, int timeoutMs, _msg_info* info);

/// The same into parts.
KO_EXPORT int receivev(const int& channel, const iovec* parts, int partCount, int timeoutMs, _msg_info* info);

} // namespace KoChannelAccess
