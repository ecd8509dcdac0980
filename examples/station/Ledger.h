#pragma once

#include "Latest.h"
#include "Message.h"
#include "RecordFile.h"
#include "pf/containers/TKoVector.h"

/// What is known of a source.
struct Account
{
    Message::Announcement source; ///< no more than the run and the name while its record is missing
    bool isAnnounced = false;
    unsigned long long next = 0;   ///< the sequence number to come: all before it are recorded or lost
    unsigned long long lost = 0;   ///< sequence numbers that never came
    unsigned long long latest = 0; ///< thousandths of the unit
    long long worstLateness = 0;   ///< of all samples; all times in nanoseconds
    long long firstLateness = 0;   ///< the least of the first window of samples
    long long lastLateness = 0;    ///< the least of the last complete window
    long long currentLateness = 0; ///< the least of the window that is being filled

    unsigned long long samples() const { return next - lost; }
    double worstMs() const;
    /// How far the timer moved off its grid between the first window of samples and the last.
    double driftMs() const;
};

/// All that the records of a station tell: the same for the recorder that keeps them and for whoever reads
/// them later.
class Ledger
{
public:
    enum class Outcome
    {
        TAKEN,
        KNOWN, ///< taken before; not counted again
        NOT_UNDERSTOOD
    };

    Outcome take(const CKoByteStream& message);

    /// Takes all records of a file. Those that are of no use are told and passed over.
    void load(RecordReader& file);

    const TKoVector<Account>& accounts() const { return m_accounts; }
    const Latest& latestSamples() const { return m_latest; }
    unsigned long long samples() const;
    unsigned long long lost() const;
    unsigned int restarts() const { return m_starts > 0 ? m_starts - 1 : 0; }

private:
    Account& accountOf(const CKoDateAndTime& run, const CKoString& name);
    Outcome takeStart(const CKoByteStream& message);
    Outcome takeAnnouncement(const CKoByteStream& message);
    Outcome takeSample(const CKoByteStream& message);

    TKoVector<Account> m_accounts;
    Latest m_latest;
    unsigned int m_starts = 0;
};
