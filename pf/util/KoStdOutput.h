#pragma once

/// \file
/// Writes values of the library to a std::ostream, for the messages of tests and tools:
///
///     EXPECT_EQ(parsed, expected); // "Which is: 2024-03-07 09:05:01.000000"
///
/// Include it in the test program; the headers of the values themselves pull in no stream of the standard
/// library. Different values give different texts, which is what a reader of a failed test needs; the texts
/// are for people and no program should read them back. The stream's width, fill and adjustment hold for the
/// text of a value, not for pairs and buffers. Pairs and the entries of hash tables are written here as well;
/// containers themselves are written by what writes ranges, since they are ranges.

#include "pf/base/CKoClassID.h"
#include "pf/base/CKoFix16.h"
#include "pf/base/CKoString.h"
#include "pf/base/CKoVersion.h"
#include "pf/containers/CKoRCMemoryBuffer.h"
#include "pf/containers/TKoHashEntry.h"
#include "pf/containers/TKoPair.h"
#include "pf/util/CKoDateAndTime.h"
#include "pf/util/CKoPath.h"
#include "pf/util/CKoTimeSpan.h"
#include "pf/util/SKoTimeBreakdown.h"

#include <cstdarg>
#include <cstdio>
#include <ostream>
#include <string_view>

namespace KoPrivate
{

/// Writes what printf would, up to 63 bytes.
KO_PRINTF(2, 3) inline std::ostream& writeFormatted(std::ostream& stream, const char* format, ...)
{
    char text[64] = "";
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    return stream << text;
}

} // namespace KoPrivate

/// The text as it is.
inline std::ostream& operator<<(std::ostream& stream, const CKoString& text)
{
    return stream << std::string_view(text);
}

/// The path as it is stored.
inline std::ostream& operator<<(std::ostream& stream, const CKoPath& path)
{
    return stream << path.getString();
}

/// The name.
inline std::ostream& operator<<(std::ostream& stream, const CKoClassID& id)
{
    return stream << std::string_view(id.getName() != nullptr ? id.getName() : "");
}

/// As in 7.0.0.
inline std::ostream& operator<<(std::ostream& stream, const CKoVersion& version)
{
    return KoPrivate::writeFormatted(stream, "%hu.%hu.%hu", version.getMajor(), version.getMinor(),
                                     version.getRevision());
}

/// The number with as many digits as tell it from its neighbours.
inline std::ostream& operator<<(std::ostream& stream, const CKoFix16& number)
{
    return KoPrivate::writeFormatted(stream, "%.10g", number.toDouble());
}

/// As in 2024-03-07.
inline std::ostream& operator<<(std::ostream& stream, const CKoDateAndTime::SKoDate& date)
{
    return stream << date.toString();
}

/// As in 09:05:01.000250.
inline std::ostream& operator<<(std::ostream& stream, const CKoDateAndTime::SKoTime& time)
{
    return KoPrivate::writeFormatted(stream, "%02hhu:%02hhu:%02hhu.%06u", time.hour, time.minute, time.second,
                                     time.microsecond);
}

/// As in 2024-03-07 09:05:01.000250.
inline std::ostream& operator<<(std::ostream& stream, const CKoDateAndTime& timestamp)
{
    const auto micros = static_cast<unsigned int>(timestamp.getMicroseconds() % 1000000U);
    return KoPrivate::writeFormatted(stream, "%s.%06u", timestamp.toString().c_str(), micros);
}

/// As in -1 d 02:03:04.000005.
inline std::ostream& operator<<(std::ostream& stream, const CKoTimeSpan::Span& span)
{
    return KoPrivate::writeFormatted(stream, "%s%u d %02hhu:%02hhu:%02hhu.%06u", span.negative ? "-" : "",
                                     span.days, span.hours, span.minutes, span.seconds, span.microseconds);
}

/// As its Span.
inline std::ostream& operator<<(std::ostream& stream, const CKoTimeSpan& duration)
{
    CKoTimeSpan::Span span;
    duration.getSpan(span);
    return stream << span;
}

/// As in 1.002003004 s.
inline std::ostream& operator<<(std::ostream& stream, const SKoTimeBreakdown& time)
{
    return KoPrivate::writeFormatted(stream, "%u.%03u%03u%03u s", time.seconds, time.milliseconds,
                                     time.microseconds, time.nanoseconds);
}

/// The number of bytes and the bytes: 2 bytes: 00 ff
inline std::ostream& operator<<(std::ostream& stream, const CKoRCMemoryBuffer& buffer)
{
    KoPrivate::writeFormatted(stream, "%u bytes:", buffer.getSize());
    for (unsigned int i = 0; i < buffer.getSize(); ++i)
    {
        KoPrivate::writeFormatted(stream, " %02hhx", buffer.getBuffer()[i]);
    }
    return stream;
}

/// As in (pump, 40).
template <class A, class B>
std::ostream& operator<<(std::ostream& stream, const TKoPair<A, B>& pair)
{
    return stream << '(' << pair.first << ", " << pair.second << ')';
}

/// As in (pump, 40).
template <class K, class V>
std::ostream& operator<<(std::ostream& stream, const TKoHashEntry<K, V>& entry)
{
    return stream << '(' << entry.key << ", " << entry.value << ')';
}
