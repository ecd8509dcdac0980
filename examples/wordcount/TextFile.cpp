#include "TextFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

namespace
{

struct CloseFile
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};

void lowerAscii(std::string& bytes)
{
    for (char& byte : bytes)
    {
        if (byte >= 'A' && byte <= 'Z')
        {
            byte = static_cast<char>(byte - 'A' + 'a');
        }
    }
}

} // namespace

TextFile::TextFile(const std::string& path)
{
    std::string bytes;
    readBytes(path, bytes);
    if (!m_problem.empty())
    {
        return;
    }
    lowerAscii(bytes);
    m_text = CKoString(bytes.c_str(), static_cast<unsigned int>(bytes.size()));
    if (m_text.byteLength() != bytes.size())
    {
        m_problem = "no text from byte " + std::to_string(m_text.byteLength()) + " of " +
                    std::to_string(bytes.size()) + " on";
    }
}

void TextFile::readBytes(const std::string& path, std::string& bytes)
{
    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "rb"));
    if (file == nullptr)
    {
        m_problem = std::strerror(errno);
        return;
    }
    char buffer[65536];
    std::size_t count = 0;
    while (bytes.size() <= MAX_BYTES && (count = std::fread(buffer, 1, sizeof(buffer), file.get())) > 0)
    {
        bytes.append(buffer, count);
    }
    if (std::ferror(file.get()) != 0)
    {
        m_problem = std::strerror(errno);
    }
    else if (bytes.size() > MAX_BYTES)
    {
        m_problem = "larger than " + std::to_string(MAX_BYTES) + " bytes";
    }
}

std::vector<std::string> regularFilesIn(const std::string& directory)
{
    std::vector<std::string> paths;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error))
    {
        if (std::filesystem::is_regular_file(entry.symlink_status()))
        {
            paths.push_back(entry.path().string());
        }
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}
