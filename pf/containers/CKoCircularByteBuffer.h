#pragma once

/// \file
/// A ring of bytes with a fixed capacity that is also a stream: values are written at its end and read from
/// its begin with the stream operators, without ever allocating. It is for keeping the newest of a flow of
/// data, or for handing bytes from one part of a program to another; CKoByteStream is for content that has to
/// grow.
///
///     CKoCircularByteBuffer ring(4096);
///     ring << timestamp << name;
///     ring >> timestamp >> name;

#include "pf/base/CKoString.h"
#include "pf/containers/CKoRCMemoryBuffer.h"
#include "pf/stream/IKoIOStream.h"

/// Owns a block of capacity + 1 bytes, one of which always stays free. A copy has a block of its own.
///
/// Nothing blocks and nothing fails loudly: what does not fit or is not there shows in the returned counts
/// and in sticky flags. Once a write came short, every write and every move of the end does nothing; once a
/// read came short, the same holds for reads and moves of the begin. reset, assignment and reading the buffer
/// from a stream clear the flags. A buffer found inconsistent, or marked so by a stream, is invalid until
/// reset: its operations log that and return 0 or false.
///
/// Threads: one at a time. Cost: a transfer copies at most two runs of bytes; only construction, copies,
/// toString and the dumps allocate.
class KO_EXPORT CKoCircularByteBuffer : public IKoIOStream
{
public:
    /// An empty string; what toString and dumpLine give when there is no text. Usable before the library's
    /// constructors have run.
    static const CKoString EMPTY_STRING;

    /// An empty buffer for `capacity` bytes. A capacity that no block can have is reported and gives a buffer
    /// that is and stays invalid.
    explicit CKoCircularByteBuffer(unsigned int capacity);

    /// Copies storage and positions; the flags of the copy are clear.
    CKoCircularByteBuffer(const CKoCircularByteBuffer& other);
    CKoCircularByteBuffer& operator=(const CKoCircularByteBuffer& other);
    ~CKoCircularByteBuffer() override;

    /// Empties the buffer and clears all flags.
    void reset();

    /// Checks the positions and marks the buffer when they make no sense. \return true when it is invalid.
    bool isInvalid() const;

    /// Bytes held; 0 when invalid.
    unsigned int size() const;

    /// Bytes that can still be written; 0 when invalid.
    unsigned int getFreeSize() const;

    /// Shortens the content to its first `count` bytes. In an empty buffer it declares the next `count` bytes
    /// of the storage content, as they lie there.
    /// \return false when there are not so many; the flags then are exactly a write error.
    bool setSize(unsigned int count);

    /// Moves the begin: forward discards bytes, backward takes back bytes that were read. The bytes in
    /// between are what the storage holds. An empty buffer has no byte to discard, and none is taken back.
    /// \return false after an earlier read error, and for a refused move, which is a read error.
    bool moveRelativeBegin(int delta);

    /// Moves the end: backward takes back the bytes written last, forward declares the next bytes of the
    /// storage content. Forward it stops one byte short of a full buffer when the content wraps.
    /// \return false after an earlier write error, and for a refused move, which is a write error.
    bool moveRelativeEnd(int delta);

    /// Always true; nothing is ever waited for.
    bool waitToRead(int timeoutMs) override;
    bool waitToWrite(int timeoutMs) override;

    /// Do nothing.
    void ready() override;
    void flush() override;

    /// No alignment: nothing happens.
    using IKoIStream::align;
    using IKoOStream::align;

    /// Takes up to `count` bytes from the begin. \return their number. Fewer than asked, and any read of an
    /// empty buffer, is a read error.
    unsigned int doRead(void* dst, unsigned int count) const override;

    /// Appends up to `count` bytes, which may be a part of the content. \return their number; fewer than
    /// asked is a write error.
    unsigned int doWrite(const void* src, unsigned int count) override;

    /// Appends a string record: the byte length as operator<< of a string writes it, then as much of the text
    /// as fits. A record that does not fit is shorter than its length says. \return text bytes written.
    unsigned int serializeString(const CKoString& string);

    /// Whether the content begins with a whole record of exactly this string. Reads nothing.
    bool beginsWith(const CKoString& string) const;

    /// Discards bytes until the content begins with a record of this string.
    /// \return false when there is none: what then remains is shorter than the string. Also false after an
    /// earlier read error, when nothing can be discarded.
    bool goNextString(const CKoString& string);

