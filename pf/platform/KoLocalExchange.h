#pragma once

#include "pf/platform/KoExchange.h"

namespace KoPlatform
{

/// A message to a channel of the own process, on its sender's stack: receiver and replier copy straight from
/// and to the sender's parts.
class LocalExchange final : public Exchange
{
public:
    LocalExchange(const Connection& connection, const SLaneParts& message, const SLaneParts& reply) noexcept;

    /// Queues the message and waits until the exchange has been ended. \return the status, or -1 with
    /// `errno`; `ECANCELED` when the thread is to end.
    int send(unsigned long long deadlineNs) noexcept;

    void retain() noexcept override {}
    void release() noexcept override {}
    int fetch(const SLaneParts& parts, _msg_info& info) noexcept override;
    int reply(int status, const SLaneParts& parts) noexcept override;
    int replyError(int error) noexcept override;

private:
    int queue() noexcept;
    int await(unsigned long long deadlineNs) noexcept;
    bool breakOff(int error) noexcept;
    bool hasEnded() const noexcept;
    void end(int status, int error) noexcept;
    static void wakeSender(void* exchange);

    const SLaneParts& m_message;
    const SLaneParts& m_reply;
    Channel& m_channel;
    const int m_thread;
    int m_status = -1;
    int m_error = 0;
    unsigned int m_ended = 0U; // the word that the sender sleeps on; 1 when the exchange has been ended
};

} // namespace KoPlatform
