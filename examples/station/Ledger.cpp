#include "Ledger.h"

#include <algorithm>

namespace
{

/// Lateness comes and goes with what else the machine does; the least of so many samples hardly does. A timer
/// that leaves its grid is seen by a least lateness that grows from window to window.
constexpr unsigned int WINDOW = 8;

constexpr double NS_PER_MS = 1e6;

void judge(Account& account, unsigned int sequence, long long lateness)
{
    const bool isFirstOfWindow = sequence % WINDOW == 0;
    const bool isFirst = sequence == 0;
    account.worstLateness = isFirst ? lateness : std::max(account.worstLateness, lateness);
    account.currentLateness = isFirstOfWindow ? lateness : std::min(account.currentLateness, lateness);
    if (sequence % WINDOW == WINDOW - 1)
    {
        account.lastLateness = account.currentLateness;
        account.firstLateness = sequence < WINDOW ? account.lastLateness : account.firstLateness;
    }
}

const char* faultOf(Ledger::Outcome outcome)
{
    return outcome == Ledger::Outcome::KNOWN ? "was there before" : "is not understood";
}

} // namespace

double Account::worstMs() const
{
    return static_cast<double>(worstLateness) / NS_PER_MS;
}

double Account::driftMs() const
{
    return (static_cast<double>(lastLateness) - static_cast<double>(firstLateness)) / NS_PER_MS;
}

Ledger::Outcome Ledger::take(const CKoByteStream& message)
{
    const CKoByteStream fromFront(message);
    switch (Message::kindOf(fromFront))
    {
    case Message::START:
        return takeStart(fromFront);
    case Message::ANNOUNCE:
        return takeAnnouncement(fromFront);
    case Message::SAMPLE:
        return takeSample(fromFront);
    default:
        return Outcome::NOT_UNDERSTOOD;
    }
}

void Ledger::load(RecordReader& file)
{
    CKoByteStream record;
    while (file.next(record))
    {
        const Outcome outcome = take(record);
        if (outcome != Outcome::TAKEN)
        {
            file.reject(faultOf(outcome));
        }
    }
}

unsigned long long Ledger::samples() const
{
    unsigned long long sum = 0;
    for (const Account& account : m_accounts)
    {
        sum += account.samples();
    }
    return sum;
}

unsigned long long Ledger::lost() const
{
    unsigned long long sum = 0;
    for (const Account& account : m_accounts)
    {
        sum += account.lost;
    }
    return sum;
}

Account& Ledger::accountOf(const CKoDateAndTime& run, const CKoString& name)
{
    const auto found = std::find_if(m_accounts.begin(), m_accounts.end(),
                                    [&](const Account& account)
                                    {
                                        const Message::Announcement& source = account.source;
                                        return source.run.compareTo(run) == 0 && source.name == name;
                                    });
    if (found != m_accounts.end())
    {
        return *found;
    }
    Account account;
    account.source.run = run;
    account.source.name = name;
    m_accounts.push_back(account);
    return *(m_accounts.end() - 1);
}

Ledger::Outcome Ledger::takeStart(const CKoByteStream& message)
{
    Message::Start start;
    if (!Message::readBody(message, start))
    {
        return Outcome::NOT_UNDERSTOOD;
    }
    ++m_starts;
    return Outcome::TAKEN;
}

Ledger::Outcome Ledger::takeAnnouncement(const CKoByteStream& message)
{
    Message::Announcement source;
    if (!Message::readBody(message, source))
    {
        return Outcome::NOT_UNDERSTOOD;
    }
    Account& account = accountOf(source.run, source.name);
    if (account.isAnnounced)
    {
        return Outcome::KNOWN;
    }
    account.source = source;
    account.isAnnounced = true;
    return Outcome::TAKEN;
}

Ledger::Outcome Ledger::takeSample(const CKoByteStream& message)
{
    Message::Sample sample;
    if (!Message::readBody(message, sample))
    {
        return Outcome::NOT_UNDERSTOOD;
    }
    Account& account = accountOf(sample.run, sample.name);
    if (sample.sequence < account.next)
    {
        return Outcome::KNOWN;
    }
    account.lost += sample.sequence - account.next;
    judge(account, sample.sequence, sample.lateness);
    account.next = sample.sequence + 1ULL;
    account.latest = sample.value;
    m_latest.add(message);
    return Outcome::TAKEN;
}
