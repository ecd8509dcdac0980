#pragma once

/// \file
/// The library's timestamp: microseconds since 1970-01-01 00:00:00, with conversion to and from the Gregorian
/// calendar, arithmetic with CKoTimeSpan, text, and streaming as 8 bytes.
///
///     CKoDateAndTime::SKoDate date;
///     CKoDateAndTime::SKoTime time;
///     CKoDateAndTime::now(0).getDateAndTime(date, time, 2);

#include "pf/base/CKoString.h"
#include "pf/util/CKoTimeSpan.h"

#include <ctime>

class IKoIStream;
class IKoOStream;

/// One unsigned 64-bit count; all arithmetic on it wraps.
///
/// It knows no time zones: an offset is a signed number of whole hours that is added to the value. Setters
/// check nothing (isDateValid and isTimeValid do), except that a month outside 1 to 13 changes nothing; month
/// 13 is the one after December. Dates are exact from 1970 to 3000. From the year 65536 on a year is given
/// modulo 65536. One object is used by one thread at a time.
class KO_EXPORT CKoDateAndTime
{
public:
    static constexpr unsigned long long msMicrosIn1Day = 86400000000ULL;

    /// Of a year of 365 days.
    static constexpr unsigned long long msSecondsIn1Year = 31536000ULL;

    /// A date of the Gregorian calendar. Nothing is checked on construction.
    struct KO_EXPORT SKoDate
    {
        /// 1970-01-01.
        SKoDate()
            : SKoDate(1970, 1, 1)
        {
        }

        SKoDate(unsigned short theYear, unsigned char theMonth, unsigned char theDay)
            : year(theYear)
            , month(theMonth)
            , day(theDay)
        {
        }

        bool operator==(const SKoDate& other) const
        {
            return year == other.year && month == other.month && day == other.day;
        }

        bool operator!=(const SKoDate& other) const { return !(*this == other); }

        bool isLeapYear() const { return CKoDateAndTime::isLeapYear(year); }

        /// isDateValid of this.
        bool isValid() const { return CKoDateAndTime::isDateValid(*this); }

        /// As in 2024-03-07.
        CKoString toString() const;

        unsigned short year;
        unsigned char month; ///< 1 to 12
        unsigned char day;   ///< from 1
    };

    /// A time of day. Nothing is checked on construction.
    struct KO_EXPORT SKoTime
    {
        /// Midnight.
        SKoTime()
            : SKoTime(0, 0, 0, 0)
        {
        }

        SKoTime(unsigned char theHour, unsigned char theMinute, unsigned char theSecond,
                unsigned int theMicrosecond)
            : hour(theHour)
            , minute(theMinute)
            , second(theSecond)
            , microsecond(theMicrosecond)
        {
        }

        bool operator==(const SKoTime& other) const
        {
            return hour == other.hour && minute == other.minute && second == other.second &&
                   microsecond == other.microsecond;
        }

        bool operator!=(const SKoTime& other) const { return !(*this == other); }

        /// isTimeValid of this.
        bool isValid() const { return CKoDateAndTime::isTimeValid(*this); }

        /// As in 09:05:01; the microseconds are not shown.
        CKoString toString() const;

        unsigned char hour;       ///< 0 to 23
        unsigned char minute;     ///< 0 to 59
        unsigned char second;     ///< 0 to 59
        unsigned int microsecond; ///< 0 to 999,999
    };

    /// 1970-01-01 00:00:00.
    CKoDateAndTime()
        : m_micros(0)
    {
    }

    /// \param value microseconds, or seconds when `valueInSeconds` is true.
    CKoDateAndTime(unsigned long long value, bool valueInSeconds, int offsetHours);

    /// As setDateAndTime on 1970-01-01 00:00:00.
    CKoDateAndTime(const SKoDate& date, const SKoTime& time, int offsetHours);

    /// A time in the process's time zone, as mktime understands it; seconds as unsigned 32 bits. A time that
    /// mktime refuses counts as 4,294,967,295 seconds.
    CKoDateAndTime(std::tm time, int offsetHours);

