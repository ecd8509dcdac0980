#pragma once

/// \file
/// A duration in microseconds, the companion of CKoDateAndTime: what lies between two timestamps, and what a
/// timestamp is moved by. It can be taken apart into sign, days, hours, minutes, seconds and microseconds.

#include "pf/base/KoExport.h"

/// One 64-bit count. Negative durations are its two's complement: Span and getSpanFromMicros read the sign,
/// the getters in whole units and compareTo take the count as unsigned. Nothing is reported; what does not
/// fit into 64 bits wraps. One object is used by one thread at a time.
class KO_EXPORT CKoTimeSpan
{
public:
    /// A duration taken apart. Nothing is checked on construction.
    struct KO_EXPORT Span
    {
        Span();
        Span(bool negative, unsigned int days, unsigned char hours, unsigned char minutes,
             unsigned char seconds, unsigned int microseconds);

        bool operator==(const Span& other) const;
        bool operator!=(const Span& other) const { return !(*this == other); }

        /// isSpanValid of this.
        bool isValid() const;

        bool negative;
        unsigned char hours;       ///< 0 to 23 in a valid span
        unsigned char minutes;     ///< 0 to 59
        unsigned char seconds;     ///< 0 to 59
        unsigned int days;         ///< without an upper limit
        unsigned int microseconds; ///< 0 to 999,999
    };

    /// No duration.
    CKoTimeSpan()
        : m_micros(0)
    {
    }

    explicit CKoTimeSpan(unsigned long long micros)
        : m_micros(micros)
    {
    }

    /// getMicrosFromSpan of the span.
    CKoTimeSpan(const Span& span);

    void setSpan(const Span& span);
    void getSpan(Span& span) const;

    void setMicroseconds(unsigned long long micros) { m_micros = micros; }
    unsigned long long getMicroseconds() const { return m_micros; }

    /// Sets the duration in whole units.
    void setSeconds(long long seconds);
    void setMinutes(long long minutes);
    void setHours(long long hours);
    void setDays(int days);

    /// The whole units in the count, taken as unsigned.
    unsigned long long getSeconds() const;
    unsigned long long getMinutes() const;
    unsigned long long getHours() const;
    unsigned long long getDays() const;

    /// \return 0 when equal, -1 when this count is the smaller one, 1 when it is the larger one; counts are
    /// taken as unsigned, so a negative duration is larger than any positive one.
    int compareTo(const CKoTimeSpan& other) const;

    /// Takes a signed count apart.
    static void getSpanFromMicros(long long micros, Span& span);

    /// The signed count of a span. Fields beyond their range count for what they are: 30 hours are 30 hours.
    static long long getMicrosFromSpan(const Span& span);

    /// Whether all fields are in their ranges.
    static bool isSpanValid(const Span& span);

private:
    unsigned long long m_micros;
};
