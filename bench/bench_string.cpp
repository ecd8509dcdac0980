// Strings: construction with validation, copies, appends, searches, replacement and formatting, each beside
// what a user would pick instead, on the same bytes in the same run.

#include "pf/base/CKoString.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#ifdef KO_BENCH_QT
#include <QByteArray>
#include <QString>
#endif
#ifdef KO_BENCH_GLIB
#include <glib.h>
#endif
#ifdef KO_BENCH_ABSL
#include <absl/strings/str_replace.h>
#endif
#ifdef KO_BENCH_ICU
#include <unicode/ustring.h>
#include <vector>
#endif

namespace
{

using benchmark::DoNotOptimize;
using benchmark::State;

// --- Construction from valid text -------------------------------------------------------------------------

std::string repeated(const std::string& unit, std::size_t bytes)
{
    std::string text;
    while (text.size() + unit.size() <= bytes)
    {
        text += unit;
    }
    text.append(bytes - text.size(), '.');
    return text;
}

std::string asciiText(std::size_t bytes)
{
    return repeated("The quick brown fox jumps over the lazy dog, once more. ", bytes);
}

/// Greek, Latin and CJK, cut between two characters.
std::string mixedText(std::size_t bytes)
{
    const std::string unit = "né\u4E16\u754Cος \u65E5\u672C\u8A9E, ça va Καλημέρα naïve ";
    std::string text;
    while (text.size() < bytes)
    {
        text += unit;
    }
    text.resize(bytes);
    while ((static_cast<unsigned char>(text.back()) & 0x80U) != 0U)
    {
        text.pop_back();
    }
    return text.append(bytes - text.size(), '.');
}

using MakeText = std::string (*)(std::size_t);

void constructString(State& state, MakeText makeText)
{
    const std::string text = makeText(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
    {
        const CKoString string(text.c_str(), static_cast<unsigned int>(text.size()));
        DoNotOptimize(string.length());
    }
}

void constructStdString(State& state, MakeText makeText)
{
    const std::string text = makeText(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
    {
        std::string copy(text);
        DoNotOptimize(copy.data());
    }
}

#ifdef KO_BENCH_QT
void constructQString(State& state, MakeText makeText)
{
    const std::string text = makeText(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
    {
        const QString string = QString::fromUtf8(text.data(), static_cast<int>(text.size()));
        DoNotOptimize(string.constData());
    }
}
#endif

#ifdef KO_BENCH_GLIB
void constructValidatedCopy(State& state, MakeText makeText)
{
    const std::string text = makeText(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
    {
        DoNotOptimize(g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr));
        std::string copy(text);
        DoNotOptimize(copy.data());
    }
}
#endif

#ifdef KO_BENCH_ICU
void constructUChars(State& state, MakeText makeText)
{
    const std::string text = makeText(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
    {
        std::vector<UChar> units(text.size());
        UErrorCode error = U_ZERO_ERROR;
        int32_t length = 0;
        u_strFromUTF8(units.data(), static_cast<int32_t>(units.size()), &length, text.data(),
                      static_cast<int32_t>(text.size()), &error);
        DoNotOptimize(units.data());
    }
}
#endif

#define KO_CONSTRUCTION(function)                                                                            \
    BENCHMARK_CAPTURE(function, ascii, asciiText)->Arg(16)->Arg(1024)->Arg(1 << 20);                         \
    BENCHMARK_CAPTURE(function, mixed, mixedText)->Arg(16)->Arg(1024)->Arg(1 << 20)

KO_CONSTRUCTION(constructString);
KO_CONSTRUCTION(constructStdString);
#ifdef KO_BENCH_QT
KO_CONSTRUCTION(constructQString);
#endif
#ifdef KO_BENCH_GLIB
KO_CONSTRUCTION(constructValidatedCopy);
#endif
#ifdef KO_BENCH_ICU
KO_CONSTRUCTION(constructUChars);
#endif

// --- Copies -----------------------------------------------------------------------------------------------

template <typename String>
void copyAndDestroy(State& state)
{
    const String original(asciiText(100).c_str());
    for (auto _ : state)
    {
        String copy(original);
        DoNotOptimize(copy);
    }
}

BENCHMARK_TEMPLATE(copyAndDestroy, CKoString);
BENCHMARK_TEMPLATE(copyAndDestroy, std::string);
#ifdef KO_BENCH_QT
BENCHMARK_TEMPLATE(copyAndDestroy, QString);
#endif

// --- Appends ----------------------------------------------------------------------------------------------

constexpr int APPENDED_BYTES = 65536;

/// Hides the piece's length from the compiler, as a caller's variable would.
struct Piece
{
    const char* bytes = "8 bytes ";
    int size = 8;

    Piece() { DoNotOptimize(*this); }
};

void append(CKoString& string, const Piece& piece)
{
    string.append(piece.bytes, static_cast<unsigned int>(piece.size));
}

void append(std::string& string, const Piece& piece)
{
    string.append(piece.bytes, static_cast<std::size_t>(piece.size));
}

#ifdef KO_BENCH_QT
void append(QByteArray& string, const Piece& piece)
{
    string.append(piece.bytes, piece.size);
}
#endif

template <typename String>
void appendPieces(State& state)
{
    const Piece piece;
    for (auto _ : state)
    {
        String string;
        string.reserve(APPENDED_BYTES);
        for (int at = 0; at < APPENDED_BYTES; at += 8)
        {
            append(string, piece);
        }
        DoNotOptimize(string);
    }
}

BENCHMARK_TEMPLATE(appendPieces, CKoString);
BENCHMARK_TEMPLATE(appendPieces, std::string);
#ifdef KO_BENCH_QT
BENCHMARK_TEMPLATE(appendPieces, QByteArray);
#endif

/// The same with the piece as a string object.
template <typename String>
void appendStrings(State& state)
{
    const String piece("8 bytes ");
    for (auto _ : state)
    {
        String string;
        string.reserve(APPENDED_BYTES);
        for (int at = 0; at < APPENDED_BYTES; at += 8)
        {
            string.append(piece);
        }
        DoNotOptimize(string);
    }
}

BENCHMARK_TEMPLATE(appendStrings, CKoString);
BENCHMARK_TEMPLATE(appendStrings, std::string);
#ifdef KO_BENCH_QT
BENCHMARK_TEMPLATE(appendStrings, QByteArray);
#endif

// --- Searches: a needle of 12 bytes at the end of 64 KiB ---------------------------------------------------

struct Haystack
{
    std::string text;
    std::string needle;
};

/// 0: words; 1: the needle's first eleven bytes again and again; 2: one letter, the odd one in the middle.
Haystack makeHaystack(int kind)
{
    constexpr std::size_t BYTES = 65536;
    if (kind == 0)
    {
        return {asciiText(BYTES - 12) + "lazy brown d", "lazy brown d"};
    }
    if (kind == 1)
    {
        return {repeated("abcabcabcab", BYTES - 12) + "abcabcabcabX", "abcabcabcabX"};
    }
    return {std::string(BYTES - 12, 'a') + "aaaaabaaaaaa", "aaaaabaaaaaa"};
}

void findInString(State& state)
{
    const Haystack haystack = makeHaystack(static_cast<int>(state.range(0)));
    const CKoString text(haystack.text.c_str());
    const CKoString needle(haystack.needle.c_str());
    for (auto _ : state)
    {
        DoNotOptimize(text.find(needle));
    }
    if (text.find(needle) == text.end())
    {
        state.SkipWithError("not found");
    }
}

void findBackwardInString(State& state)
{
    Haystack haystack = makeHaystack(static_cast<int>(state.range(0)));
    const CKoString text((haystack.needle + haystack.text.substr(0, haystack.text.size() - 12)).c_str());
    const CKoString needle(haystack.needle.c_str());
    for (auto _ : state)
    {
        DoNotOptimize(text.findString(text.end(), needle, false));
    }
}

void findWithMemmem(State& state)
{
    const Haystack haystack = makeHaystack(static_cast<int>(state.range(0)));
    for (auto _ : state)
    {
        DoNotOptimize(memmem(haystack.text.data(), haystack.text.size(), haystack.needle.data(),
                             haystack.needle.size()));
    }
}

void findWithStrstr(State& state)
{
    const Haystack haystack = makeHaystack(static_cast<int>(state.range(0)));
    for (auto _ : state)
    {
        DoNotOptimize(std::strstr(haystack.text.c_str(), haystack.needle.c_str()));
    }
}

BENCHMARK(findInString)->DenseRange(0, 2);
BENCHMARK(findWithMemmem)->DenseRange(0, 2);
BENCHMARK(findWithStrstr)->DenseRange(0, 2);
BENCHMARK(findBackwardInString)->DenseRange(0, 2);

// --- Replacement: 1,000 places in 64 KiB -------------------------------------------------------------------

std::string templateText()
{
    return repeated("some words before a place that is named {place} and a few after. ", 65000);
}

void replaceAllInString(State& state)
{
    const CKoString text(templateText().c_str());
    const CKoString from("{place}");
    const CKoString to("Copenhagen");
    for (auto _ : state)
    {
        CKoString result(text);
        result.replaceAll(from, to);
        DoNotOptimize(result.length());
    }
}

BENCHMARK(replaceAllInString);

#ifdef KO_BENCH_ABSL
void replaceAllWithAbsl(State& state)
{
    const std::string text = templateText();
    for (auto _ : state)
    {
        DoNotOptimize(absl::StrReplaceAll(text, {{"{place}", "Copenhagen"}}));
    }
}

BENCHMARK(replaceAllWithAbsl);
#endif

// --- Formatting of a short text ----------------------------------------------------------------------------

constexpr const char* FORMAT = "%s:%u: ASSERTION \"%s\" failed";

void formatString(State& state)
{
    for (auto _ : state)
    {
        CKoString string;
        string.format(FORMAT, "TKoVector", 812U, "Index our of range");
        DoNotOptimize(string.length());
    }
}

void formatAndAllocate(State& state)
{
    for (auto _ : state)
    {
        char buffer[257];
        const int length =
            std::snprintf(buffer, sizeof(buffer), FORMAT, "TKoVector", 812U, "Index our of range");
        void* const copy = std::malloc(static_cast<std::size_t>(length) + 20U);
        std::memcpy(copy, buffer, static_cast<std::size_t>(length) + 1U);
        DoNotOptimize(copy);
        std::free(copy);
    }
}

BENCHMARK(formatString);
BENCHMARK(formatAndAllocate);

} // namespace

BENCHMARK_MAIN();
