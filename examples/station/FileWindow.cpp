#include "FileWindow.h"

#include <cstring>

#include <fcntl.h>

FileWindow::FileWindow(const CKoPath& path)
    : m_file(path, O_RDONLY)
{
}

bool FileWindow::has(unsigned int count)
{
    while (m_end - m_begin < count && !m_isAtEnd)
    {
        m_end -= m_begin;
        std::memmove(m_bytes.data(), bytes(), m_end);
        m_begin = 0;
        const int got = m_file.read(m_bytes.data() + m_end, CAPACITY - m_end, -1);
        m_isAtEnd = got <= 0;
        m_hasFailed = got < 0;
        m_end += got > 0 ? static_cast<unsigned int>(got) : 0;
    }
    return m_end - m_begin >= count;
}

void FileWindow::skip(unsigned int count)
{
    m_begin += count;
    m_position += count;
}
