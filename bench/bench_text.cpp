// Case mapping and conversion between encodings, each beside what a user would pick instead: the same bytes
// in, the same bytes out, in the same run.

#include "pf/base/KoCharsetConversion.h"
#include "pf/base/KoStringUtilities.h"

#include <benchmark/benchmark.h>

#include <iconv.h>

#include <cstring>
#include <memory>
#include <string>

#ifdef KO_BENCH_QT
#include <QByteArray>
#include <QString>
#endif
#ifdef KO_BENCH_ICU
#include <unicode/ucasemap.h>
#include <unicode/ustring.h>
#endif

namespace
{

using benchmark::DoNotOptimize;
using benchmark::State;

constexpr std::size_t CONVERTED_BYTES = 64U * 1024U;

/// A sentence over and over, cut between two characters and filled up.
std::string repeated(const std::string& sentence, std::size_t bytes)
{
    std::string text;
    while (text.size() + sentence.size() <= bytes)
    {
        text += sentence;
    }
    return text.append(bytes - text.size(), '.');
}

std::string asciiText(std::size_t bytes)
{
    return repeated("The quick brown fox jumps over the lazy dog, once more. ", bytes);
}

std::string germanText(std::size_t bytes)
{
    return repeated("Zw\u00F6lf Boxk\u00E4mpfer jagen Viktor quer \u00FCber den gro\u00DFen Sylter Deich. ",
                    bytes);
}

std::string cyrillicText(std::size_t bytes)
{
    return repeated("\u0421\u044A\u0435\u0448\u044C \u0436\u0435 \u0435\u0449\u0451 \u044D\u0442\u0438\u0445 "
                    "\u043C\u044F\u0433\u043A\u0438\u0445 \u0431\u0443\u043B\u043E\u043A. ",
                    bytes);
}

std::string mixedText(std::size_t bytes)
{
    return repeated(
        "n\u00E9 \u4E16\u754C \u03BF\u03C2 \u65E5\u672C\u8A9E, \u00E7a va \U0001F600 na\u00EFve words ",
        bytes);
}

CKoString stringOf(const std::string& text)
{
    return CKoString(text.c_str(), static_cast<unsigned int>(text.size()));
}

using MakeText = std::string (*)(std::size_t);

// --- Upper case, UTF-8 to UTF-8 ---------------------------------------------------------------------------

void upperOurs(State& state, MakeText makeText)
{
    const CKoString text = stringOf(makeText(static_cast<std::size_t>(state.range(0))));
    for (auto _ : state)
    {
        CKoString upper(text);
        KoStringUtilities::toUpper(upper);
        DoNotOptimize(upper.c_str());
    }
}

#ifdef KO_BENCH_QT
void upperQString(State& state, MakeText makeText)
{
    const std::string text = makeText(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
    {
        const QByteArray upper =
            QString::fromUtf8(text.data(), static_cast<int>(text.size())).toUpper().toUtf8();
        DoNotOptimize(upper.constData());
    }
}
#endif

#ifdef KO_BENCH_ICU
void upperIcu(State& state, MakeText makeText)
{
    const std::string text = makeText(static_cast<std::size_t>(state.range(0)));
    UErrorCode error = U_ZERO_ERROR;
    UCaseMap* const map = ucasemap_open("", 0U, &error);
    for (auto _ : state)
    {
        error = U_ZERO_ERROR;
        const std::unique_ptr<char[]> upper(new char[text.size() * 2U]);
        DoNotOptimize(ucasemap_utf8ToUpper(map, upper.get(), static_cast<int>(text.size() * 2U), text.data(),
                                           static_cast<int>(text.size()), &error));
    }
    ucasemap_close(map);
}
#endif

// --- UTF-8 to UTF-16 and back -----------------------------------------------------------------------------

void utf16Ours(State& state, MakeText makeText)
{
    const CKoString text = stringOf(makeText(CONVERTED_BYTES));
    for (auto _ : state)
    {
        unsigned int count = text.byteLength() + 1U;
        const std::unique_ptr<unsigned short[]> units(new unsigned short[count]);
        DoNotOptimize(convertUTF8ToUTF16(text, units.get(), count));
        CKoString back;
        DoNotOptimize(convertUTF16ToUTF8(units.get(), back, count));
    }
}

#ifdef KO_BENCH_QT
void utf16QString(State& state, MakeText makeText)
{
    const std::string text = makeText(CONVERTED_BYTES);
    for (auto _ : state)
    {
        const QString units = QString::fromUtf8(text.data(), static_cast<int>(text.size()));
        const QByteArray back = units.toUtf8();
        DoNotOptimize(back.constData());
    }
}
#endif

#ifdef KO_BENCH_ICU
void utf16Icu(State& state, MakeText makeText)
{
    const std::string text = makeText(CONVERTED_BYTES);
    const int size = static_cast<int>(text.size());
    for (auto _ : state)
    {
        UErrorCode error = U_ZERO_ERROR;
        const std::unique_ptr<UChar[]> units(new UChar[text.size() + 1U]);
        const std::unique_ptr<char[]> back(new char[text.size()]);
        int count = 0;
        u_strFromUTF8(units.get(), size + 1, &count, text.data(), size, &error);
        u_strToUTF8(back.get(), size, nullptr, units.get(), count, &error);
        DoNotOptimize(back.get());
    }
}
#endif

// --- ISO 8859-1 to UTF-8 and back -------------------------------------------------------------------------

std::string latin1Text()
{
    const CKoString text = stringOf(germanText(CONVERTED_BYTES));
    std::string latin1(text.length() + 1U, '\0');
    KoConvertTo8859_1(text, &latin1[0], text.length() + 1U, '?');
    latin1.pop_back();
    return latin1;
}

void latin1Ours(State& state)
{
    const std::string text = latin1Text();
    for (auto _ : state)
    {
        const CKoString converted = KoConvertFrom8859_1(text.data(), static_cast<unsigned int>(text.size()));
        std::string back(text.size() + 1U, '\0');
        DoNotOptimize(KoConvertTo8859_1(converted, &back[0], static_cast<unsigned int>(back.size()), '?'));
    }
}

#ifdef KO_BENCH_QT
void latin1QString(State& state)
{
    const std::string text = latin1Text();
    for (auto _ : state)
    {
        const QByteArray converted = QString::fromLatin1(text.data(), static_cast<int>(text.size())).toUtf8();
        const QByteArray back = QString::fromUtf8(converted).toLatin1();
        DoNotOptimize(back.constData());
    }
}
#endif

void convertBy(iconv_t descriptor, std::string& from, std::string& to)
{
    char* in = &from[0];
    char* out = &to[0];
    std::size_t inBytes = from.size();
    std::size_t outBytes = to.size();
    DoNotOptimize(iconv(descriptor, &in, &inBytes, &out, &outBytes));
    to.resize(to.size() - outBytes);
}

void latin1Iconv(State& state)
{
    std::string text = latin1Text();
    const iconv_t toUtf8 = iconv_open("UTF-8", "ISO-8859-1");
    const iconv_t toLatin1 = iconv_open("ISO-8859-1", "UTF-8");
    for (auto _ : state)
    {
        std::string converted(2U * text.size(), '\0');
        convertBy(toUtf8, text, converted);
        std::string back(text.size(), '\0');
        convertBy(toLatin1, converted, back);
        DoNotOptimize(back.data());
    }
    iconv_close(toUtf8);
    iconv_close(toLatin1);
}

void sizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(4096)->Arg(1 << 20);
}

BENCHMARK_CAPTURE(upperOurs, ascii, asciiText)->Apply(sizes);
BENCHMARK_CAPTURE(upperOurs, german, germanText)->Apply(sizes);
BENCHMARK_CAPTURE(upperOurs, cyrillic, cyrillicText)->Apply(sizes);
BENCHMARK_CAPTURE(utf16Ours, ascii, asciiText);
BENCHMARK_CAPTURE(utf16Ours, mixed, mixedText);
BENCHMARK(latin1Ours);
BENCHMARK(latin1Iconv);
#ifdef KO_BENCH_QT
BENCHMARK_CAPTURE(upperQString, ascii, asciiText)->Apply(sizes);
BENCHMARK_CAPTURE(upperQString, german, germanText)->Apply(sizes);
BENCHMARK_CAPTURE(upperQString, cyrillic, cyrillicText)->Apply(sizes);
BENCHMARK_CAPTURE(utf16QString, ascii, asciiText);
BENCHMARK_CAPTURE(utf16QString, mixed, mixedText);
BENCHMARK(latin1QString);
#endif
#ifdef KO_BENCH_ICU
BENCHMARK_CAPTURE(upperIcu, ascii, asciiText)->Apply(sizes);
BENCHMARK_CAPTURE(upperIcu, german, germanText)->Apply(sizes);
BENCHMARK_CAPTURE(upperIcu, cyrillic, cyrillicText)->Apply(sizes);
BENCHMARK_CAPTURE(utf16Icu, ascii, asciiText);
BENCHMARK_CAPTURE(utf16Icu, mixed, mixedText);
#endif

} // namespace

BENCHMARK_MAIN();
