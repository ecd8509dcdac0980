#pragma once

#include "pf/platform/KoExchange.h"

namespace KoPlatform
{

/// The receive ids of the process: each stands for a message that was received and waits for its reply.
///
/// An id keeps its exchange (Exchange::retain); that reference passes to whoever takes the id away. Whoever
/// takes an id away owns the exchange from then on and ends it: the replier, or the one who breaks it off. An
/// id holds a number of its own besides its place, so that one that was used up is not mistaken for the next
/// at the same place.
///
/// While the receiver copies the message the id is *pending*: nobody can take it, but it can be marked as
/// ended.
class ReceiveIds
{
public:
    /// Messages that wait for their reply at most, over all channels.
    static constexpr int MAX_RECEIVED = 65536;

    /// Gives an exchange a pending id. \return it, or -1 with `errno`: `EAGAIN`, `ENOMEM`.
    static int add(Exchange& exchange) noexcept;

    /// Ends the pending state. \return 0; or the error number with which the exchange was ended meanwhile:
    /// the id is used up then and the caller ends the exchange.
    static int publish(int receiveId) noexcept;

    /// Takes a pending id back.
    static void remove(int receiveId) noexcept;

    /// Takes an id for its replier. \return null when it is not one that waits for a reply.
    static Exchange* claim(int receiveId) noexcept;

    /// Takes the id of an exchange that its sender or lane breaks off. \return true when the caller owns the
    /// exchange from now on; false when a receiver or a replier is at work with it, and ends it in a moment.
    static bool breakOff(Exchange& exchange, int error) noexcept;

    /// Ends all exchanges of a channel, or those of one connection to it if that is not null.
    static void endAll(const Channel& channel, const Connection* connection, int error) noexcept;

    /// For the forking thread and its child.
    static void lockForFork() noexcept;
    static void unlockAfterFork() noexcept;
    static void startOverInChild() noexcept;
};

} // namespace KoPlatform
