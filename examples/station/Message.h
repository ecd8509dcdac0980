#pragma once

#include "pf/base/CKoString.h"
#include "pf/stream/CKoByteStream.h"
#include "pf/util/CKoDateAndTime.h"

/// What the sampler says to the recorder, and what the recorder keeps in its file: serialised, a kind and
/// then a body of that kind. The layout is the same on every processor.
///
///     kind       body            sent   kept
///     START      Start           no     yes
///     ANNOUNCE   Announcement    yes    yes
///     SAMPLE     Sample          yes    yes
///     FINISH     none            yes    no
///     VALUES     the memory      yes    no
///     VIEW       none            yes    no
///
/// The memory with the newest values comes from the sampler as a reference in the stream, and goes to viewers
/// as the reply to VIEW, whose status is its size.
///
/// A message is acknowledged by an empty reply once it is kept; the recorder refuses what it does not
/// understand with `EINVAL`.
namespace Message
{

enum Kind : unsigned int
{
    START = 1,
    ANNOUNCE = 2,
    SAMPLE = 3,
    FINISH = 4,
    VALUES = 5,
    VIEW = 6
};

/// No message is shorter, or longer.
constexpr unsigned int SMALLEST = sizeof(unsigned int);
constexpr unsigned int LARGEST = 256;

/// A recorder begins to record.
struct Start
{
    CKoDateAndTime at;
};

/// Tells of a source, before its first sample to a recorder.
struct Announcement
{
    CKoDateAndTime run; ///< when the sampler began; its sources are others than those of other samplers
    CKoString name;
    CKoString unit;
    unsigned int periodMs = 0;
};

struct Sample
{
    CKoDateAndTime taken;
    CKoString name;
    unsigned long long value = 0; ///< thousandths of the source's unit
    CKoDateAndTime run;
    unsigned int sequence = 0; ///< counts the source's samples from 0
    long long lateness = 0;    ///< nanoseconds of monotonic time from when it was due to when it was taken
};

IKoOStream& operator<<(IKoOStream& stream, const Start& start);
IKoOStream& operator<<(IKoOStream& stream, const Announcement& announcement);
IKoOStream& operator<<(IKoOStream& stream, const Sample& sample);
const IKoIStream& operator>>(const IKoIStream& stream, Start& start);
const IKoIStream& operator>>(const IKoIStream& stream, Announcement& announcement);
const IKoIStream& operator>>(const IKoIStream& stream, Sample& sample);

/// A message of this kind and body.
template <class Body>
CKoByteStream make(Kind kind, const Body& body)
{
    CKoByteStream message;
    message << static_cast<unsigned int>(kind) << body;
    return message;
}

/// A message of this kind, without a body.
CKoByteStream make(Kind kind);

/// The Kind of a message, which is read from its front; 0 if it is too short to have one.
unsigned int kindOf(const CKoByteStream& message);

/// Reads the rest of a message. \return whether it was exactly this body.
template <class Body>
bool readBody(const CKoByteStream& message, Body& body)
{
    message >> body;
    return !message.hasError() && message.position() == message.length();
}

/// The wall clock, in microseconds.
CKoDateAndTime wallClock();

} // namespace Message
