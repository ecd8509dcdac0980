#include "pf/util/CKoDateAndTime.h"

#include <cerrno>
#include <climits>
#include <random>

#include <gtest/gtest.h>

#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryDirectory.h"

namespace
{

using Date = CKoDateAndTime::SKoDate;
using Time = CKoDateAndTime::SKoTime;
using Span = CKoTimeSpan::Span;

constexpr unsigned int LAST_DAY = 376564; ///< 3000-12-31
constexpr unsigned long long DAY = CKoDateAndTime::msMicrosIn1Day;

/// The day after a date, by counting.
Date following(Date date)
{
    const bool isLeap = date.year % 400 == 0 || (date.year % 4 == 0 && date.year % 100 != 0);
    const int lengths[] = {31, isLeap ? 29 : 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool isLastOfMonth = date.day == lengths[date.month - 1];
    const bool isLastOfYear = isLastOfMonth && date.month == 12;
    return Date(static_cast<unsigned short>(date.year + isLastOfYear),
                static_cast<unsigned char>(isLastOfYear ? 1 : date.month + isLastOfMonth),
                static_cast<unsigned char>(isLastOfMonth ? 1 : date.day + 1));
}

TEST(CKoDateAndTime, countsEveryDayFrom1970To3000)
{
    const KoTest::ScopedEnvironment zone("TZ", "XST-5");
    Date expected;
    unsigned int weekday = 4;
    for (unsigned int day = 0; day <= LAST_DAY; ++day, weekday = weekday == 6 ? 0 : weekday + 1)
    {
        Date date(0, 0, 0);
        CKoDateAndTime::getDateFromDays(day, date);
        ASSERT_TRUE(date == expected && date.isValid()) << day << " " << date.toString().c_str();
        ASSERT_EQ(day, CKoDateAndTime::getDaysFromDate(date));
        ASSERT_EQ(weekday, CKoDateAndTime::getDayOfWeek(day));
        ASSERT_EQ(weekday, day % 61 == 0 ? CKoDateAndTime::getDayOfWeek(date) : weekday);
        expected = following(expected);
    }
    EXPECT_EQ(Date(3001, 1, 1), expected);
    EXPECT_EQ(19782U, CKoDateAndTime::getDaysFromDate(Date(2024, 2, 29)));
    EXPECT_EQ(4U, CKoDateAndTime::getDayOfWeek(Date(2024, 3, 0))) << "the last day of February";
    EXPECT_EQ((UINT_MAX - 3) % 7, CKoDateAndTime::getDayOfWeek(UINT_MAX - 7));
}

TEST(CKoDateAndTime, agreesWithTheCLibraryOnDatesAndTimes)
{
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    for (int i = 0; i < 20000; ++i)
    {
        const int offset = static_cast<int>(random() % 61) - 30;
        const unsigned long long micros = DAY * 2 + random() % (DAY * LAST_DAY);
        const time_t seconds = static_cast<time_t>(micros / 1000000) + offset * 3600;
        std::tm tm = {};
        char text[32] = "";
        std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", gmtime_r(&seconds, &tm));
        ASSERT_STREQ(text, CKoDateAndTime(micros, false, offset).toString().c_str());

        Date date;
        Time time, sameTime;
        const CKoDateAndTime timestamp(micros, false, 0);
        timestamp.getDateAndTime(date, time, offset);
        timestamp.getTime(sameTime, offset);
        ASSERT_STREQ(text, (date.toString() + " " + time.toString()).c_str());
        ASSERT_TRUE(time == sameTime && time.isValid() && time.microsecond == micros % 1000000);
        ASSERT_EQ(micros, CKoDateAndTime(date, time, -offset).getMicroseconds());

        CKoDateAndTime inSteps(random(), false, 0);
        inSteps.setDate(date);
        inSteps.setTime(time, -offset);
        ASSERT_EQ(micros, inSteps.getMicroseconds());
        timestamp.getDate(date);
        inSteps.setDate(date.year, date.month, 1);
        ASSERT_EQ(micros - DAY * (date.day - 1U), inSteps.getMicroseconds());
    }
}

TEST(CKoDateAndTime, knowsValidDatesAndTimes)
{
    for (const Date& date : {Date(1970, 1, 1), Date(3000, 12, 31), Date(2024, 2, 29), Date(2400, 2, 29)})
        EXPECT_TRUE(date.isValid()) << date.toString().c_str();
    for (const Date& date :
         {Date(1969, 12, 31), Date(3001, 1, 1), Date(2023, 2, 29), Date(2100, 2, 29), Date(2024, 4, 31),
          Date(2024, 0, 1), Date(2024, 13, 1), Date(2024, 1, 0), Date(65535, 1, 1), Date(2024, 255, 1)})
        EXPECT_FALSE(date.isValid()) << date.toString().c_str();
    EXPECT_TRUE(Time(23, 59, 59, 999999).isValid() && Date(2000, 1, 1).isLeapYear());
    for (const Time& time : {Time(24, 0, 0, 0), Time(0, 60, 0, 0), Time(0, 0, 60, 0), Time(0, 0, 0, 1000000)})
        EXPECT_FALSE(time.isValid()) << time.toString().c_str();
}

TEST(CKoDateAndTime, setsWhatIsNoDateOrTimeAsItStands)
{
    const struct
    {
        Date date;
        Time time;
        int offset;
        const char* text;
    } cases[] = {{{2024, 3, 7}, {9, 5, 1, 500000}, 0, "2024-03-07 09:05:01"},
                 {{2024, 3, 7}, {1, 0, 0, 0}, -2, "2024-03-06 23:00:00"},
                 {{2024, 3, 7}, {255, 255, 255, 4000000}, 1, "2024-03-17 20:19:19"},
                 {{2024, 13, 2}, {1, 0, 0, 0}, 0, "2025-01-02 01:00:00"},
                 {{2024, 3, 0}, {1, 0, 0, 0}, 0, "2024-02-29 01:00:00"},
                 {{2024, 14, 1}, {1, 0, 0, 0}, 0, "1970-01-01 00:00:00"},
                 {{2024, 1, 1}, {0, 0, 0, 0}, INT_MAX, "50399-10-10 07:00:00"}};
    for (const auto& [date, time, offset, text] : cases)
        EXPECT_STREQ(text, CKoDateAndTime(date, time, offset).toString().c_str());
    CKoDateAndTime timestamp(DAY + 5, false, 0);
    timestamp.setDate(2024, 14, 1);
    timestamp.setDateAndTime(2024, 0, 1, 1, 1, 1, 1);
    EXPECT_EQ(DAY + 5, timestamp.getMicroseconds()) << "there is no such month";
    timestamp.setTime(23, 30, 0, 7);
    EXPECT_STREQ("1970-01-02 23:30:00", timestamp.toString().c_str());
    EXPECT_STREQ("255:255:255", Time(255, 255, 255, 0).toString().c_str());
    EXPECT_EQ(20U, CKoDateAndTime(ULLONG_MAX, false, 0).toString().length());
}

TEST(CKoDateAndTime, takesSecondsAndTimesOfTheProcesssZone)
{
    const KoTest::ScopedEnvironment zone("TZ", "XST-3");
    std::tm local = {};
    local.tm_mday = 1;
    local.tm_year = 70;
    local.tm_hour = 5;
    EXPECT_EQ(3 * 3600U, CKoDateAndTime(local, 1).getSecondsForUnixBaseTime());
    local.tm_year = local.tm_mon = INT_MAX;
    errno = 0;
    EXPECT_EQ(UINT_MAX, CKoDateAndTime(local, 0).getSecondsForUnixBaseTime());
    EXPECT_EQ(0, errno) << "mktime's stays inside";
    EXPECT_EQ(3600U, CKoDateAndTime(7200, true, -1).getSecondsForUnixBaseTime());
    const auto before = static_cast<unsigned long long>(std::time(nullptr));
    const unsigned long long now = CKoDateAndTime::now(-1).getSecondsForUnixBaseTime() + 3600;
    EXPECT_TRUE(before <= now && now <= static_cast<unsigned long long>(std::time(nullptr)));
}

TEST(CKoDateAndTime, logsAnOverflowOfItsOtherBaseTime)
{
    const KoTest::LogCapture log;
    CKoDateAndTime timestamp;
    timestamp.setMicrosecondsFromUnixBaseTime(0 - 365 * DAY - 1);
    EXPECT_TRUE(timestamp.getMicroseconds() == ULLONG_MAX && log.size() == 0);
    timestamp.setMicrosecondsFromUnixBaseTime(0 - 365 * DAY);
    ASSERT_TRUE(timestamp.getMicroseconds() == 0 && log.size() == 1);
    EXPECT_EQ("2 (10000) " + KoTest::pidPrefix() + "An overflow in the date time calculation has occured",
              log.lines()[0].describe());
}

TEST(CKoTimeSpan, isTakenApartWithItsSign)
{
    const std::pair<long long, Span> cases[] = {{90061000001, {false, 1, 1, 1, 1, 1}},
                                                {-1, {true, 0, 0, 0, 0, 1}},
                                                {0, {}},
                                                {LLONG_MAX, {false, 106751991, 4, 0, 54, 775807}},
                                                {LLONG_MIN, {true, 106751991, 4, 0, 54, 775808}}};
    for (const auto& [micros, span] : cases)
    {
        Span parts(true, 9, 9, 9, 9, 9);
        CKoTimeSpan(static_cast<unsigned long long>(micros)).getSpan(parts);
        EXPECT_TRUE(parts == span && parts.isValid()) << micros;
        EXPECT_EQ(micros, CKoTimeSpan::getMicrosFromSpan(span));
    }
    EXPECT_EQ(30ULL, CKoTimeSpan(Span(false, 0, 30, 0, 0, 0)).getHours());
    EXPECT_TRUE(Span(true, UINT_MAX, 23, 59, 59, 999999).isValid());
    for (const Span& span : {Span(false, 0, 24, 0, 0, 0), Span(false, 0, 0, 60, 0, 0),
                             Span(false, 0, 0, 0, 60, 0), Span(false, 0, 0, 0, 0, 1000000)})
        EXPECT_FALSE(span.isValid());
}

TEST(CKoTimeSpan, isWhatLiesBetweenTimestamps)
{
    CKoTimeSpan span;
    span.setHours(25);
    EXPECT_TRUE(span.getDays() == 1 && span.getHours() == 25 && span.getMinutes() == 1500);
    span.setMinutes(-2);
    EXPECT_EQ(0ULL - 120000000ULL, span.getMicroseconds());
    span.setDays(INT_MIN); // wraps
    EXPECT_EQ(DAY * 0xFFFFFFFF80000000ULL, span.getMicroseconds());
    span.setSeconds(86400);

    const CKoDateAndTime earlier(5, true, 0);
    CKoDateAndTime later(earlier);
    later.addTimeSpan(span);
    EXPECT_EQ(1ULL, later.subTimeStamp(earlier).getDays());
    EXPECT_TRUE(earlier.compareTo(later) == -1 && later.compareTo(earlier) == 1);
    const CKoTimeSpan backward = earlier.subTimeStamp(later);
    EXPECT_TRUE(backward.compareTo(span) == 1 && span.compareTo(backward) == -1) << "as unsigned counts";
    later.addTimeSpan(backward);
    EXPECT_EQ(0, earlier.compareTo(later));
    later.subTimeSpan(CKoTimeSpan(5000000));
    EXPECT_TRUE(later.getMicroseconds() == 0 && span.compareTo(CKoTimeSpan(DAY)) == 0);
}

} // namespace
