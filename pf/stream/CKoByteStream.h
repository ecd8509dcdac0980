#pragma once

/// \file
/// The serialisation stream in memory: values are written at the end and read from the front, each side with
/// a position of its own.
///
///     CKoByteStream stream;
///     stream << 7U << CKoString("name");
///     unsigned int number;
///     CKoString name;
///     stream >> number >> name;
///
/// What the operators write is laid down in docs/wire-format.md.

#include "pf/containers/CKoRCMemoryBuffer.h"
#include "pf/stream/IKoIOStream.h"
#include "pf/stream/KoStreamOperators.h"

#include <cstring>

class CKoBuffer;
class CKoString;

/// Owns one reference to a block of bytes, whose size is the capacity; the content is its first length()
/// bytes. Copies and streams made from a buffer share the block, and the first write to a shared one copies
/// it.
///
/// Errors: a read or skip beyond the content sets the error state, and every later one does nothing, until
/// the stream is assigned or read from another. Null pointers and sizes that no block can have are reported
/// and change nothing. Memory exhaustion ends the process.
///
/// Threads: one at a time; streams that share a block may live in different threads. Cost: a value written
/// with room or read is a copy in place; capacity doubles from 32 bytes; copying a stream is one atomic
/// increment.
class KO_EXPORT CKoByteStream : public IKoIOStream
{
public:
    /// Empty; allocates nothing.
    CKoByteStream() = default;

    /// Empty, with room for `capacity` bytes.
    explicit CKoByteStream(unsigned int capacity);

    /// Shares the buffer; its first `length` bytes are the content. More than the buffer has is reported and
    /// taken for all of it.
    CKoByteStream(const CKoRCMemoryBuffer& buffer, unsigned int length);

    /// Shares the buffer; all of it is the content.
    CKoByteStream(const CKoBuffer& buffer);

    /// Shares the other's bytes; reading starts at the front, without error.
    CKoByteStream(const CKoByteStream& other);

    ~CKoByteStream() override;

    /// Shares the other's bytes; reading starts at the front, without error. An empty other empties this
    /// stream, which keeps its block and capacity.
    CKoByteStream& operator=(const CKoByteStream& other);

    /// Shares the buffer; all of it is the content, and reading starts at the front, without error.
    CKoByteStream& operator=(const CKoBuffer& buffer);

    /// Appends. `src` may lie in this stream's content. \return `count`; 0, reported, for a null `src`
    /// (unless `count` is 0) and for a content that no block can hold.
    unsigned int doWrite(const void* src, unsigned int count) final;

    /// Reads from the current position. When fewer bytes are left, `dst` gets these and zeros behind them,
    /// and the error state is set. After an error `dst` is not touched. \return the bytes that were there; 0,
    /// reported, for a null `dst` (unless `count` is 0).
    unsigned int doRead(void* dst, unsigned int count) const final;

    /// doWrite and doRead for callers that know that this is a CKoByteStream: in place, without a call, as
    /// long as there is room, and there are enough bytes.
    unsigned int write(const void* src, unsigned int count)
    {
        if (src == nullptr || !hasRoom(count))
        {
            return append(src, count);
        }
        std::memcpy(m_buffer.getUnsharedBuffer() + m_length, src, count);
        m_length += count;
        return count;
    }

    unsigned int read(void* dst, unsigned int count) const
    {
        if (m_error || dst == nullptr || !hasRest(count))
        {
            return readRest(dst, count);
        }
        std::memcpy(dst, m_buffer.getBuffer() + m_position, count);
        m_position += count;
        return count;
    }

    /// Moves the read position over `count` bytes; over fewer, to the end, sets the error state.
    void readSkip(unsigned int count) const override;

    /// True while there is something to read. Never waits.
    bool waitToRead(int timeoutMs) override;

    /// True. Never waits.
    bool waitToWrite(int timeoutMs) override;

    /// Does nothing.
    void flush() override;

    /// Does nothing.
    void ready() override;

    /// Makes room: a capacity above the present one becomes exactly that. With `force` the block is replaced
    /// in any case by one of exactly `capacity` bytes that nobody shares; content that does not fit into it
    /// is cut.
    void reserve(unsigned int capacity, bool force);
    void reserve(unsigned int capacity) { reserve(capacity, false); }

    /// Appends up to `count` bytes of `in`; memory is taken as they arrive. \return the bytes that came.
    unsigned int readFromIStream(const IKoIStream& in, unsigned int count);

