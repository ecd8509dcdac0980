#include "pf/base/CKoString.h"

#include "pf/base/KoUtf8.h"
#include "pf/base/TKoFormatString.h"
#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoLoadOrder.h"
#include "pf/oswrapper/KoMemory.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace
{

/// Bytes of a block beside its text: the record, the zero bytes on both sides, and padding.
constexpr unsigned int BLOCK_OVERHEAD = 20U;

static_assert(sizeof(CKoString) == sizeof(void*), "a string is one pointer");
static_assert(sizeof(CKoString::SStringData) == BLOCK_OVERHEAD, "a block is its capacity and this much more");
static_assert(offsetof(CKoString::SStringData, charCount) ==
                  offsetof(CKoString::SStringData, byteLength) + sizeof(unsigned int),
              "both counts are set at once");
static_assert(offsetof(CKoString::SStringData, sentinel) + 1U == CKoString::SStringData::TEXT_OFFSET,
              "the sentinel is the byte before the text");

} // namespace

const CKoString::SStringData CKoString::nullData = {2U, 0U, 0U, 0U, '\0', {'\0', '\0', '\0'}};

// Constant-initialised: usable before its turn, which only settles when its destructor runs.
const CKoString CKoString::null KO_INIT_ORDER(KoLoadOrder::STRING_STATICS);

CKoString::CKoString(const char* text)
    : CKoString()
{
    if (text == nullptr)
    {
        return;
    }
    const std::size_t bytes = std::strlen(text);
    if (!isValidCapacity(bytes))
    {
        reportCapacity(__LINE__, "CKoString::ctor", bytes);
        return;
    }
    constructFrom(text, static_cast<unsigned int>(bytes));
}

CKoString::CKoString(const char* text, unsigned int maxBytes)
    : CKoString()
{
    if (text == nullptr)
    {
        return;
    }
    const std::size_t bytes = strnlen(text, maxBytes);
    if (!isValidCapacity(bytes))
    {
        reportCapacity(__LINE__, "CKoString::ctor", bytes);
        return;
    }
    constructFrom(text, static_cast<unsigned int>(bytes));
}

CKoString::CKoString(unsigned int capacity)
    : CKoString()
{
    if (!isValidCapacity(capacity))
    {
        reportCapacity(__LINE__, "CKoString::ctor", capacity);
        return;
    }
    m_data = allocateBlock(capacity);
}

CKoString::CKoString(const unsigned int* wideText)
    : CKoString()
{
    const unsigned int* last = wideText;
    while (last != nullptr && *last != 0U)
    {
        ++last;
    }
    fromWCharSequence(wideText, last);
}

CKoString::CKoString(const unsigned int* first, const unsigned int* last)
    : CKoString()
{
    fromWCharSequence(first, last);
}

void CKoString::swap(CKoString& other)
{
    addReference(true, capacity());
    other.addReference(true, other.capacity());
    std::swap(m_data, other.m_data);
}

bool CKoString::operator==(const CKoString& other) const
{
    if (m_data == other.m_data)
    {
        return true;
    }
    return m_data->charCount == other.m_data->charCount && std::strcmp(c_str(), other.c_str()) == 0;
}

unsigned int getHashValueForString(const CKoString& string)
{
    const char* const text = string.c_str();
    unsigned int hash = 0;
    for (unsigned int i = 0; i < string.byteLength(); ++i)
    {
        hash = 5U * hash + static_cast<unsigned int>(static_cast<signed char>(text[i]));
    }
    return hash;
}

void CKoString::reserve(unsigned int capacity)
{
    if (m_data->capacity < capacity)
    {
        addReference(true, capacity);
    }
}

void CKoString::addReference(bool forWrite, unsigned int capacity)
{
    if (!forWrite && m_data->capacity >= capacity)
    {
        share(m_data);
        return;
    }
    if (!isShared() && capacity <= m_data->capacity)
    {
        return;
    }
    if (!isValidCapacity(capacity))
    {
        reportCapacity(__LINE__, "CKoString::addReference", capacity);
        return;
    }

    SStringData* const block = allocateBlock(capacity);
    unsigned int bytes = m_data->byteLength;
    unsigned int characters = m_data->charCount;
    if (bytes > capacity)
    {
        const char* last = m_data->text() + capacity;
        while (last != m_data->text() && KoPrivate::isContinuation(*last))
        {
            --last;
        }
        bytes = offsetOf(const_iterator(last));
        characters = std::min(characters, KoPrivate::countSteps(m_data->text(), last));
    }
    std::memcpy(block->text(), m_data->text(), bytes);
    adoptBlock(block);
    setLength(bytes, characters);
}

