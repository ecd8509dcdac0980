#include "pf/util/CKoDateAndTime.h"

#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/stream/KoStreamOperators.h"

#include <type_traits>

namespace
{

constexpr unsigned int SECONDS_IN_HOUR = 3600;
constexpr unsigned long long MICROS_IN_SECOND = 1000000ULL;
constexpr long long MICROS_IN_HOUR = 3600000000LL;

constexpr unsigned int FIRST_YEAR = 1970;
constexpr unsigned int LAST_YEAR = 3000;

/// Days of the year before the first day of each month, and of the whole year.
constexpr unsigned int MONTHS = 12;
constexpr unsigned short COMMON_YEAR[MONTHS + 1] = {0,   31,  59,  90,  120, 151, 181,
                                                    212, 243, 273, 304, 334, 365};
constexpr unsigned short LEAP_YEAR[MONTHS + 1] = {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366};

// The calendar of the conversions begins on March 1st of the year 0: then February 29th is the last day of
// its year, every 400 years have the same number of days, and the lengths of the months repeat every five.
constexpr unsigned int DAYS_BEFORE_1970 = 719468;
constexpr unsigned int DAYS_IN_400_YEARS = 146097;
constexpr unsigned int DAYS_IN_4_YEARS = 1461;

/// The first day of the year, counted from March 1st, that lies in the next calendar year.
constexpr unsigned int NEW_YEAR = 306;

unsigned long long offsetMicros(int offsetHours)
{
    return static_cast<unsigned long long>(offsetHours * MICROS_IN_HOUR);
}

bool isMonthInTables(unsigned char month)
{
    return month >= 1 && month <= MONTHS + 1;
}

/// Leap years among the years 1 to `year`.
int leapYearsUpTo(int year)
{
    return year / 4 - year / 100 + year / 400;
}

/// Writes two digits, or three for a number that needs them. \return the position behind them.
char* putField(char* out, unsigned int value)
{
    if (value >= 100U)
    {
        *out++ = static_cast<char>('0' + value / 100U);
        value %= 100U;
    }
    out[0] = static_cast<char>('0' + value / 10U);
    out[1] = static_cast<char>('0' + value % 10U);
    return out + 2;
}

/// Writes as many digits as the number has.
char* putYear(char* out, unsigned int year)
{
    if (year >= 1000U)
    {
        out = putField(out, year / 100U);
        return putField(out, year % 100U);
    }
    if (year >= 10U)
    {
        return putField(out, year);
    }
    *out = static_cast<char>('0' + year);
    return out + 1;
}

// What the longest texts need: 65535-255-255 and 255:255:255.
constexpr unsigned int DATE_ROOM = 13;
constexpr unsigned int TIME_ROOM = 11;

char* putDate(char* out, const CKoDateAndTime::SKoDate& date)
{
    out = putYear(out, date.year);
    *out++ = '-';
    out = putField(out, date.month);
    *out++ = '-';
    return putField(out, date.day);
}

char* putTime(char* out, const CKoDateAndTime::SKoTime& time)
{
    out = putField(out, time.hour);
    *out++ = ':';
    out = putField(out, time.minute);
    *out++ = ':';
    return putField(out, time.second);
}

/// mktime, which may have to read the time zone first and tells in errno what it refuses; here the result
/// does.
std::time_t normalize(std::tm& time)
{
    const KoErrnoGuard guard;
    return std::mktime(&time);
}

CKoString stringOf(const char* first, const char* last)
{
    return CKoString(first, static_cast<unsigned int>(last - first));
}

} // namespace

static_assert(sizeof(CKoDateAndTime) == 8 && std::is_trivially_destructible_v<CKoDateAndTime>,
              "a plain count");
static_assert(sizeof(CKoDateAndTime::SKoDate) == 4 && sizeof(CKoDateAndTime::SKoTime) == 8, "plain fields");

// --- Texts ------------------------------------------------------------------------------------------------

CKoString CKoDateAndTime::SKoDate::toString() const
{
    char text[DATE_ROOM];
    return stringOf(text, putDate(text, *this));
}

CKoString CKoDateAndTime::SKoTime::toString() const
{
    char text[TIME_ROOM];
    return stringOf(text, putTime(text, *this));
}

CKoString CKoDateAndTime::toString() const
{
    SKoDate date;
    SKoTime time;
    getDateAndTime(date, time, 0);

    char text[DATE_ROOM + 1 + TIME_ROOM];
    char* out = putDate(text, date);
    *out++ = ' ';
    return stringOf(text, putTime(out, time));
}

// --- Construction and the raw value -----------------------------------------------------------------------

CKoDateAndTime::CKoDateAndTime(unsigned long long value, bool valueInSeconds, int offsetHours)
    : m_micros(value * (valueInSeconds ? MICROS_IN_SECOND : 1ULL) + offsetMicros(offsetHours))
{
}

