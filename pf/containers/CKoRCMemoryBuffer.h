#pragma once

#include "pf/base/KoExport.h"
#include "pf/oswrapper/KoAtomic.h"

class IKoIStream;
class IKoOStream;

/// A block of bytes of fixed size that all copies share by reference counting. A shared block is read-only:
/// asking to write into it is reported, not silently copied. CKoBuffer adds resizing and copying on write.
///
/// One pointer; empty buffers share one static block and allocate nothing. Buffers that share a block may be
/// copied, assigned and destroyed in different threads; a single buffer object and the bytes are for one
/// thread at a time. The count is changed atomically, and the last one to drop it sees all that the others
/// did before. A copy costs one atomic increment; header and bytes are one allocation, which is checked.
class KO_EXPORT CKoRCMemoryBuffer
{
public:
    /// The most bytes a block can have: its header and they have to fit into a 32-bit size.
    static constexpr unsigned int MAX_SIZE = 0xFFFFFFE8U;

    /// Empty.
    CKoRCMemoryBuffer()
        : m_data(&sNullBuffer)
    {
    }

    /// A block of `size` bytes with undefined content; empty for size 0. A size above MAX_SIZE is
    /// reported and gives an empty buffer.
    explicit CKoRCMemoryBuffer(unsigned int size);

    CKoRCMemoryBuffer(const CKoRCMemoryBuffer& other)
        : m_data(other.m_data)
    {
        addRef();
    }

    ~CKoRCMemoryBuffer()
    {
        removeRef();
        m_data = nullptr;
    }

    CKoRCMemoryBuffer& operator=(const CKoRCMemoryBuffer& other);

    /// The bytes, for writing; null when empty. A shared block is reported and given all the same.
    unsigned char* getBuffer();

    /// The bytes, for reading; null when empty.
    const unsigned char* getBuffer() const { return m_data->data; }

    /// The bytes, for writing, when this buffer is known to be the only one of its block.
    unsigned char* getUnsharedBuffer() { return m_data->data; }

    /// Makes the block one of `size` bytes that this buffer alone refers to and that begins with the old
    /// bytes; what is added is undefined. A size above MAX_SIZE is reported and changes nothing.
    void makePrivate(unsigned int size);

    /// Number of bytes.
    unsigned int getSize() const { return m_data->size; }

    /// Whether another buffer refers to the same block.
    bool isShared() const { return KoAtomic::load(m_data->refCount) >= 2; }

    /// Counts one more reference to the block, for an owner that is no buffer object and that sees to it that
    /// a buffer of the block drops one reference more.
    void addRef()
    {
        if (m_data != &sNullBuffer)
        {
            KoAtomic::increment(m_data->refCount);
        }
    }

    /// Drops one reference, frees the block with the last one, and leaves this buffer empty.
    void removeRef()
    {
        if (m_data != &sNullBuffer)
        {
            dropBlock();
        }
    }

    /// The same block, or the same number of the same bytes. Null blocks equal each other only.
    bool operator==(const CKoRCMemoryBuffer& other) const;
    bool operator!=(const CKoRCMemoryBuffer& other) const { return !(*this == other); }

protected:
    /// Header of a block; the bytes follow it at a multiple of 8.
    struct alignas(8) SData
    {
        unsigned int refCount;
        unsigned int size;
        unsigned char* data;
    };

    /// The block of all empty buffers: never counted, never freed, never written.
    static SData sNullBuffer;

    /// Whether a block can have so many bytes.
    static bool isValidSize(unsigned int size);

    /// A new block with one reference; the null block for 0. The size must be valid.
    static SData* createBlock(unsigned int size);

    /// Drops the own reference and takes over that of `block`.
    void replaceBlock(SData* block);

    SData* m_data;

private:
    void dropBlock();
    static SData* resizeBlock(SData* block, unsigned int size);
    void readFrom(const IKoIStream& stream);

    friend KO_EXPORT const IKoIStream& operator>>(const IKoIStream& stream, CKoRCMemoryBuffer& buffer);
};

/// Writes the size as 4 bytes and then the bytes. A short write is reported.
KO_EXPORT IKoOStream& operator<<(IKoOStream& stream, const CKoRCMemoryBuffer& buffer);

/// Reads what the operator above wrote into a new block. The size in the stream is a claim: large ones are
/// read in pieces and memory is taken as bytes arrive. When the stream ends early, the buffer holds the bytes
/// that came, and the stream's state tells that there were too few.
KO_EXPORT const IKoIStream& operator>>(const IKoIStream& stream, CKoRCMemoryBuffer& buffer);
