#include "RecordFile.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>

#include "Message.h"
#include "pf/util/CKoCRC.h"
#include "pf/util/KoFileOperations.h"

namespace
{

constexpr unsigned int WORD = sizeof(unsigned int);
constexpr unsigned int FRAME = 2 * WORD; ///< what a record has around its content
static_assert(FRAME + Message::LARGEST <= FileWindow::CAPACITY);

unsigned int wordAt(const unsigned char* bytes)
{
    return bytes[0] | bytes[1] << 8U | bytes[2] << 16U | static_cast<unsigned int>(bytes[3]) << 24U;
}

bool isPossible(unsigned int length)
{
    return length >= Message::SMALLEST && length <= Message::LARGEST;
}

unsigned int crcOf(const unsigned char* bytes, unsigned int count)
{
    CKoCRC crc(CKoCRC::eCRC32);
    crc.addBytes(bytes, count);
    return crc.getCRC();
}

/// \return whether there is a directory for the file, made now or before.
bool makeDirectoryOf(const CKoPath& path)
{
    constexpr int MODE = 0755;
    const CKoPath directory(path.getBranch());
    return directory.getString().isEmpty() || KoFileOperations::makeDirRecursive(directory, MODE) ||
           errno == EEXIST;
}

} // namespace

RecordReader::RecordReader(const CKoPath& path)
    : m_path(path)
    , m_file(path)
{
}

bool RecordReader::next(CKoByteStream& record)
{
    m_offset = m_file.position();
    const bool mayBeCut = isCutShort();
    unsigned int length = wholeLength();
    while (length == 0 && m_file.has(1))
    {
        m_file.skip(1);
        length = wholeLength();
    }
    const bool isFound = length > 0;
    tellOfGap(mayBeCut && !isFound);
    if (isFound)
    {
        m_offset = m_file.position();
        record = CKoByteStream();
        record.write(m_file.bytes() + WORD, length);
        m_file.skip(FRAME + length);
        m_end = m_file.position();
        m_hasRecords = true;
    }
    return isFound;
}

/// The length of the content if a whole record begins here; 0 if none does.
unsigned int RecordReader::wholeLength()
{
    const unsigned int length = m_file.has(FRAME) ? wordAt(m_file.bytes()) : 0;
    if (!isPossible(length) || !m_file.has(FRAME + length))
    {
        return 0;
    }
    const unsigned char* const bytes = m_file.bytes();
    return crcOf(bytes, WORD + length) == wordAt(bytes + WORD + length) ? length : 0;
}

/// Whether the file ends in the middle of what may be a record.
bool RecordReader::isCutShort()
{
    if (!m_file.has(WORD))
    {
        return m_file.has(1);
    }
    const unsigned int length = wordAt(m_file.bytes());
    return isPossible(length) && !m_file.has(FRAME + length);
}

/// Tells of what lies between the record before and here.
void RecordReader::tellOfGap(bool isCut)
{
    const unsigned long long count = m_file.position() - m_offset;
    if (m_file.hasFailed())
    {
        reject("cannot be read");
    }
    else if (isCut)
    {
        reject("is cut short");
    }
    else if (count > 0)
    {
        CKoString why;
        why.format("is damaged: %llu bytes are passed over", count);
        reject(why.c_str());
        m_end = m_file.position();
    }
}

void RecordReader::reject(const char* why)
{
    m_isAllOfUse = false;
    std::fprintf(stderr, "%s: the record at byte %llu %s\n", m_path.getString().c_str(), m_offset, why);
}

RecordWriter::RecordWriter(const CKoPath& path, unsigned long long end)
{
    const bool isReady = makeDirectoryOf(path) && m_file.open(path, O_WRONLY | O_CREAT) &&
                         m_file.truncate(end) && m_file.seek(0, SEEK_DIRECTION_END);
    if (!isReady)
    {
        const int reason = errno;
        m_file.close();
        errno = reason;
    }
}

bool RecordWriter::append(const CKoByteStream& record)
{
    CKoByteStream framed;
    framed << record;
    framed << crcOf(framed.getData(), framed.length());
    return m_file.writeN(framed.getData(), framed.length(), -1);
}
