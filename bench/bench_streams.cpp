// Serialisation in memory and text output beside what a user of the standard library or of a framework would
// write, with the same values in the same run.
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "pf/base/CKoString.h"
#include "pf/stream/CKoByteStream.h"
#include "pf/stream/CKoOTextStream.h"

#ifdef KO_BENCH_QT
#include <QByteArray>
#include <QDataStream>
#endif
#ifdef KO_BENCH_GLIB
#include <glib.h>
#endif
#ifdef KO_BENCH_ABSL
#include <absl/strings/str_replace.h>
#endif

namespace
{

constexpr unsigned int RECORD_COUNT = 100000;

template <class String>
struct SRecord
{
    std::uint32_t id;
    unsigned long long time;
    String name;
};

template <class String>
std::vector<SRecord<String>> makeRecords()
{
    std::vector<SRecord<String>> records;
    for (unsigned int i = 0; i < RECORD_COUNT; ++i)
    {
        const std::string name = "sensor-" + std::to_string(10000 + i % 90000);
        records.push_back({i, 1000000ULL * i, String(name.c_str())});
    }
    return records;
}

/// The stream of the library.
struct SByteStream
{
    using String = CKoString;
    CKoByteStream stream;

    void write(const SRecord<String>& record) { stream << record.id << record.time << record.name; }
    void beginReading() {}
    void read(SRecord<String>& record) { stream >> record.id >> record.time >> record.name; }
};

/// The same stream behind the interface that all streams share.
struct SInterface : SByteStream
{
    void write(const SRecord<String>& record)
    {
        IKoOStream& out = stream;
        out << record.id << record.time << record.name;
    }
    void read(SRecord<String>& record)
    {
        const IKoIStream& in = stream;
        in >> record.id >> record.time >> record.name;
    }
};

struct SStringStream
{
    using String = std::string;
    std::stringstream stream;

    template <class T>
    void put(const T& value)
    {
        stream.write(reinterpret_cast<const char*>(&value), sizeof(T));
    }
    template <class T>
    void get(T& value)
    {
        stream.read(reinterpret_cast<char*>(&value), sizeof(T));
    }
    void write(const SRecord<String>& record)
    {
        put(record.id);
        put(record.time);
        put(static_cast<std::uint32_t>(record.name.size()));
        stream.write(record.name.data(), static_cast<std::streamsize>(record.name.size()));
    }
    void beginReading() { stream.seekg(0); }
    void read(SRecord<String>& record)
    {
        std::uint32_t size = 0;
        get(record.id);
        get(record.time);
        get(size);
        record.name.resize(size);
        stream.read(record.name.data(), size);
    }
};

#ifdef KO_BENCH_QT
struct SQtStream
{
    using String = QByteArray;
    QByteArray bytes;
    QDataStream stream{&bytes, QIODevice::ReadWrite};