    /// Reads a text up to the next zero byte, and that byte, or up to the end when there is none. A text that
    /// is not valid is cut and logged, and the position stays at the first byte that was not taken.
    CKoString toString() const;

    /// Appends the whole content to `out`, each byte as two upper-case hexadecimal digits and a blank.
    void dump(CKoString& out) const;

    /// The first byte; null while the stream has no block.
    const unsigned char* getData() const { return m_buffer.getBuffer(); }

    /// The block with the content; its size is the capacity.
    const CKoRCMemoryBuffer& getMemoryBuffer() const { return m_buffer; }

    /// Bytes written so far.
    unsigned int length() const { return m_length; }

    /// Index of the byte that is read next.
    unsigned int position() const { return m_position; }

    /// Whether a read or skip has met the end of the content, or the stream was read from one that ended too
    /// early.
    bool hasError() const { return m_error; }

    /// The same content; positions and errors do not count.
    bool operator==(const CKoByteStream& other) const;
    bool operator!=(const CKoByteStream& other) const { return !(*this == other); }

    /// Writes, aligned to 4, the whole block: its size and all its bytes, also those behind the content.
    static void toNubStream(IKoOStream& out, const CKoByteStream& stream);

    /// Reads, aligned to 4, what toNubStream wrote: all of it becomes the content and the block, which then
    /// has no room. Otherwise as operator>>.
    static void fromNubStream(const IKoIStream& in, CKoByteStream& stream);

private:
    friend KO_EXPORT const IKoIStream& operator>>(const IKoIStream& in, CKoByteStream& stream);
    friend KO_EXPORT CKoByteStream& operator<<(CKoByteStream& out, const CKoString& string);
    friend KO_EXPORT const CKoByteStream& operator>>(const CKoByteStream& in, CKoString& string);

    /// Whether `count` bytes can be appended in place. Not for none, as there may be no block.
    bool hasRoom(unsigned long long count) const
    {
        return m_length + count <= m_buffer.getSize() && count != 0 && !m_buffer.isShared();
    }

    /// Whether `count` bytes are left to read. Not for none, as there may be no block.
    bool hasRest(unsigned int count) const { return count != 0 && count <= m_length - m_position; }

    unsigned int append(const void* src, unsigned int count);
    unsigned int readRest(void* dst, unsigned int count) const;
    unsigned int room() const;
    unsigned int appendFrom(const IKoIStream& in, unsigned int count, bool isExact);
    bool readWhole(CKoString& string) const;
    void empty();
    void restoreFrom(const IKoIStream& in);

    CKoRCMemoryBuffer m_buffer;
    unsigned int m_length = 0;
    mutable unsigned int m_position = 0;
    mutable bool m_error = false;
};

/// Writes the length as 4 bytes and then the content. A short write shows in the target's own state.
KO_EXPORT IKoOStream& operator<<(IKoOStream& out, const CKoByteStream& stream);

/// Reads what the operator above wrote; reading `stream` then starts at its front. The length in the stream
/// is a claim: memory is taken as bytes arrive. When fewer come, they are the content and the error state is
/// set.
KO_EXPORT const IKoIStream& operator>>(const IKoIStream& in, CKoByteStream& stream);

/// Strings and values of the built-in types, as the operators of all streams do it but in place.
KO_EXPORT CKoByteStream& operator<<(CKoByteStream& out, const CKoString& string);
KO_EXPORT const CKoByteStream& operator>>(const CKoByteStream& in, CKoString& string);

template <class T>
std::enable_if_t<KoPrivate::IS_STREAMED<T>, CKoByteStream&> operator<<(CKoByteStream& out, const T& value)
{
    if constexpr (KoPrivate::IS_LITTLE_ENDIAN)
    {
        out.write(&value, sizeof(T));
    }
    else
    {
        KoPrivate::writeValue(out, &value, sizeof(T));
    }
    return out;
}

template <class T>
std::enable_if_t<KoPrivate::IS_STREAMED<T>, const CKoByteStream&> operator>>(const CKoByteStream& in,
                                                                             T& value)
{
    if constexpr (KoPrivate::IS_LITTLE_ENDIAN && !std::is_same_v<T, bool>)
    {
        in.read(&value, sizeof(T));
    }
    else
    {
        static_cast<const IKoIStream&>(in) >> value;
    }
    return in;
}