void CKoString::charConstruct(const char* bytes, unsigned int count, unsigned int offset)
{
    if (count == 0U)
    {
        return;
    }
    if (isShared() || offset > m_data->capacity || count > m_data->capacity - offset)
    {
        doCheapAssert(__LINE__, "CKoString");
        return;
    }
    const KoPrivate::SUtf8Span valid = KoPrivate::copyValidUtf8(m_data->text() + offset, bytes, count);
    const unsigned int room = m_data->capacity - m_data->byteLength;
    setLength(m_data->byteLength + std::min(valid.byteLength, room), m_data->charCount + valid.charCount);
}

CKoString::SStringData* CKoString::allocateBlock(unsigned int capacity)
{
    SStringData* const block = static_cast<SStringData*>(KoMemory::allocChecked(capacity + BLOCK_OVERHEAD));
    block->refCount = 1U;
    block->capacity = capacity;
    block->byteLength = 0U;
    block->charCount = 0U;
    block->sentinel = '\0';
    block->textStart[0] = '\0';
    return block;
}

/// A string with a block of exactly the given bytes, which are known to be well-formed.
CKoString CKoString::copyOf(const char* text, unsigned int bytes, unsigned int characters)
{
    CKoString copy;
    if (bytes != 0U)
    {
        copy.m_data = allocateBlock(bytes);
        std::memcpy(copy.m_data->text(), text, bytes);
        copy.setLength(bytes, characters);
    }
    return copy;
}

void CKoString::constructFrom(const char* text, unsigned int bytes)
{
    if (bytes != 0U)
    {
        m_data = allocateBlock(bytes);
        const KoPrivate::SUtf8Span valid = KoPrivate::copyValidUtf8(m_data->text(), text, bytes);
        setLength(valid.byteLength, valid.charCount);
    }
}

void CKoString::adoptBlock(SStringData* data)
{
    removeReference();
    m_data = data;
}

/// Sets both counts and the terminating zero. Of text that is not empty at least one character is counted,
/// and never more than it has bytes, however the count was arrived at.
void CKoString::setLength(unsigned int bytes, unsigned int characters)
{
    // Both counts in one store: an allocator that looks at the words of a block which is released soon after
    // would wait for two.
    const unsigned int counts[2] = {bytes, KoPrivate::plausibleCount(bytes, characters)};
    char* const block = reinterpret_cast<char*>(m_data);
    std::memcpy(block + offsetof(SStringData, byteLength), counts, sizeof(counts));
    m_data->text()[bytes] = '\0';
}

/// True when the block is this string's own and holds that many bytes.
bool CKoString::hasRoom(unsigned long long capacity) const
{
    return capacity <= m_data->capacity && !isShared();
}

/// Makes the block this string's own with room for that many bytes. \return false when no block can have
/// them.
bool CKoString::makePrivate(unsigned long long capacity)
{
    if (!isValidCapacity(capacity))
    {
        reportCapacity(__LINE__, "CKoString::addReference", capacity);
        return false;
    }
    addReference(true, static_cast<unsigned int>(capacity));
    return true;
}

/// As makePrivate, for an operation that replaces the text: the old one is not kept.
bool CKoString::makePrivateEmpty(unsigned long long capacity)
{
    if (!isValidCapacity(capacity))
    {
        reportCapacity(__LINE__, "CKoString::addReference", capacity);
        return false;
    }
    if (!hasRoom(capacity))
    {
        adoptBlock(allocateBlock(static_cast<unsigned int>(capacity)));
    }
    setLength(0U, 0U);
    return true;
}

/// True for positions from the first character to the end.
bool CKoString::contains(const const_iterator& position) const
{
    const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(position.address());
    const std::uintptr_t first = reinterpret_cast<std::uintptr_t>(m_data->text());
    return address >= first && address - first <= m_data->byteLength;
}

unsigned int CKoString::offsetOf(const const_iterator& position) const
{
    return static_cast<unsigned int>(position.address() - m_data->text());
}

void CKoString::releaseLastReference(unsigned int references) noexcept
{
    if (references == 0U)
    {
        doCheapAssert(__LINE__, "CKoString");
        return;
    }
    KoMemory::release(m_data);
    m_data = const_cast<SStringData*>(&nullData);
}

void CKoString::reportCapacity(unsigned int line, const char* operation, unsigned long long capacity)
{
    // Sizes beyond 32 bits show as the largest, which prints as -1.
    const unsigned int shown = static_cast<unsigned int>(std::min(capacity, 0xFFFFFFFFULL));
    const TKoFormatString<> message("%s: Capacity %d not valid!", operation, static_cast<int>(shown));
    doAssert(line, "CKoString", message.c_str());
}