    void write(const SRecord<String>& record)
    {
        stream << record.id << static_cast<quint64>(record.time) << record.name;
    }
    void beginReading() { stream.device()->seek(0); }
    void read(SRecord<String>& record)
    {
        quint64 time = 0;
        stream >> record.id >> time >> record.name;
        record.time = time;
    }
};
#endif

template <class Stream>
void writeRecords(benchmark::State& state)
{
    const auto records = makeRecords<typename Stream::String>();
    for (auto _ : state)
    {
        Stream stream;
        for (const auto& record : records)
            stream.write(record);
        benchmark::DoNotOptimize(stream);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * RECORD_COUNT);
}

template <class Stream>
void readRecords(benchmark::State& state)
{
    Stream stream;
    for (const auto& record : makeRecords<typename Stream::String>())
        stream.write(record);
    for (auto _ : state)
    {
        state.PauseTiming();
        std::vector<SRecord<typename Stream::String>> records(RECORD_COUNT);
        state.ResumeTiming();
        stream.beginReading();
        for (auto& record : records)
            stream.read(record);
        benchmark::DoNotOptimize(records.data());
        benchmark::ClobberMemory();
        state.PauseTiming();
        records.clear();
        if constexpr (std::is_base_of_v<SByteStream, Stream>)
            stream.stream = CKoByteStream(stream.stream);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * RECORD_COUNT);
}

/// As readRecords, but into one record again and again, as a consumer of a message does it.
template <class Stream>
void readOneByOne(benchmark::State& state)
{
    Stream stream;
    for (const auto& record : makeRecords<typename Stream::String>())
        stream.write(record);
    SRecord<typename Stream::String> record = {};
    for (auto _ : state)
    {
        stream.beginReading();
        for (unsigned int i = 0; i < RECORD_COUNT; ++i)
        {
            stream.read(record);
            benchmark::DoNotOptimize(record);
        }
        if constexpr (std::is_base_of_v<SByteStream, Stream>)
            stream.stream = CKoByteStream(stream.stream);
    }
    state.SetItemsProcessed(state.iterations() * RECORD_COUNT);
}

BENCHMARK(writeRecords<SByteStream>);
BENCHMARK(writeRecords<SInterface>);
BENCHMARK(writeRecords<SStringStream>);
BENCHMARK(readRecords<SByteStream>);
BENCHMARK(readRecords<SStringStream>);
BENCHMARK(readOneByOne<SByteStream>);
BENCHMARK(readOneByOne<SInterface>);
BENCHMARK(readOneByOne<SStringStream>);
#ifdef KO_BENCH_QT
BENCHMARK(writeRecords<SQtStream>);
BENCHMARK(readRecords<SQtStream>);
BENCHMARK(readOneByOne<SQtStream>);
#endif

/// Lines of a report: a name, an id, a value. The argument chooses what beside the name stands in them.
enum Line
{
    NUMBERS_AND_TEXTS,
    DOUBLES
};

template <class Stream>
void writeLines(Stream& stream, const std::string& name, Line line)
{
    for (unsigned int i = 0; i < 1000; ++i)
    {
        if (line == DOUBLES)
            stream << name.c_str() << " = " << 0.37 * i << '\n';
        else
            stream << name.c_str() << " id " << i << " value " << -1000000LL * i << '\n';
    }
}

void textIntoStream(benchmark::State& state)
{
    const std::string name = "temperature";
    for (auto _ : state)
    {
        CKoOTextStream stream;
        writeLines(stream, name, static_cast<Line>(state.range(0)));
        benchmark::DoNotOptimize(stream.c_str());
    }
}
BENCHMARK(textIntoStream)->Arg(NUMBERS_AND_TEXTS)->Arg(DOUBLES);

void textIntoStdStream(benchmark::State& state)
{
    const std::string name = "temperature";
    for (auto _ : state)
    {
        std::ostringstream stream;
        writeLines(stream, name, static_cast<Line>(state.range(0)));
        benchmark::DoNotOptimize(stream);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(textIntoStdStream)->Arg(NUMBERS_AND_TEXTS)->Arg(DOUBLES);

/// 64 KiB; the argument is the number of plain characters between two that need escaping.
std::string makeMarkup(std::int64_t distance)
{
    constexpr char SPECIAL[] = "<>&'\"";
    std::string text;
    for (std::size_t i = 0; text.size() < 65536; ++i)
    {
        text.append(static_cast<std::size_t>(distance), static_cast<char>('a' + i % 26));
        text += SPECIAL[i % 5];
    }
    text.resize(65536);
    return text;
}

void escapeIntoStream(benchmark::State& state)
{
    const std::string text = makeMarkup(state.range(0));
    for (auto _ : state)
    {
        CKoOTextStream stream;
        stream << koXmlEscape << text.c_str();
        benchmark::DoNotOptimize(stream.c_str());
    }
}
BENCHMARK(escapeIntoStream)->Arg(3)->Arg(20)->Arg(200);

#ifdef KO_BENCH_ABSL
void escapeWithAbsl(benchmark::State& state)
{
    const std::string text = makeMarkup(state.range(0));
    for (auto _ : state)
    {
        std::string escaped = absl::StrReplaceAll(
            text, {{"\"", "&quot;"}, {"&", "&amp;"}, {"'", "&apos;"}, {"<", "&lt;"}, {">", "&gt;"}});
        benchmark::DoNotOptimize(escaped);
    }
}
BENCHMARK(escapeWithAbsl)->Arg(3)->Arg(20)->Arg(200);
#endif

#ifdef KO_BENCH_GLIB
void escapeWithGlib(benchmark::State& state)
{
    const std::string text = makeMarkup(state.range(0));
    for (auto _ : state)
    {
        gchar* const escaped = g_markup_escape_text(text.data(), static_cast<gssize>(text.size()));
        benchmark::DoNotOptimize(escaped);
        g_free(escaped);
    }
}
BENCHMARK(escapeWithGlib)->Arg(3)->Arg(20)->Arg(200);
#endif

} // namespace

BENCHMARK_MAIN();
