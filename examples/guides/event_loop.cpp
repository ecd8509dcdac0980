// One wait for messages, pulses and a timer: a server that counts, and a client in a thread of its own.
#include "pf/oswrapper/CKoThreadCtrl.h"
#include "pf/oswrapper/KoChannelAccess.h"
#include "pf/platform/KoPlatformChannel.h"
#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoPlatformTimer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <initializer_list>

namespace
{

enum PulseCode
{
    TICK = 1,
    STOP = 2
};

constexpr unsigned long long NS_PER_MS = 1000000U;

class Counter
{
public:
    Counter()
        : m_channel(KoPlatform::ChannelCreate(0))
    {
        KoChannelAccess::attach(m_self, m_channel, 0, 0);
        const KoPlatform::SPulseEvent tick{m_self, 10, TICK, 0};
        m_timer = KoPlatform::TimerCreate(KoPlatform::CLOCK_ID_MONOTONIC, &tick);
        const KoPlatform::STimerSetting every5Ms{5 * NS_PER_MS, 5 * NS_PER_MS};
        KoPlatform::TimerSettime(m_timer, 0, &every5Ms, nullptr);
    }

    ~Counter()
    {
        KoPlatform::TimerDestroy(m_timer);
        KoPlatform::ConnectDetach(m_self);
        KoPlatform::ChannelDestroy(m_channel);
    }

    int channel() const { return m_channel; }
    int ticks() const { return m_ticks; }

    void run()
    {
        for (;;)
        {
            _pulse received; // has room for a message, too
            _msg_info info;
            const int id =
                KoChannelAccess::receiveMessageOrPulse(m_channel, &received, sizeof(received), 1000, &info);
            if (id > 0)
            {
                answer(id, &received, info.srcmsglen);
            }
            else if (id < 0 || received.code == STOP)
            {
                return; // nothing for a second (errno is ETIMEDOUT), or told to
            }
            else
            {
                ++m_ticks;
            }
        }
    }

private:
    void answer(int id, const void* message, int bytes)
    {
        int amount = -1;
        if (bytes == sizeof(amount))
        {
            std::memcpy(&amount, message, sizeof(amount));
        }
        if (amount < 0)
        {
            KoPlatform::MsgError(id, EINVAL); // the client's call fails with this error
            return;
        }
        m_sum += amount;
        KoPlatform::MsgReply(id, 0, &m_sum, sizeof(m_sum));
    }

    int m_channel;
    int m_self = -1;
    int m_timer = -1;
    int m_sum = 0;
    int m_ticks = 0;
};

class Client final : public CKoThreadCtrl::IRunnable
{
public:
    explicit Client(int channel) { KoChannelAccess::attach(m_counter, channel, 0, 0); }
    ~Client() override { KoPlatform::ConnectDetach(m_counter); }

private:
    void run() override
    {
        for (const int amount : {20, 22, -1})
        {
            int sum = 0;
            const int status = KoChannelAccess::send(m_counter, &amount, sizeof(amount), &sum, sizeof(sum));
            if (status == 0)
            {
                std::printf("sum %d\n", sum);
            }
            else
            {
                std::printf("refused: %s\n", errno == EINVAL ? "EINVAL" : "?");
            }
        }
        KoPlatform::delay(30); // some ticks
        KoPlatform::MsgSendPulse(m_counter, -1, STOP, 0);
    }

    int m_counter = -1;
};

} // namespace

int main()
{
    Counter counter;
    Client client(counter.channel());
    const int thread = CKoThreadCtrl::startThread(client, false, CKoThreadCtrl::INHERITPRIORITY,
                                                  CKoThreadCtrl::DEFAULTSTACKSIZE);
    counter.run();
    CKoThreadCtrl::join(thread, -1);
    std::printf("ticks: %s\n", counter.ticks() > 0 ? "some" : "none");
    return counter.ticks() > 0 ? 0 : 1;
}