    /// The position of the next byte to read, and the one behind the last byte; null in a buffer without
    /// storage. Valid until the buffer is changed.
    const unsigned char* logicBegin() const { return m_logicBegin; }
    const unsigned char* logicEnd() const { return m_logicEnd; }

    /// The bytes of the storage from one position to another, around its end when `from` lies behind `to`.
    /// Empty for equal positions and for an invalid buffer. Positions outside the storage are reported.
    CKoString toString(const unsigned char* from, const unsigned char* to) const;

    /// The same bytes in the same order, wherever they lie. An invalid buffer equals invalid ones only.
    bool operator==(const CKoCircularByteBuffer& other) const;
    bool operator!=(const CKoCircularByteBuffer& other) const { return !(*this == other); }

    /// Logs a line for each inconsistency of the positions and prints them to standard output.
    void explainError() const;

    /// Sizes and positions as text, and the content 16 bytes a line.
    CKoString dumpString() const;

    /// Up to 16 bytes from `offset` behind the begin on, in hexadecimal and as characters: always 76
    /// characters, or none when the content is shorter than `offset`.
    CKoString dumpLine(unsigned int offset) const;

private:
    enum Flag : unsigned int
    {
        READ_ERROR = 1U,
        WRITE_ERROR = 2U,
        INVALID = 4U
    };

    /// A part of the content as it lies in the storage; the second piece may be empty.
    struct SPieces
    {
        const unsigned char* first;
        unsigned int firstSize;
        const unsigned char* second;
        unsigned int secondSize;
    };

    void placeInStorage(unsigned int beginOffset, unsigned int endOffset);
    bool hasFlag(Flag flag) const { return (m_flags & flag) != 0U; }
    bool isInStorage(const unsigned char* position) const;
    bool isConsistent() const;
    unsigned int storageSize() const;
    unsigned int capacity() const;
    unsigned int held() const;
    unsigned int offsetOf(const unsigned char* position) const;
    unsigned int heldRun() const;
    unsigned int freeRun() const;
    unsigned int takeRun(unsigned char* dst, unsigned int count) const;
    unsigned int putRun(const unsigned char* src, unsigned int count);
    __attribute__((noinline)) unsigned int readRuns(unsigned char* dst, unsigned int count) const;
    __attribute__((noinline)) unsigned int writeRuns(const unsigned char* src, unsigned int count);
    __attribute__((noinline)) unsigned int refuseRead() const;
    __attribute__((noinline)) unsigned int refuseWrite() const;
    static unsigned int refuseNull(unsigned int count);
    bool findBegin(long long& target, bool isForward) const;
    bool findEnd(long long& target, bool isForward) const;
    bool findSize(long long& target) const;
    SPieces pieces(unsigned int offset, unsigned int count) const;
    void peek(unsigned int offset, void* dst, unsigned int count) const;
    bool matches(unsigned int offset, const void* bytes, unsigned int count) const;
    void writeTo(IKoOStream& stream) const;
    void readFrom(const IKoIStream& stream);

    friend KO_EXPORT IKoOStream& operator<<(IKoOStream& stream, const CKoCircularByteBuffer& buffer);
    friend KO_EXPORT const IKoIStream& operator>>(const IKoIStream& stream, CKoCircularByteBuffer& buffer);

    CKoRCMemoryBuffer m_storage;
    unsigned char* m_physBegin;          ///< first byte of the storage
    unsigned char* m_physEnd;            ///< behind the last byte of the storage
    mutable unsigned char* m_logicBegin; ///< next byte to read; at the end of the storage it means its begin
    unsigned char* m_logicEnd;           ///< next byte to write
    mutable unsigned int m_flags;        ///< of Flag
};

/// Writes the size as 4 bytes and then the content, which stays in the buffer. An invalid buffer is written
/// as the size FF FF FF FF alone.
KO_EXPORT IKoOStream& operator<<(IKoOStream& stream, const CKoCircularByteBuffer& buffer);

/// Reads what the operator above wrote, after a reset. The capacity stays: of a longer content the first
/// bytes are kept, the others are read and dropped, and the buffer has a write error. When the stream ends
/// early, the buffer holds the bytes that came. The size of an invalid buffer makes this one invalid.
KO_EXPORT const IKoIStream& operator>>(const IKoIStream& stream, CKoCircularByteBuffer& buffer);
