#pragma once

#include "pf/base/KoExport.h"
#include "pf/stream/SeekDirection.h"

/// Reads a caller's memory as if it were a file: a position that moves with every read and can be set.
/// CKoByteStream is the choice for serialised values.
///
/// Owns nothing: the memory must outlive the reader and its copies. Copies have positions of their own. One
/// thread at a time. Failures are results with `errno` set to EINVAL; nothing allocates.
class KO_EXPORT CKoBufferReader
{
public:
    /// Reads [data, data + size) from the front. A null `data` or a size of 0 is reported and gives a reader
    /// that has nothing to read.
    CKoBufferReader(const void* data, unsigned int size);

    /// Bytes before the current position.
    unsigned int tell() const;

    /// Moves the current position; every position from the first byte to behind the last one is valid.
    /// \return false with EINVAL, and nothing moved, for a position outside, for SEEK_DIRECTION_NONE and for
    /// a value that is no direction.
    bool seek(int offset, SeekDirection direction);

    /// Copies up to `count` bytes, at most INT_MAX, from the current position on and moves it behind them.
    /// The last argument is ignored.
    /// \return the bytes copied, 0 at the end; -1 with EINVAL for a null `dst` (unless `count` is 0).
    int read(void* dst, unsigned int count, int unused = 0);

private:
    bool seek_set(int offset);
    bool seek_cur(int offset);
    bool seek_end(int offset);
    bool seek_none(int offset);
    bool moveTo(long long position);

    /// One function for each direction, in the order of their values.
    static bool (CKoBufferReader::*const ms_seektable[4])(int offset);

    const unsigned char* m_begin;
    unsigned int m_size;
    const unsigned char* m_current;
};
