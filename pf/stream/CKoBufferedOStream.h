#pragma once

#include "pf/stream/CKoByteStream.h"

/// Turns everything that is written between two flushes into one record in the target: the number of bytes
/// and then the bytes, as a CKoByteStream is written.
///
/// Every flush, also that of the destructor, makes a record, an empty one where nothing was written. The
/// target is not owned and must outlive this stream; how much of a record it took is not looked at. One
/// thread at a time.
class KO_EXPORT CKoBufferedOStream : public IKoOStream
{
public:
    /// \param capacity bytes that can be written between two flushes without an allocation.
    CKoBufferedOStream(IKoOStream& target, const unsigned int& capacity);

    /// Flushes.
    ~CKoBufferedOStream() override;

    CKoBufferedOStream(const CKoBufferedOStream&) = delete;
    CKoBufferedOStream& operator=(const CKoBufferedOStream&) = delete;

    /// Passes the record on, flushes the target and begins the next record.
    void flush() override;

    /// What the target answers.
    bool waitToWrite(int timeoutMs) override;

    /// Adds to the record. \return `count`; 0 for what a CKoByteStream refuses.
    unsigned int doWrite(const void* src, unsigned int count) override;

private:
    void passOn();

    IKoOStream& m_target;
    CKoByteStream m_buffer;
};
