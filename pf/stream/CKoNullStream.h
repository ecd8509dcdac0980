#pragma once

#include "pf/stream/IKoIOStream.h"

/// A stream that accepts and yields nothing: every transfer moves 0 bytes and touches no memory. Any thread
/// may use any instance at any time.
class KO_EXPORT CKoNullStream : public IKoIOStream
{
public:
    /// For the whole process: constructed when the library is loaded, destroyed at exit.
    static CKoNullStream INSTANCE;

    ~CKoNullStream() override;

    bool waitToRead(int timeoutMs) override;
    void ready() override;
    void readSkip(unsigned int count) const override;
    unsigned int doRead(void* dst, unsigned int count) const override;

    void flush() override;
    bool waitToWrite(int timeoutMs) override;
    void writeSkip(unsigned int count) override;
    unsigned int doWrite(const void* src, unsigned int count) override;
};