    /// The current time of the system clock, in whole seconds as unsigned 32 bits.
    static CKoDateAndTime now(int offsetHours);

    void setMicroseconds(unsigned long long micros) { m_micros = micros; }
    unsigned long long getMicroseconds() const { return m_micros; }

    /// The same as getMicroseconds, and in whole seconds.
    unsigned long long getMicrosecondsForUnixBaseTime() const { return m_micros; }
    unsigned long long getSecondsForUnixBaseTime() const;

    /// The same as setMicroseconds.
    void setMicrosecondsFromUnixBaseTimeNew(unsigned long long micros) { m_micros = micros; }

    /// Sets `micros` and 365 days. A sum that wraps is kept and logged.
    void setMicrosecondsFromUnixBaseTime(unsigned long long micros);

    void addTimeSpan(const CKoTimeSpan& span);
    void subTimeSpan(const CKoTimeSpan& span);

    /// This minus `other`: negative when `other` is later.
    CKoTimeSpan subTimeStamp(const CKoDateAndTime& other) const;

    /// \return 0 when equal, -1 when this is earlier, 1 when it is later.
    int compareTo(const CKoDateAndTime& other) const;

    void setDateAndTime(const SKoDate& date, const SKoTime& time, int offsetHours);
    void setDateAndTime(unsigned short year, unsigned char month, unsigned char day, unsigned char hour,
                        unsigned char minute, unsigned char second, unsigned int microsecond);

    /// Replaces the day and keeps the time of day.
    void setDate(const SKoDate& date);
    void setDate(unsigned short year, unsigned char month, unsigned char day);

    /// Replaces the time of day and keeps the day. With an offset the time may lie in another day.
    void setTime(const SKoTime& time, int offsetHours);
    void setTime(unsigned char hour, unsigned char minute, unsigned char second, unsigned int microsecond);

    void getDateAndTime(SKoDate& date, SKoTime& time, int offsetHours) const;
    void getDate(SKoDate& date) const;
    void getTime(SKoTime& time, int offsetHours) const;

    /// Date and time of day as in 2024-03-07 09:05:01.
    CKoString toString() const;

    static bool isLeapYear(unsigned short year);

    /// The weekday of a day number: 0 is Sunday, 6 is Saturday. Day 0 is 1970-01-01.
    static unsigned int getDayOfWeek(unsigned int days);

    /// The weekday of a date as mktime finds it; fields out of range are carried over (day 0 is the last day
    /// of the previous month).
    static unsigned int getDayOfWeek(const SKoDate& date);

    /// 13 entries: the days of the year before the first day of each month, and of the whole year.
    static const unsigned short* getDaysFromStart(unsigned short year);

    /// Days from 1970-01-01 to the date; 0 for a month outside 1 to 13.
    static unsigned int getDaysFromDate(const SKoDate& date);

    /// The inverse of getDaysFromDate.
    static void getDateFromDays(unsigned int days, SKoDate& date);

    /// The time of day of so many microseconds and the offset since midnight. The hour is not reduced to a
    /// day.
    static void getTimeFromMicros(unsigned long long micros, SKoTime& time, int offsetHours);

    /// Microseconds since midnight of the time moved by the offset; before midnight they wrap. Both are the
    /// same.
    static unsigned long long getMicroSecFromTime(const SKoTime& time, int offsetHours);
    static unsigned long long getMicrosFromTime(const SKoTime& time, int offsetHours);

    /// Whether the date is one of the years 1970 to 3000.
    static bool isDateValid(const SKoDate& date);

    static bool isTimeValid(const SKoTime& time);

private:
    unsigned long long m_micros;
};

/// Writes, and reads, the microseconds as 8 bytes.
KO_EXPORT IKoOStream& operator<<(IKoOStream& stream, const CKoDateAndTime& time);
KO_EXPORT const IKoIStream& operator>>(const IKoIStream& stream, CKoDateAndTime& time);
