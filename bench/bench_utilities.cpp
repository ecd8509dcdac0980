// CRC, Base64 and fixed point beside what a user would pick instead: other libraries for the codecs, plain
// 64-bit arithmetic and the C library's floating point for the numbers.

#include "pf/base/CKoFix16.h"
#include "pf/util/CKoCRC.h"
#include "pf/util/KoBase64.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#ifdef KO_BENCH_ZLIB
#include <zlib.h>
#endif
#ifdef KO_BENCH_DEFLATE
#include <libdeflate.h>
#endif
#ifdef KO_BENCH_ISAL
#include <isa-l/crc.h>
#endif
#ifdef KO_BENCH_BOOST
#include <boost/crc.hpp>
#endif
#ifdef KO_BENCH_ABSL
#include <absl/strings/escaping.h>
#endif
#ifdef KO_BENCH_GLIB
#include <glib.h>
#endif

namespace
{

constexpr int SHORT = 64;
constexpr int LONG = 1 << 20;
constexpr int MESSAGE = 64 << 10;
constexpr std::size_t NUMBERS = 1024;

using Bytes = std::vector<unsigned char>;

Bytes makeBytes(std::int64_t count)
{
    std::mt19937 random(1);
    Bytes bytes(static_cast<std::size_t>(count));
    for (unsigned char& byte : bytes)
    {
        byte = static_cast<unsigned char>(random());
    }
    return bytes;
}

// The numbers come first: a peer among the checks leaves the vector registers so that floating point after it
// is slow.

/// Raw values from one up to `limit`.
std::vector<int> makeNumbers(int limit)
{
    std::mt19937 random(1);
    std::uniform_int_distribution<int> any(1, limit);
    std::vector<int> numbers(NUMBERS);
    for (int& number : numbers)
    {
        number = any(random);
    }
    return numbers;
}

/// Each result is wanted by itself, so that no loop is turned into another one.
template <class Number, class Compute>
void runNumbers(benchmark::State& state, const std::vector<Number>& numbers, Compute compute)
{
    for (auto _ : state)
    {
        for (std::size_t i = 0; i < NUMBERS; ++i)
        {
            benchmark::DoNotOptimize(compute(numbers[i], numbers[NUMBERS - 1U - i]));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(NUMBERS));
}

std::vector<CKoFix16> asFixed(const std::vector<int>& raw)
{
    std::vector<CKoFix16> numbers;
    for (const int each : raw)
    {
        numbers.push_back(CKoFix16::fromRaw(each));
    }
    return numbers;
}

std::vector<float> asFloat(const std::vector<int>& raw)
{
    std::vector<float> numbers;
    for (const int each : raw)
    {
        numbers.push_back(static_cast<float>(each) / 65536.0F);
    }
    return numbers;
}

constexpr int TO_TEN = 10 * 65536;
constexpr int TO_END = 2147483647;

void BM_MultiplyKo(benchmark::State& state)
{
    runNumbers(state, asFixed(makeNumbers(TO_TEN)), [](CKoFix16 a, CKoFix16 b) { return (a * b).raw(); });
}
BENCHMARK(BM_MultiplyKo);

/// The same work by hand: a product that does not fit is noticed.
void BM_MultiplyPlain(benchmark::State& state)
{
    bool hasOverflowed = false;
    runNumbers(state, makeNumbers(TO_TEN),
               [&](int a, int b)
               {
                   const std::int64_t product = static_cast<std::int64_t>(a) * b / 65536;
                   const int result = static_cast<int>(product);
                   hasOverflowed = hasOverflowed || product != result;
                   return result;
               });
    benchmark::DoNotOptimize(hasOverflowed);
}
BENCHMARK(BM_MultiplyPlain);

void BM_SinKo(benchmark::State& state)
{
    runNumbers(state, asFixed(makeNumbers(TO_TEN)),
               [](CKoFix16 a, CKoFix16) { return CKoFix16::sin(a).raw(); });
}
BENCHMARK(BM_SinKo);

void BM_SinFloat(benchmark::State& state)
{
    runNumbers(state, asFloat(makeNumbers(TO_TEN)), [](float a, float) { return sinf(a); });
}
BENCHMARK(BM_SinFloat);

void BM_SqrtKo(benchmark::State& state)
{
    runNumbers(state, asFixed(makeNumbers(TO_END)),
               [](CKoFix16 a, CKoFix16) { return CKoFix16::sqrt(a).raw(); });
}
BENCHMARK(BM_SqrtKo);

void BM_SqrtFloat(benchmark::State& state)
{
    runNumbers(state, asFloat(makeNumbers(TO_END)), [](float a, float) { return sqrtf(a); });
}
BENCHMARK(BM_SqrtFloat);

template <class Check>
void runCheck(benchmark::State& state, Check check)
{
    const Bytes bytes = makeBytes(state.range(0));
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(check(bytes.data(), static_cast<unsigned int>(bytes.size())));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

template <CKoCRC::eType TYPE>
void BM_CrcKo(benchmark::State& state)
{
    runCheck(state,
             [](const unsigned char* data, unsigned int count)
             {
                 CKoCRC crc(TYPE);
                 crc.addBytes(data, count);
                 return crc.getCRC();
             });
}
BENCHMARK(BM_CrcKo<CKoCRC::eCRC32>)->Arg(SHORT)->Arg(LONG);
BENCHMARK(BM_CrcKo<CKoCRC::eCRC16CCITT>)->Arg(LONG);
BENCHMARK(BM_CrcKo<CKoCRC::eCRC16Reflected>)->Arg(LONG);
BENCHMARK(BM_CrcKo<CKoCRC::eCRC16XModem>)->Arg(LONG);

#ifdef KO_BENCH_ZLIB
void BM_Crc32Zlib(benchmark::State& state)
{
    runCheck(state, [](const unsigned char* data, unsigned int count) { return crc32(0, data, count); });
}
BENCHMARK(BM_Crc32Zlib)->Arg(SHORT)->Arg(LONG);
#endif
#ifdef KO_BENCH_DEFLATE
void BM_Crc32Deflate(benchmark::State& state)
{
    runCheck(state,
             [](const unsigned char* data, unsigned int count) { return libdeflate_crc32(0, data, count); });
}
BENCHMARK(BM_Crc32Deflate)->Arg(SHORT)->Arg(LONG);
#endif
#ifdef KO_BENCH_ISAL
void BM_Crc32Isal(benchmark::State& state)
{
    runCheck(state,
             [](const unsigned char* data, unsigned int count) { return crc32_gzip_refl(0, data, count); });
}
BENCHMARK(BM_Crc32Isal)->Arg(SHORT)->Arg(LONG);
#endif
#ifdef KO_BENCH_BOOST
template <unsigned int INITIAL, bool IS_REFLECTED>
void BM_Crc16Boost(benchmark::State& state)
{
    runCheck(state,
             [](const unsigned char* data, unsigned int count)
             {
                 boost::crc_optimal<16, 0x1021, INITIAL, 0, IS_REFLECTED, IS_REFLECTED> crc;
                 crc.process_bytes(data, count);
                 return crc.checksum();
             });
}
BENCHMARK(BM_Crc16Boost<0xFFFF, false>)->Arg(LONG);
BENCHMARK(BM_Crc16Boost<0xFFFF, true>)->Arg(LONG);
BENCHMARK(BM_Crc16Boost<0, false>)->Arg(LONG);
#endif

/// The text of the message, by our own encoder.
std::string makeText(const Bytes& bytes)
{
    std::string text(4 * ((bytes.size() + 2) / 3), '\0');
    KoBase64::encode(bytes.data(), static_cast<unsigned int>(bytes.size()), text.data(),
                     static_cast<unsigned int>(text.size()));
    return text;
}

void BM_EncodeKo(benchmark::State& state)
{
    const Bytes bytes = makeBytes(MESSAGE);
    std::string text = makeText(bytes);
    for (auto _ : state)
    {
        KoBase64::encode(bytes.data(), MESSAGE, text.data(), static_cast<unsigned int>(text.size()));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_EncodeKo);

void BM_DecodeKo(benchmark::State& state)
{
    Bytes bytes = makeBytes(MESSAGE);
    const std::string text = makeText(bytes);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(KoBase64::decode(text.c_str(), bytes.data(), MESSAGE));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_DecodeKo);

#ifdef KO_BENCH_ABSL
void BM_EncodeAbsl(benchmark::State& state)
{
    const Bytes bytes = makeBytes(MESSAGE);
    const std::string source(bytes.begin(), bytes.end());
    std::string text;
    for (auto _ : state)
    {
        absl::Base64Escape(source, &text);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_EncodeAbsl);

void BM_DecodeAbsl(benchmark::State& state)
{
    const std::string text = makeText(makeBytes(MESSAGE));
    std::string bytes;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(absl::Base64Unescape(text, &bytes));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_DecodeAbsl);
#endif
#ifdef KO_BENCH_GLIB
void BM_EncodeGlib(benchmark::State& state)
{
    const Bytes bytes = makeBytes(MESSAGE);
    std::string text(makeText(bytes).size() + 8, '\0');
    for (auto _ : state)
    {
        gint kept = 0;
        gint saved = 0;
        const gsize written = g_base64_encode_step(bytes.data(), MESSAGE, FALSE, text.data(), &kept, &saved);
        benchmark::DoNotOptimize(g_base64_encode_close(FALSE, text.data() + written, &kept, &saved));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_EncodeGlib);

void BM_DecodeGlib(benchmark::State& state)
{
    Bytes bytes = makeBytes(MESSAGE);
    const std::string text = makeText(bytes);
    bytes.resize(text.size());
    for (auto _ : state)
    {
        gint kept = 0;
        guint saved = 0;
        benchmark::DoNotOptimize(
            g_base64_decode_step(text.c_str(), text.size(), bytes.data(), &kept, &saved));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_DecodeGlib);
#endif

} // namespace

BENCHMARK_MAIN();
