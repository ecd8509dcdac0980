#include "pf/util/CKoTimeSpan.h"

#include <type_traits>

namespace
{

constexpr unsigned int SECONDS_IN_MINUTE = 60;
constexpr unsigned int SECONDS_IN_HOUR = 3600;
constexpr unsigned int SECONDS_IN_DAY = 86400;

constexpr unsigned long long MICROS_IN_SECOND = 1000000ULL;
constexpr unsigned long long MICROS_IN_MINUTE = SECONDS_IN_MINUTE * MICROS_IN_SECOND;
constexpr unsigned long long MICROS_IN_HOUR = SECONDS_IN_HOUR * MICROS_IN_SECOND;
constexpr unsigned long long MICROS_IN_DAY = SECONDS_IN_DAY * MICROS_IN_SECOND;

/// A count as its two's complement, which unsigned arithmetic wraps correctly.
unsigned long long countOf(long long value, unsigned long long unit)
{
    return static_cast<unsigned long long>(value) * unit;
}

} // namespace

static_assert(sizeof(CKoTimeSpan) == 8 && std::is_trivially_destructible_v<CKoTimeSpan>, "a plain count");
static_assert(sizeof(CKoTimeSpan::Span) == 12, "fields without gaps");

CKoTimeSpan::Span::Span()
    : Span(false, 0, 0, 0, 0, 0)
{
}

CKoTimeSpan::Span::Span(bool isNegative, unsigned int theDays, unsigned char theHours,
                        unsigned char theMinutes, unsigned char theSeconds, unsigned int theMicroseconds)
    : negative(isNegative)
    , hours(theHours)
    , minutes(theMinutes)
    , seconds(theSeconds)
    , days(theDays)
    , microseconds(theMicroseconds)
{
}

bool CKoTimeSpan::Span::operator==(const Span& other) const
{
    return negative == other.negative && hours == other.hours && minutes == other.minutes &&
           seconds == other.seconds && days == other.days && microseconds == other.microseconds;
}

bool CKoTimeSpan::Span::isValid() const
{
    return isSpanValid(*this);
}

CKoTimeSpan::CKoTimeSpan(const Span& span)
    : m_micros(0)
{
    setSpan(span);
}

void CKoTimeSpan::setSpan(const Span& span)
{
    m_micros = static_cast<unsigned long long>(getMicrosFromSpan(span));
}

void CKoTimeSpan::getSpan(Span& span) const
{
    getSpanFromMicros(static_cast<long long>(m_micros), span);
}

void CKoTimeSpan::setSeconds(long long seconds)
{
    m_micros = countOf(seconds, MICROS_IN_SECOND);
}

void CKoTimeSpan::setMinutes(long long minutes)
{
    m_micros = countOf(minutes, MICROS_IN_MINUTE);
}

void CKoTimeSpan::setHours(long long hours)
{
    m_micros = countOf(hours, MICROS_IN_HOUR);
}

void CKoTimeSpan::setDays(int days)
{
    m_micros = countOf(days, MICROS_IN_DAY);
}

unsigned long long CKoTimeSpan::getSeconds() const
{
    return m_micros / MICROS_IN_SECOND;
}

unsigned long long CKoTimeSpan::getMinutes() const
{
    return m_micros / MICROS_IN_MINUTE;
}

unsigned long long CKoTimeSpan::getHours() const
{
    return m_micros / MICROS_IN_HOUR;
}

unsigned long long CKoTimeSpan::getDays() const
{
    return m_micros / MICROS_IN_DAY;
}

int CKoTimeSpan::compareTo(const CKoTimeSpan& other) const
{
    if (m_micros == other.m_micros)
    {
        return 0;
    }
    return m_micros < other.m_micros ? -1 : 1;
}

void CKoTimeSpan::getSpanFromMicros(long long micros, Span& span)
{
    const auto count = static_cast<unsigned long long>(micros);
    const unsigned long long magnitude = micros < 0 ? 0ULL - count : count;
    const unsigned long long seconds = magnitude / MICROS_IN_SECOND;
    const auto secondOfDay = static_cast<unsigned int>(seconds % SECONDS_IN_DAY);
    const unsigned int secondOfHour = secondOfDay % SECONDS_IN_HOUR;

    span.negative = micros < 0;
    span.microseconds = static_cast<unsigned int>(magnitude % MICROS_IN_SECOND);
    span.days = static_cast<unsigned int>(seconds / SECONDS_IN_DAY);
    span.hours = static_cast<unsigned char>(secondOfDay / SECONDS_IN_HOUR);
    span.minutes = static_cast<unsigned char>(secondOfHour / SECONDS_IN_MINUTE);
    span.seconds = static_cast<unsigned char>(secondOfHour % SECONDS_IN_MINUTE);
}

long long CKoTimeSpan::getMicrosFromSpan(const Span& span)
{
    const unsigned int secondOfDay =
        span.hours * SECONDS_IN_HOUR + span.minutes * SECONDS_IN_MINUTE + span.seconds;
    const unsigned long long seconds =
        static_cast<unsigned long long>(span.days) * SECONDS_IN_DAY + secondOfDay;
    const unsigned long long magnitude = seconds * MICROS_IN_SECOND + span.microseconds;
    return static_cast<long long>(span.negative ? 0ULL - magnitude : magnitude);
}

bool CKoTimeSpan::isSpanValid(const Span& span)
{
    return span.hours <= 23 && span.minutes <= 59 && span.seconds <= 59 && span.microseconds <= 999999;
}
