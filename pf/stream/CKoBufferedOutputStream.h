#pragma once

#include "pf/stream/CKoByteStream.h"

/// A write buffer: the target receives exactly the bytes that are written, in the same order, in fewer and
/// larger writes.
///
/// The target is not owned and must outlive this stream; how much of the buffered bytes it took is not looked
/// at. One thread at a time.
class KO_EXPORT CKoBufferedOutputStream : public IKoOStream
{
public:
    /// \param capacity bytes that can be held back without an allocation.
    /// \param buffered true passes bytes on when `capacity` of them are held back; false only when flushed.
    /// Buffering with a capacity of 0 is reported and taken for false.
    CKoBufferedOutputStream(IKoOStream& target, unsigned int capacity, bool buffered);

    /// Flushes.
    ~CKoBufferedOutputStream() override;

    CKoBufferedOutputStream(const CKoBufferedOutputStream&) = delete;
    CKoBufferedOutputStream& operator=(const CKoBufferedOutputStream&) = delete;

    /// Passes on what is held back, in one write, and flushes the target.
    void flush() override;

    /// What the target answers.
    bool waitToWrite(int timeoutMs) override;

    /// Holds the bytes back; as many as are passed on at once go to the target directly, behind a flush.
    /// \return `count`, or 0 for what a CKoByteStream refuses; the target's count of a direct write.
    unsigned int doWrite(const void* src, unsigned int count) override;

private:
    void passOn();
    void passOnAndFlush();

    IKoOStream& m_target;
    CKoByteStream m_buffer;
    unsigned int m_threshold; ///< 0: only a flush passes on
};