CKoDateAndTime::CKoDateAndTime(const SKoDate& date, const SKoTime& time, int offsetHours)
    : m_micros(0)
{
    setDateAndTime(date, time, offsetHours);
}

CKoDateAndTime::CKoDateAndTime(std::tm time, int offsetHours)
    : CKoDateAndTime(static_cast<unsigned int>(normalize(time)), true, offsetHours)
{
}

CKoDateAndTime CKoDateAndTime::now(int offsetHours)
{
    return CKoDateAndTime(static_cast<unsigned int>(std::time(nullptr)), true, offsetHours);
}

unsigned long long CKoDateAndTime::getSecondsForUnixBaseTime() const
{
    return m_micros / MICROS_IN_SECOND;
}

void CKoDateAndTime::setMicrosecondsFromUnixBaseTime(unsigned long long micros)
{
    m_micros = micros + msSecondsIn1Year * MICROS_IN_SECOND;
    if (m_micros < micros)
    {
        KoSyslog::logMsg(0, KoSyslog::Error, "An overflow in the date time calculation has occured");
    }
}

// --- Arithmetic -------------------------------------------------------------------------------------------

void CKoDateAndTime::addTimeSpan(const CKoTimeSpan& span)
{
    m_micros += span.getMicroseconds();
}

void CKoDateAndTime::subTimeSpan(const CKoTimeSpan& span)
{
    m_micros -= span.getMicroseconds();
}

CKoTimeSpan CKoDateAndTime::subTimeStamp(const CKoDateAndTime& other) const
{
    return CKoTimeSpan(m_micros - other.m_micros);
}

int CKoDateAndTime::compareTo(const CKoDateAndTime& other) const
{
    if (m_micros == other.m_micros)
    {
        return 0;
    }
    return m_micros < other.m_micros ? -1 : 1;
}

// --- Setters ----------------------------------------------------------------------------------------------

void CKoDateAndTime::setDateAndTime(const SKoDate& date, const SKoTime& time, int offsetHours)
{
    if (isMonthInTables(date.month))
    {
        m_micros = getDaysFromDate(date) * msMicrosIn1Day + getMicroSecFromTime(time, offsetHours);
    }
}

void CKoDateAndTime::setDateAndTime(unsigned short year, unsigned char month, unsigned char day,
                                    unsigned char hour, unsigned char minute, unsigned char second,
                                    unsigned int microsecond)
{
    setDateAndTime(SKoDate(year, month, day), SKoTime(hour, minute, second, microsecond), 0);
}

void CKoDateAndTime::setDate(const SKoDate& date)
{
    if (isMonthInTables(date.month))
    {
        m_micros = getDaysFromDate(date) * msMicrosIn1Day + m_micros % msMicrosIn1Day;
    }
}

void CKoDateAndTime::setDate(unsigned short year, unsigned char month, unsigned char day)
{
    setDate(SKoDate(year, month, day));
}

void CKoDateAndTime::setTime(const SKoTime& time, int offsetHours)
{
    m_micros = m_micros - m_micros % msMicrosIn1Day + getMicroSecFromTime(time, offsetHours);
}

void CKoDateAndTime::setTime(unsigned char hour, unsigned char minute, unsigned char second,
                             unsigned int microsecond)
{
    setTime(SKoTime(hour, minute, second, microsecond), 0);
}

// --- Getters ----------------------------------------------------------------------------------------------

void CKoDateAndTime::getDateAndTime(SKoDate& date, SKoTime& time, int offsetHours) const
{
    const unsigned long long micros = m_micros + offsetMicros(offsetHours);
    getDateFromDays(static_cast<unsigned int>(micros / msMicrosIn1Day), date);
    getTimeFromMicros(micros % msMicrosIn1Day, time, 0);
}

void CKoDateAndTime::getDate(SKoDate& date) const
{
    getDateFromDays(static_cast<unsigned int>(m_micros / msMicrosIn1Day), date);
}

void CKoDateAndTime::getTime(SKoTime& time, int offsetHours) const
{
    getTimeFromMicros((m_micros + offsetMicros(offsetHours)) % msMicrosIn1Day, time, 0);
}

// --- The calendar -----------------------------------------------------------------------------------------

bool CKoDateAndTime::isLeapYear(unsigned short year)
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

unsigned int CKoDateAndTime::getDayOfWeek(unsigned int days)
{
    // Reduced first, so that the sum does not wrap. Day 0 is a Thursday.
    return (days % 7U + 4U) % 7U;
}

