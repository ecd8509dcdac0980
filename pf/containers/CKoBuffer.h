#pragma once

#include "pf/containers/CKoRCMemoryBuffer.h"

class CKoByteStream;

/// A CKoRCMemoryBuffer that can be resized and that copies a shared block before copyTo writes into it.
///
/// Sharing, threads and cost are those of the base; any change of size but truncate allocates. Sizes and
/// offsets whose sum no block can have are reported and change nothing.
class KO_EXPORT CKoBuffer : public CKoRCMemoryBuffer
{
public:
    using CKoRCMemoryBuffer::CKoRCMemoryBuffer;

    /// Empty.
    CKoBuffer() = default;

    /// A private copy of exactly the bytes written to the stream.
    CKoBuffer(const CKoByteStream& stream);
    CKoBuffer& operator=(const CKoByteStream& stream);

    /// Replaces the block by a private one of `size` bytes that begins with the old bytes; what is added is
    /// undefined. Nothing happens when the size is unchanged, unless `force` asks for a private copy.
    void resize(unsigned int size, bool force);
    void resize(unsigned int size) { resize(size, false); }

    /// resize to `size` when that is larger than the current size; with `force` always at least a private
    /// copy.
    void reserve(unsigned int size, bool force);
    void reserve(unsigned int size) { reserve(size, false); }

    /// Sets a smaller size in place, a larger one by resize. Truncating a shared block is reported, and then
    /// truncates it for all that share it (size 0 only parts from the block).
    void truncate(unsigned int size);

    /// Copies up to `count` bytes from `offset` on to `dst`.
    /// \return the number copied; 0 for an offset at or behind the end and for a null `dst`.
    unsigned int copyFrom(void* dst, unsigned int count, unsigned int offset) const;

    /// Copies `count` bytes to `offset`, after growing and, when the block is shared, copying it. `src` may
    /// lie in this buffer. \return `count`; 0 for a null `src` and, reported, for a range no block can have.
    unsigned int copyTo(const void* src, unsigned int count, unsigned int offset);

    /// Align the stream to 4, then write or read as the stream operators do.
    static void toNubStream(IKoOStream& stream, const CKoBuffer& buffer);
    static void fromNubStream(const IKoIStream& stream, CKoBuffer& buffer);
};

KO_EXPORT IKoOStream& operator<<(IKoOStream& stream, const CKoBuffer& buffer);
KO_EXPORT const IKoIStream& operator>>(const IKoIStream& stream, CKoBuffer& buffer);
