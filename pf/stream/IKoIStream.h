#pragma once

#include "pf/base/KoExport.h"

/// Something that bytes can be read from.
///
/// Reading is const: the read position and the error state of a stream are mutable state. A stream reports
/// nothing itself through this interface; a short read shows in the returned count. One thread at a time
/// unless the stream says more.
class KO_EXPORT IKoIStream
{
public:
    virtual ~IKoIStream();

    /// \param timeoutMs how long to wait, in milliseconds, -1 without limit; streams in memory ignore it.
    /// \return true when data can be read.
    virtual bool waitToRead(int timeoutMs) = 0;

    /// Tells the stream that its reader is ready for data; streams in memory do nothing.
    virtual void ready() = 0;

    /// Moves the read position to a multiple of `alignment`, for stream kinds that define alignment. Does
    /// nothing unless overridden.
    virtual void align(unsigned int alignment) const;

    /// Reads and discards `count` bytes in pieces of at most 512; short reads are ignored.
    virtual void readSkip(unsigned int count) const;

    /// Reads up to `count` bytes to `dst`. \return the number of bytes read.
    virtual unsigned int doRead(void* dst, unsigned int count) const = 0;

    /// The entry point of readers: doRead.
    unsigned int read(void* dst, unsigned int count) const { return doRead(dst, count); }

protected:
    IKoIStream() = default;
    IKoIStream(const IKoIStream&) = default;
    IKoIStream& operator=(const IKoIStream&) = default;
};