unsigned int CKoDateAndTime::getDayOfWeek(const SKoDate& date)
{
    std::tm midnight = {};
    midnight.tm_mday = date.day;
    midnight.tm_mon = date.month - 1;
    midnight.tm_year = date.year - 1900;
    midnight.tm_isdst = -1; // the date's own rule
    normalize(midnight);
    return static_cast<unsigned int>(midnight.tm_wday);
}

const unsigned short* CKoDateAndTime::getDaysFromStart(unsigned short year)
{
    return isLeapYear(year) ? LEAP_YEAR : COMMON_YEAR;
}

unsigned int CKoDateAndTime::getDaysFromDate(const SKoDate& date)
{
    if (!isMonthInTables(date.month))
    {
        return 0;
    }
    const int yearBefore = date.year - 1;
    const int leapYears = leapYearsUpTo(yearBefore) - leapYearsUpTo(FIRST_YEAR - 1);
    const int newYear = 365 * (yearBefore - static_cast<int>(FIRST_YEAR - 1)) + leapYears;
    return static_cast<unsigned int>(newYear + getDaysFromStart(date.year)[date.month - 1] + date.day - 1);
}

/// Counts quarters of a day, of which every year, and every century, has the same number: the division rounds
/// where the calendar does. A month is found likewise in parts of 1/65536 month, of which a day has 2141:
/// five months from March on have 153 days, 30.6 each.
void CKoDateAndTime::getDateFromDays(unsigned int days, SKoDate& date)
{
    const unsigned int quarterDays = 4U * (days + DAYS_BEFORE_1970) + 3U;
    const unsigned int century = quarterDays / DAYS_IN_400_YEARS;
    const unsigned int quarterDayOfCentury = quarterDays % DAYS_IN_400_YEARS | 3U;

    const unsigned int yearOfCentury = quarterDayOfCentury / DAYS_IN_4_YEARS;
    const unsigned int dayOfYear = quarterDayOfCentury % DAYS_IN_4_YEARS / 4U;

    const unsigned int scaledMonth = 2141U * dayOfYear + 197913U;
    const unsigned int month = scaledMonth >> 16U;
    const bool isNextYear = dayOfYear >= NEW_YEAR;

    date.year = static_cast<unsigned short>(100U * century + yearOfCentury + (isNextYear ? 1U : 0U));
    date.month = static_cast<unsigned char>(isNextYear ? month - MONTHS : month);
    date.day = static_cast<unsigned char>((scaledMonth & 0xFFFFU) / 2141U + 1U);
}

void CKoDateAndTime::getTimeFromMicros(unsigned long long micros, SKoTime& time, int offsetHours)
{
    micros += offsetMicros(offsetHours);
    const auto seconds = static_cast<unsigned int>(micros / MICROS_IN_SECOND);
    time.microsecond = static_cast<unsigned int>(micros % MICROS_IN_SECOND);
    time.hour = static_cast<unsigned char>(seconds / SECONDS_IN_HOUR);
    time.minute = static_cast<unsigned char>(seconds % SECONDS_IN_HOUR / 60U);
    time.second = static_cast<unsigned char>(seconds % 60U);
}

unsigned long long CKoDateAndTime::getMicroSecFromTime(const SKoTime& time, int offsetHours)
{
    // The sum of the hours wraps at 32 bits; what it is multiplied to then fits.
    const int hours = static_cast<int>(time.hour + static_cast<unsigned int>(offsetHours));
    const int secondOfHour = time.minute * 60 + time.second;
    const long long seconds = static_cast<long long>(hours) * SECONDS_IN_HOUR + secondOfHour;
    return static_cast<unsigned long long>(seconds * static_cast<long long>(MICROS_IN_SECOND) +
                                           time.microsecond);
}

unsigned long long CKoDateAndTime::getMicrosFromTime(const SKoTime& time, int offsetHours)
{
    return getMicroSecFromTime(time, offsetHours);
}

bool CKoDateAndTime::isDateValid(const SKoDate& date)
{
    if (date.year < FIRST_YEAR || date.year > LAST_YEAR || date.month < 1 || date.month > MONTHS)
    {
        return false;
    }
    const unsigned short* const daysFromStart = getDaysFromStart(date.year);
    return date.day >= 1 && date.day <= daysFromStart[date.month] - daysFromStart[date.month - 1];
}

bool CKoDateAndTime::isTimeValid(const SKoTime& time)
{
    return time.hour <= 23 && time.minute <= 59 && time.second <= 59 && time.microsecond <= 999999;
}

// --- Streams ----------------------------------------------------------------------------------------------

IKoOStream& operator<<(IKoOStream& stream, const CKoDateAndTime& time)
{
    return stream << time.getMicroseconds();
}

const IKoIStream& operator>>(const IKoIStream& stream, CKoDateAndTime& time)
{
    unsigned long long micros = time.getMicroseconds();
    stream >> micros;
    time.setMicroseconds(micros);
    return stream;
}
