#include "pf/containers/CKoRCMemoryBuffer.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoMemory.h"
#include "pf/stream/KoStreamOperators.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

namespace
{

constexpr char FILE_TEXT[] = "CKoRCMemoryBuffer";
constexpr unsigned int DATA_OFFSET = 16; ///< the header, rounded up to 8 bytes

/// What is allocated on the word of a stream alone, before a byte has come.
constexpr unsigned int FIRST_PIECE_SIZE = 64 * 1024;

unsigned int allocationSize(unsigned int size)
{
    return DATA_OFFSET + ((size + 7U) & ~7U);
}

} // namespace

CKoRCMemoryBuffer::SData CKoRCMemoryBuffer::sNullBuffer = {1, 0, nullptr};

static_assert(sizeof(CKoRCMemoryBuffer) == sizeof(void*), "a buffer is one pointer");
static_assert(CKoRCMemoryBuffer::MAX_SIZE == ((UINT_MAX - DATA_OFFSET) & ~7U), "with its header, in 32 bits");

CKoRCMemoryBuffer::CKoRCMemoryBuffer(unsigned int size)
    : m_data(&sNullBuffer)
{
    if (isValidSize(size))
    {
        m_data = createBlock(size);
    }
    else
    {
        doCheapAssert(__LINE__, FILE_TEXT);
    }
}

CKoRCMemoryBuffer& CKoRCMemoryBuffer::operator=(const CKoRCMemoryBuffer& other)
{
    if (m_data == other.m_data)
    {
        return *this;
    }
    CKoRCMemoryBuffer copy(other);
    std::swap(m_data, copy.m_data);
    return *this;
}

unsigned char* CKoRCMemoryBuffer::getBuffer()
{
    if (isShared())
    {
        doCheapAssert(__LINE__, FILE_TEXT);
    }
    return m_data->data;
}

void CKoRCMemoryBuffer::makePrivate(unsigned int size)
{
    if (!isValidSize(size))
    {
        return doCheapAssert(__LINE__, FILE_TEXT);
    }
    if (size == 0)
    {
        return removeRef();
    }
    if (!isShared())
    {
        m_data = resizeBlock(m_data, size);
        return;
    }
    SData* const block = createBlock(size);
    std::memcpy(block->data, m_data->data, std::min(size, getSize()));
    replaceBlock(block);
}

bool CKoRCMemoryBuffer::operator==(const CKoRCMemoryBuffer& other) const
{
    if (m_data == other.m_data)
    {
        return true;
    }
    if (m_data->data == nullptr || other.m_data->data == nullptr || getSize() != other.getSize())
    {
        return false;
    }
    return std::memcmp(m_data->data, other.m_data->data, getSize()) == 0;
}

bool CKoRCMemoryBuffer::isValidSize(unsigned int size)
{
    return size <= MAX_SIZE;
}

CKoRCMemoryBuffer::SData* CKoRCMemoryBuffer::createBlock(unsigned int size)
{
    if (size == 0)
    {
        return &sNullBuffer;
    }
    void* const memory = KoMemory::allocChecked(allocationSize(size));
    return ::new (memory) SData{1, size, static_cast<unsigned char*>(memory) + DATA_OFFSET};
}

void CKoRCMemoryBuffer::replaceBlock(SData* block)
{
    removeRef();
    m_data = block;
}

void CKoRCMemoryBuffer::dropBlock()
{
    static_assert(sizeof(SData) == DATA_OFFSET && DATA_OFFSET % 8 == 0, "the bytes are aligned to 8");
    SData* const block = m_data;
    m_data = &sNullBuffer;
    // Who reads 1 holds the only reference, so nobody can count up any more. After a decrement that leaves
    // references another thread may free the block.
    if (KoAtomic::load(block->refCount) == 1 || !KoAtomic::testDecrement(block->refCount))
    {
        KoMemory::release(block);
    }
}

/// Resizes a block that nobody shares, keeping its bytes.
CKoRCMemoryBuffer::SData* CKoRCMemoryBuffer::resizeBlock(SData* block, unsigned int size)
{
    if (block == &sNullBuffer)
    {
        return createBlock(size);
    }
    void* const memory = KoMemory::reallocChecked(block, allocationSize(size));
    return ::new (memory) SData{1, size, static_cast<unsigned char*>(memory) + DATA_OFFSET};
}

/// Reads in pieces, each as large as all that came before, so that no more than twice the bytes that came
/// (and the first piece) is ever allocated.
void CKoRCMemoryBuffer::readFrom(const IKoIStream& stream)
{
    unsigned int claimed = 0;
    stream >> claimed;
    claimed = std::min(claimed, MAX_SIZE);

    CKoRCMemoryBuffer result;
    unsigned int size = 0;
    while (size < claimed && size == result.getSize())
    {
        const unsigned int piece = std::min(claimed - size, std::max(size, FIRST_PIECE_SIZE));
        result.m_data = resizeBlock(result.m_data, size + piece);
        size += std::min(piece, stream.read(result.m_data->data + size, piece));
    }
    if (size == 0)
    {
        result.removeRef();
    }
    else if (size < result.getSize())
    {
        result.m_data = resizeBlock(result.m_data, size);
    }
    std::swap(m_data, result.m_data);
}

IKoOStream& operator<<(IKoOStream& stream, const CKoRCMemoryBuffer& buffer)
{
    const unsigned int size = buffer.getSize();
    stream << size;
    if (size > 0 && stream.write(buffer.getBuffer(), size) < size)
    {
        doCheapAssert(__LINE__, FILE_TEXT);
    }
    return stream;
}

const IKoIStream& operator>>(const IKoIStream& stream, CKoRCMemoryBuffer& buffer)
{
    buffer.readFrom(stream);
    return stream;
}
