#pragma once

#include "pf/base/KoExport.h"

/// Something that bytes can be written to.
///
/// A stream reports nothing itself through this interface; a short write shows in the returned count. One
/// thread at a time unless the stream says more.
class KO_EXPORT IKoOStream
{
public:
    virtual ~IKoOStream();

    /// Passes on what the stream holds back.
    virtual void flush() = 0;

    /// \param timeoutMs how long to wait, in milliseconds, -1 without limit; streams in memory ignore it.
    /// \return true when data can be written.
    virtual bool waitToWrite(int timeoutMs) = 0;

    /// Moves the write position to a multiple of `alignment`, for stream kinds that define alignment. Does
    /// nothing unless overridden.
    virtual void align(unsigned int alignment);

    /// Writes `count` zero bytes in pieces of at most 512; short writes are ignored.
    virtual void writeSkip(unsigned int count);

    /// Writes up to `count` bytes from `src`. \return the number of bytes written.
    virtual unsigned int doWrite(const void* src, unsigned int count) = 0;

    /// The entry point of writers: doWrite.
    unsigned int write(const void* src, unsigned int count) { return doWrite(src, count); }

protected:
    IKoOStream() = default;
    IKoOStream(const IKoOStream&) = default;
    IKoOStream& operator=(const IKoOStream&) = default;
};
