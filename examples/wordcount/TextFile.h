#pragma once

#include <string>
#include <vector>

#include "pf/base/CKoString.h"

/// Reads a whole text file. Bytes that are no UTF-8 end the text there; ASCII letters come in lower case.
class TextFile
{
public:
    /// Larger files are refused.
    static constexpr std::size_t MAX_BYTES = 256U * 1024U * 1024U;

    explicit TextFile(const std::string& path);

    /// What could be read; empty when nothing could.
    const CKoString& text() const { return m_text; }
    /// Why the file was not read or not read to its end; empty when all of it was.
    const std::string& problem() const { return m_problem; }

private:
    void readBytes(const std::string& path, std::string& bytes);

    CKoString m_text;
    std::string m_problem;
};

/// The regular files of a directory, sorted; symbolic links are left out, so that no text is counted twice.
std::vector<std::string> regularFilesIn(const std::string& directory);
