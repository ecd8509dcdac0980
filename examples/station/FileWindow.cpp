#include "FileWindow.h"

#include <cstring>

FileWindow::FileWindow(const std::string& path)
    : m_file(path, std::ios::binary)
{
}

bool FileWindow::has(unsigned int count)
{
    if (m_end - m_begin < count && m_file.good())
    {
        m_end -= m_begin;
        std::memmove(m_bytes.data(), bytes(), m_end);
        m_begin = 0;
        m_file.read(reinterpret_cast<char*>(m_bytes.data() + m_end), CAPACITY - m_end);
        m_end += static_cast<unsigned int>(m_file.gcount());
    }
    return m_end - m_begin >= count;
}

void FileWindow::skip(unsigned int count)
{
    m_begin += count;
    m_position += count;
}
