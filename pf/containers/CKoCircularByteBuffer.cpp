#include "pf/containers/CKoCircularByteBuffer.h"

#include "pf/base/KoShortCopy.h"
#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoLoadOrder.h"
#include "pf/oswrapper/KoSyslog.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>

namespace
{

constexpr char FILE_TEXT[] = "CKoCircularByteBuffer";

/// Transfers up to here are copied without a call: fields and small records are what mostly comes.
constexpr unsigned int SHORT_TRANSFER = 64;

/// Copies 17 to 32 bytes, some of them twice.
inline void copyTwoBlocks(unsigned char* dst, const unsigned char* src, unsigned int count)
{
    constexpr unsigned int BLOCK = 16;
    unsigned char first[BLOCK];
    unsigned char last[BLOCK];
    std::memcpy(first, src, BLOCK);
    std::memcpy(last, src + (count - BLOCK), BLOCK);
    std::memcpy(dst, first, BLOCK);
    std::memcpy(dst + (count - BLOCK), last, BLOCK);
}

inline void copyShortTransfer(unsigned char* dst, const unsigned char* src, unsigned int count)
{
    if (count > 32U)
    {
        copyTwoBlocks(dst, src, 32U);
        copyTwoBlocks(dst + (count - 32U), src + (count - 32U), 32U);
    }
    else if (count > 16U)
    {
        copyTwoBlocks(dst, src, count);
    }
    else if (count > 0U)
    {
        KoPrivate::copyShort(reinterpret_cast<char*>(dst), reinterpret_cast<const char*>(src), count);
    }
}

} // namespace

// Needs no constructor, so that uses before its turn find it ready.
const CKoString CKoCircularByteBuffer::EMPTY_STRING KO_INIT_ORDER(KoLoadOrder::CIRCULAR_BUFFER_EMPTY_STRING);

CKoCircularByteBuffer::CKoCircularByteBuffer(unsigned int capacity)
    : m_storage(capacity + 1U)
{
    if (capacity == UINT_MAX)
    {
        doCheapAssert(__LINE__, FILE_TEXT);
    }
    placeInStorage(0, 0);
    if (m_physBegin != nullptr)
    {
        // The moves can declare bytes content that nobody wrote.
        std::memset(m_physBegin, 0, storageSize());
    }
}

CKoCircularByteBuffer::CKoCircularByteBuffer(const CKoCircularByteBuffer& other)
    : IKoIOStream(other)
    , m_storage(other.m_storage.getSize())
{
    placeInStorage(other.offsetOf(other.m_logicBegin), other.offsetOf(other.m_logicEnd));
    if (m_physBegin != nullptr)
    {
        std::memcpy(m_physBegin, other.m_physBegin, storageSize());
    }
}

CKoCircularByteBuffer& CKoCircularByteBuffer::operator=(const CKoCircularByteBuffer& other)
{
    if (m_storage.getSize() != other.m_storage.getSize())
    {
        m_storage = CKoRCMemoryBuffer(other.m_storage.getSize());
    }
    placeInStorage(other.offsetOf(other.m_logicBegin), other.offsetOf(other.m_logicEnd));
    if (this != &other && m_physBegin != nullptr)
    {
        std::memcpy(m_physBegin, other.m_physBegin, storageSize());
    }
    return *this;
}

CKoCircularByteBuffer::~CKoCircularByteBuffer()
{
    m_physBegin = nullptr;
    m_physEnd = nullptr;
    m_logicBegin = nullptr;
    m_logicEnd = nullptr;
}

/// Sets all pointers and clears the flags. Without storage all pointers are null, which makes the buffer
/// invalid.
void CKoCircularByteBuffer::placeInStorage(unsigned int beginOffset, unsigned int endOffset)
{
    m_physBegin = m_storage.getBuffer();
    m_physEnd = m_physBegin + m_storage.getSize();
    m_logicBegin = m_physBegin + beginOffset;
    m_logicEnd = m_physBegin + endOffset;
    m_flags = 0;
}

void CKoCircularByteBuffer::reset()
{
    placeInStorage(0, 0);
}

/// Whether a position lies in the storage or at its end, wherever it points. No null pointer does.
bool CKoCircularByteBuffer::isInStorage(const unsigned char* position) const
{
    const auto first = reinterpret_cast<std::uintptr_t>(m_physBegin);
    const auto last = reinterpret_cast<std::uintptr_t>(m_physEnd);
    return reinterpret_cast<std::uintptr_t>(position) - first <= last - first;
}

bool CKoCircularByteBuffer::isConsistent() const
{
    return m_physBegin != nullptr && std::less<const unsigned char*>()(m_physBegin, m_physEnd) &&
           isInStorage(m_logicBegin) && isInStorage(m_logicEnd);
}

bool CKoCircularByteBuffer::isInvalid() const
{
    if (!isConsistent())
    {
        m_flags |= INVALID;
    }
    return hasFlag(INVALID);
}

unsigned int CKoCircularByteBuffer::offsetOf(const unsigned char* position) const
{
    return static_cast<unsigned int>(position - m_physBegin);
}

unsigned int CKoCircularByteBuffer::storageSize() const
{
    return offsetOf(m_physEnd);
}

unsigned int CKoCircularByteBuffer::capacity() const
{
    return std::max(storageSize(), 1U) - 1U;
}

/// The size of a valid buffer. It is one more than the capacity after the begin was moved back to the start
/// of the storage under a content that setSize had declared up to the end of the storage.
unsigned int CKoCircularByteBuffer::held() const
{
    const unsigned int begin = offsetOf(m_logicBegin);
    const unsigned int end = offsetOf(m_logicEnd);
    return begin <= end ? end - begin : end + (storageSize() - begin);
}

