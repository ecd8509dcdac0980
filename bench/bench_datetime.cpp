// A million timestamps taken apart into date and time and put together again, and written as text, beside the
// C library and what a user would pick instead.

#include "pf/util/CKoDateAndTime.h"

#include <benchmark/benchmark.h>

#include <ctime>
#include <random>
#include <vector>

#ifdef KO_BENCH_QT
#include <QDateTime>
#endif
#ifdef KO_BENCH_ABSL
#include <absl/time/civil_time.h>
#endif

namespace
{

constexpr int COUNT = 1000000;
constexpr unsigned long long MICROS_IN_SECOND = 1000000ULL;
constexpr unsigned long long LAST_DAY = 376564ULL; ///< 3000-12-31

std::vector<unsigned long long> makeTimestamps()
{
    std::mt19937_64 random(1);
    std::uniform_int_distribution<unsigned long long> any(0, CKoDateAndTime::msMicrosIn1Day * LAST_DAY);
    std::vector<unsigned long long> timestamps(COUNT);
    for (unsigned long long& timestamp : timestamps)
    {
        timestamp = any(random);
    }
    return timestamps;
}

/// Takes a count of microseconds apart and gives the count of what it was taken into.
using Convert = unsigned long long (*)(unsigned long long micros);

unsigned long long withDateAndTime(unsigned long long micros)
{
    CKoDateAndTime::SKoDate date;
    CKoDateAndTime::SKoTime time;
    CKoDateAndTime timestamp(micros, false, 0);
    timestamp.getDateAndTime(date, time, 0);
    benchmark::DoNotOptimize(date);
    benchmark::DoNotOptimize(time);
    timestamp.setDateAndTime(date, time, 0);
    return timestamp.getMicroseconds();
}

unsigned long long withGmtime(unsigned long long micros)
{
    const auto seconds = static_cast<time_t>(micros / MICROS_IN_SECOND);
    std::tm parts;
    gmtime_r(&seconds, &parts);
    benchmark::DoNotOptimize(parts);
    return static_cast<unsigned long long>(timegm(&parts)) * MICROS_IN_SECOND + micros % MICROS_IN_SECOND;
}

#ifdef KO_BENCH_QT
unsigned long long withQDateTime(unsigned long long micros)
{
    const QDateTime timestamp = QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(micros / 1000), Qt::UTC);
    QDate date = timestamp.date();
    QTime time = timestamp.time();
    int year = 0;
    int month = 0;
    int day = 0;
    date.getDate(&year, &month, &day);
    benchmark::DoNotOptimize(year);
    benchmark::DoNotOptimize(time);
    const QDateTime again(QDate(year, month, day), time, Qt::UTC);
    return static_cast<unsigned long long>(again.toMSecsSinceEpoch()) * 1000 + micros % 1000;
}
#endif

#ifdef KO_BENCH_ABSL
unsigned long long withCivilSecond(unsigned long long micros)
{
    const absl::CivilSecond epoch(1970, 1, 1, 0, 0, 0);
    const absl::CivilSecond parts = epoch + static_cast<absl::civil_diff_t>(micros / MICROS_IN_SECOND);
    long long year = parts.year();
    int month = parts.month();
    int day = parts.day();
    int hour = parts.hour();
    int minute = parts.minute();
    int second = parts.second();
    benchmark::DoNotOptimize(year);
    benchmark::DoNotOptimize(month);
    benchmark::DoNotOptimize(day);
    benchmark::DoNotOptimize(hour);
    benchmark::DoNotOptimize(minute);
    benchmark::DoNotOptimize(second);
    const absl::CivilSecond again(year, month, day, hour, minute, second);
    return static_cast<unsigned long long>(again - epoch) * MICROS_IN_SECOND + micros % MICROS_IN_SECOND;
}
#endif

void convertAndBack(benchmark::State& state, Convert convert)
{
    const std::vector<unsigned long long> timestamps = makeTimestamps();
    for (auto _ : state)
    {
        for (const unsigned long long timestamp : timestamps)
        {
            if (convert(timestamp) != timestamp)
            {
                return state.SkipWithError("not the same timestamp");
            }
        }
    }
    state.SetItemsProcessed(state.iterations() * COUNT);
}
BENCHMARK_CAPTURE(convertAndBack, CKoDateAndTime, &withDateAndTime);
BENCHMARK_CAPTURE(convertAndBack, gmtime, &withGmtime);
#ifdef KO_BENCH_QT
BENCHMARK_CAPTURE(convertAndBack, QDateTime, &withQDateTime);
#endif
#ifdef KO_BENCH_ABSL
BENCHMARK_CAPTURE(convertAndBack, CivilSecond, &withCivilSecond);
#endif

void textOf(benchmark::State& state)
{
    const std::vector<unsigned long long> timestamps = makeTimestamps();
    std::size_t next = 0;
    for (auto _ : state)
    {
        const CKoString text = CKoDateAndTime(timestamps[next], false, 0).toString();
        benchmark::DoNotOptimize(text.c_str());
        next = (next + 1) % timestamps.size();
    }
}
BENCHMARK(textOf);

void textWithStrftime(benchmark::State& state, bool isTakenApart)
{
    const std::vector<unsigned long long> timestamps = makeTimestamps();
    std::size_t next = 0;
    std::tm parts = {};
    for (auto _ : state)
    {
        const auto seconds = static_cast<time_t>(timestamps[next] / MICROS_IN_SECOND);
        if (!isTakenApart || parts.tm_mday == 0)
        {
            gmtime_r(&seconds, &parts);
        }
        char text[32];
        benchmark::DoNotOptimize(std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts));
        benchmark::DoNotOptimize(text);
        next = (next + 1) % timestamps.size();
    }
}
BENCHMARK_CAPTURE(textWithStrftime, ofTimestamp, false);
BENCHMARK_CAPTURE(textWithStrftime, ofParts, true);

} // namespace

BENCHMARK_MAIN();
