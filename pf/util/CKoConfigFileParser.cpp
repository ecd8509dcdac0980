#include "pf/util/CKoConfigFileParser.h"

#include "pf/containers/KoAlgorithm.h"
#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/platform/KoPlatformClose.h"
#include "pf/platform/KoPlatformFile.h"
#include "pf/platform/KoPlatformRetry.h"

#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace
{

/// The last byte that counts as white space.
constexpr unsigned char LAST_BLANK = ' ';

/// An open file, taken apart into lines, in a window on the stack.
class CLineReader
{
public:
    explicit CLineReader(int descriptor)
        : m_descriptor(descriptor)
    {
    }
    ~CLineReader()
    {
        const KoErrnoGuard guard;
        KoPlatform::close(m_descriptor);
    }
    CLineReader(const CLineReader&) = delete;
    CLineReader& operator=(const CLineReader&) = delete;

    /// \return the next line, or piece of one; the caller may change it until the next call, and the byte
    /// behind it. Null at the end of the file, or where it cannot be read on. \param length of its text: up
    /// to its end, or to a zero byte in it.
    char* next(std::size_t& length);

    /// Of the line that was read last, counted from 1.
    unsigned int lineNumber() const { return m_lineNumber; }

private:
    /// A few pieces at a time: short enough for the stacks of small threads, long enough that the kernel is
    /// entered seldom.
    static constexpr std::size_t CAPACITY = 4096U;
    static constexpr std::size_t MAX_PIECE = CKoConfigFileParser::MAX_LINE;

    std::size_t available() const { return static_cast<std::size_t>(m_end - m_begin); }
    std::size_t findPiece();
    bool readOn();

    int m_descriptor;
    unsigned int m_lineNumber = 0U;
    bool m_isLineBegin = true;
    bool m_isAtEnd = false;
    bool m_hasZeros = false;
    char m_behindPiece = '\0'; ///< what stands there, whatever the caller put there
    char* m_begin = m_bytes;
    char* m_end = m_bytes;
    char m_bytes[CAPACITY + 1U] = {}; ///< one more, behind a piece that reaches the end
};

char* CLineReader::next(std::size_t& length)
{
    *m_begin = m_behindPiece;
    length = findPiece();
    if (length == 0U)
    {
        return nullptr;
    }
    char* const piece = m_begin;
    m_begin += length;
    m_behindPiece = *m_begin;
    m_lineNumber += m_isLineBegin ? 1U : 0U;
    m_isLineBegin = m_begin[-1] == '\n';
    if (m_hasZeros)
    {
        length = ::strnlen(piece, length);
    }
    return piece;
}

/// Reads on until there is a whole piece. \return its length; 0 at the end.
std::size_t CLineReader::findPiece()
{
    for (;;)
    {
        const std::size_t limit = available() < MAX_PIECE ? available() : MAX_PIECE;
        const void* const lineEnd = std::memchr(m_begin, '\n', limit);
        if (lineEnd != nullptr)
        {
            return static_cast<std::size_t>(static_cast<const char*>(lineEnd) - m_begin) + 1U;
        }
        if (limit == MAX_PIECE || !readOn())
        {
            return available() < MAX_PIECE ? available() : MAX_PIECE;
        }
    }
}

/// \return whether there are more bytes than before. A line that cannot be read to its end is dropped.
bool CLineReader::readOn()
{
    if (m_isAtEnd)
    {
        return false;
    }
    const KoErrnoGuard guard;
    const std::size_t kept = available();
    std::memmove(m_bytes, m_begin, kept);
    m_begin = m_bytes;
    m_end = m_bytes + kept;
    const ssize_t got =
        KoPlatform::repeatInterrupted([&] { return ::read(m_descriptor, m_end, CAPACITY - kept); });
    m_isAtEnd = got <= 0;
    m_end = got < 0 ? m_begin : m_end + got;
    m_hasZeros = std::memchr(m_begin, '\0', available()) != nullptr;
    return !m_isAtEnd;
}

/// \return the first "#" from `text` on; `end` if there is none.
char* findMark(char* text, char* end)
{
    auto* const mark = static_cast<char*>(std::memchr(text, '#', static_cast<std::size_t>(end - text)));
    return mark != nullptr ? mark : end;
}

/// Takes the comment away, and the backslashes in front of ordinary "#". \return the new end of the text.
char* cutComment(char* text, char* end)
{
    char* from = findMark(text, end);
    char* to = from;
    while (from != end && to != text && to[-1] == '\\')
    {
        to[-1] = *from++;
        char* const next = findMark(from, end);
        const auto length = static_cast<std::size_t>(next - from);
        std::memmove(to, from, length);
        from = next;
        to += length;
    }
    return to;
}

/// \return the end of the text without the white space there.
char* cutBlanks(const char* text, char* end)
{
    // Bytes from 128 on are text, whatever the sign of `char`.
    while (end != text && static_cast<unsigned char>(end[-1]) <= LAST_BLANK)
    {
        --end;
    }
    return end;
}

} // namespace

bool CKoConfigFileParser::addSectionCallback(const CKoString& section, unsigned short sectionId,
                                             ICallback* callback)
{
    return m_sections.insert(section, {sectionId, callback});
}

bool CKoConfigFileParser::parse(const CKoString& fileName) const
{
    unsigned int lineNumber = 0U;
    return parse(fileName, lineNumber);
}

bool CKoConfigFileParser::parse(const CKoString& fileName, unsigned int& lineNumber) const
{
    lineNumber = 0U;
    const int descriptor = KoPlatform::open(fileName.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
    {
        return false;
    }
    CLineReader reader(descriptor);
    SSectionInfo current = {0U, nullptr};
    bool isGoingOn = true;
    while (isGoingOn)
    {
        std::size_t length = 0U;
        char* const line = reader.next(length);
        lineNumber = reader.lineNumber();
        isGoingOn = line != nullptr && processLine(line, line + length, current);
    }
    return true;
}

/// \param rawEnd where the text ends, with comment and blanks. \param current the section that the line is
/// in; becomes the one that it begins. \return whether to go on.
bool CKoConfigFileParser::processLine(char* line, char* rawEnd, SSectionInfo& current) const
{
    char* const end = cutBlanks(line, cutComment(line, rawEnd));
    *end = '\0';
    if (end == line)
    {
        return true;
    }
    if (*line == '[')
    {
        current = sectionOf(line + 1);
        return true;
    }
    return current.callback == nullptr || current.callback->processConfigFileEntry(current.sectionId, line);
}

/// \param header what follows the first bracket; the other one is replaced. \return what is registered for
/// the name there; no callback if nothing is.
CKoConfigFileParser::SSectionInfo CKoConfigFileParser::sectionOf(char* header) const
{
    using Entry = TKoPair<CKoString, SSectionInfo>;
    constexpr SSectionInfo NO_SECTION = {0U, nullptr};
    char* const nameEnd = std::strchr(header, ']');
    if (nameEnd == nullptr)
    {
        return NO_SECTION;
    }
    *nameEnd = '\0';
    // Compared as it stands: a CKoString would cut a name of malformed text, perhaps to a registered one.
    const auto isBefore = [](const Entry& entry, const char* name)
    { return std::strcmp(entry.first.c_str(), name) > 0; };
    const int index =
        KoAlgorithm::lowerBound(m_sections.data(), static_cast<int>(m_sections.size()), header, isBefore);
    const bool isThere = static_cast<std::size_t>(index) < m_sections.size();
    const Entry* const entry = isThere ? m_sections.get(index) : nullptr;
    return isThere && std::strcmp(entry->first.c_str(), header) == 0 ? entry->second : NO_SECTION;
}
