#pragma once

#include <array>

#include "pf/util/CKoFileHandle.h"

/// A file from front to back, of which the next few bytes can be looked at before it goes on. One thread at a
/// time.
class FileWindow
{
public:
    static constexpr unsigned int CAPACITY = 4096;

    explicit FileWindow(const CKoPath& path);

    /// \return false if there is no file that could be read; the reason is in `errno`.
    bool isOpen() const { return m_file.isOpen(); }

    /// Whether the file could not be read on. It then seems to end there.
    bool hasFailed() const { return m_hasFailed; }

    /// Reads on as needed. \param count at most CAPACITY. \return whether bytes() has so many; if not, the
    /// file ends before.
    bool has(unsigned int count);

    /// The bytes that has() told of, until the next call of it.
    const unsigned char* bytes() const { return m_bytes.data() + m_begin; }

    /// Goes on over `count` of them.
    void skip(unsigned int count);

    /// Bytes of the file before those of bytes().
    unsigned long long position() const { return m_position; }

private:
    CKoFileHandle m_file;
    bool m_isAtEnd = false;
    bool m_hasFailed = false;
    std::array<unsigned char, CAPACITY> m_bytes{};
    unsigned int m_begin = 0;
    unsigned int m_end = 0;
    unsigned long long m_position = 0;
};