unsigned int CKoCircularByteBuffer::size() const
{
    if (isInvalid())
    {
        KoSyslog::logMsg(0, KoSyslog::Error, "[CKoCircularByteBuffer::size:%d] invalid buffer", __LINE__);
        return 0;
    }
    return held();
}

unsigned int CKoCircularByteBuffer::getFreeSize() const
{
    const unsigned int used = size();
    return hasFlag(INVALID) ? 0U : capacity() - std::min(used, capacity());
}

// --- Transfers --------------------------------------------------------------------------------------------

bool CKoCircularByteBuffer::waitToRead(int)
{
    return true;
}

bool CKoCircularByteBuffer::waitToWrite(int)
{
    return true;
}

void CKoCircularByteBuffer::ready()
{
}

void CKoCircularByteBuffer::flush()
{
}

/// Bytes from the begin on that lie in one piece.
unsigned int CKoCircularByteBuffer::heldRun() const
{
    const unsigned char* const last = m_logicBegin <= m_logicEnd ? m_logicEnd : m_physEnd;
    return static_cast<unsigned int>(last - m_logicBegin);
}

/// Free bytes from the end on that lie in one piece.
unsigned int CKoCircularByteBuffer::freeRun() const
{
    if (m_logicBegin > m_logicEnd)
    {
        return static_cast<unsigned int>(m_logicBegin - m_logicEnd) - 1U;
    }
    // At the end of the storage the end would wrap and meet a begin at its start.
    const unsigned int run = static_cast<unsigned int>(m_physEnd - m_logicEnd);
    return m_logicBegin == m_physBegin && run > 0 ? run - 1U : run;
}

/// Copies bytes of the first run out and moves the begin to the second when the first is used up.
unsigned int CKoCircularByteBuffer::takeRun(unsigned char* dst, unsigned int count) const
{
    count = std::min(count, heldRun());
    std::memcpy(dst, m_logicBegin, count);
    m_logicBegin += count;
    if (m_logicBegin == m_physEnd && m_logicEnd != m_physEnd)
    {
        m_logicBegin = m_physBegin;
    }
    return count;
}

/// Copies bytes into the first free run and moves the end to the second when the first is used up.
unsigned int CKoCircularByteBuffer::putRun(const unsigned char* src, unsigned int count)
{
    count = std::min(count, freeRun());
    std::memcpy(m_logicEnd, src, count);
    m_logicEnd += count;
    if (m_logicEnd == m_physEnd && m_logicBegin != m_physBegin)
    {
        m_logicEnd = m_physBegin;
    }
    return count;
}

unsigned int CKoCircularByteBuffer::doRead(void* dst, unsigned int count) const
{
    if (isInvalid())
    {
        return refuseRead();
    }
    if (hasFlag(READ_ERROR))
    {
        return 0;
    }
    unsigned char* const begin = m_logicBegin;
    if (count <= SHORT_TRANSFER && count < heldRun() && dst != nullptr)
    {
        copyShortTransfer(static_cast<unsigned char*>(dst), begin, count);
        m_logicBegin = begin + count;
        return count;
    }
    return readRuns(static_cast<unsigned char*>(dst), count);
}

/// Reads what is long or may use up the first run.
unsigned int CKoCircularByteBuffer::readRuns(unsigned char* dst, unsigned int count) const
{
    if (m_logicBegin == m_logicEnd)
    {
        m_flags |= READ_ERROR;
        return 0;
    }
    if (dst == nullptr)
    {
        return refuseNull(count);
    }
    unsigned int copied = takeRun(dst, count);
    if (copied < count)
    {
        copied += takeRun(dst + copied, count - copied);
        m_flags |= copied < count ? READ_ERROR : 0U;
    }
    return copied;
}

unsigned int CKoCircularByteBuffer::doWrite(const void* src, unsigned int count)
{
    if (isInvalid())
    {
        return refuseWrite();
    }
    if (hasFlag(WRITE_ERROR))
    {
        return 0;
    }
    unsigned char* const end = m_logicEnd;
    const unsigned char* const limit = m_logicBegin > end ? m_logicBegin : m_physEnd;
    if (count <= SHORT_TRANSFER && count < static_cast<std::size_t>(limit - end) && src != nullptr)
    {
        copyShortTransfer(end, static_cast<const unsigned char*>(src), count);
        m_logicEnd = end + count;
        return count;
    }
    return writeRuns(static_cast<const unsigned char*>(src), count);
}

/// Writes what is long or may use up the first free run.
unsigned int CKoCircularByteBuffer::writeRuns(const unsigned char* src, unsigned int count)
{
    if (src == nullptr)
    {
        return refuseNull(count);
    }
    unsigned int copied = putRun(src, count);
    if (copied < count)
    {
        copied += putRun(src + copied, count - copied);
        m_flags |= copied < count ? WRITE_ERROR : 0U;
    }
    return copied;
}

unsigned int CKoCircularByteBuffer::refuseRead() const
{
    KoSyslog::logMsg(0, KoSyslog::Error, "[CKoCircularByteBuffer::read:%d] invalid buffer", __LINE__);
    explainError();
    return 0;
}

unsigned int CKoCircularByteBuffer::refuseWrite() const
{
    KoSyslog::logMsg(0, KoSyslog::Error, "[CKoCircularByteBuffer::write:%d] invalid buffer", __LINE__);
    explainError();
    return 0;
}

/// Nothing may be read to nowhere and written from nowhere, any more is reported.
unsigned int CKoCircularByteBuffer::refuseNull(unsigned int count)
{
    if (count > 0)
    {
        doCheapAssert(__LINE__, FILE_TEXT);
    }
    return 0;
}
