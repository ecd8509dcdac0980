#pragma once

/// \file
/// The text type of the library: UTF-8 in a shared block, with its bytes and its characters counted.
///
/// Copies share one block until one of them is changed (copy on write); empty strings share a static block
/// and own nothing. Raw bytes are checked wherever they enter: the text ends before the first malformed
/// sequence, which is logged. Callers that build long texts piece by piece call reserve first, because a
/// block grows to exactly the bytes that are needed.
///
///     CKoString line("Release ");
///     line.append("7").replaceAll("7", "8");
///     for (CKoString::const_iterator at = line.begin(); at != line.end(); ++at) { use(*at); }

#include "pf/base/KoExport.h"
#include "pf/oswrapper/KoAtomic.h"

#include <climits>
#include <cstdarg>
#include <cstddef>
#include <iterator>
#include <string_view>

class IKoIStream;
class IKoOStream;

namespace KoPrivate
{
class CKoStringFiller;
}

/// Owns one reference to a block of text. Copying shares the block; moving takes it and leaves the source
/// empty.
///
/// Threads: strings that share a block may live in different threads; one object is used by one thread at a
/// time. Failure: memory exhaustion ends the process; positions outside the text are no error, the operation
/// does nothing or gives the empty string; sizes that no block can have are reported as assertions and change
/// nothing. Texts passed as arguments may be the string itself or point into it; they count as they were on
/// entry. Cost: one pointer; a copy is one atomic increment; an empty string owns no memory.
///
/// Characters: the lead byte gives the length of a sequence (up to six bytes), the bytes after it need only
/// their top bit. Positions, however, step from one byte that is not 10xxxxxx to the next. Both agree for all
/// text that an encoder has written. In text whose continuation bytes lie outside 80..BF they do not: edits
/// then follow the positions, stay inside the text, and the character count stays between 1 and the byte
/// length.
class KO_EXPORT CKoString
{
public:
    /// What a string points at. Holds `capacity` bytes of text and a zero byte behind the text; the byte
    /// before the text is zero as well, so that a backward scan stops there. A block occupies capacity + 20
    /// bytes.
    struct SStringData
    {
        unsigned int refCount;   ///< strings that point here; changed atomically
        unsigned int capacity;   ///< bytes of text that fit, without the terminating zero
        unsigned int byteLength; ///< bytes of text in use
        unsigned int charCount;  ///< characters in the text
        char sentinel;           ///< always 0
        char textStart[3];       ///< the text begins here and continues behind the struct

        char* text() { return reinterpret_cast<char*>(this) + TEXT_OFFSET; }

        static constexpr unsigned int TEXT_OFFSET = 17U;
    };

    /// A position in a text: at the first byte of a character, at the terminating zero (the end), or at the
    /// zero byte before the text.
    ///
    /// It stays valid until its string is changed or destroyed. The zero before the text and the zero behind
    /// it look alike, and the rules for stepping off either hold within one call: a position that an earlier
    /// call left before the first character must not be stepped further, neither forward nor backward.
    ///
    /// Algorithms of the standard library take it as bidirectional; what they read are values, not
    /// references.
    class KO_EXPORT const_iterator
    {
    public:
        using iterator_category = std::bidirectional_iterator_tag;
        using value_type = unsigned int;
        using difference_type = int;
        using pointer = void;
        using reference = unsigned int;

        constexpr const_iterator() noexcept
            : m_position(nullptr)
        {
        }

        /// \param position points into a string's text, or is null.
        constexpr explicit const_iterator(const char* position) noexcept
            : m_position(position)
        {
        }

        /// The code point of the character here; 0 at the end, before the first character and for a null
        /// position. Never reads past the text.
        unsigned int operator*() const
        {
            const char* const position = m_position;
            const bool isAscii = position != nullptr && static_cast<unsigned char>(*position) < 0x80U;
            return isAscii ? static_cast<unsigned char>(*position) : decode();
        }

        const_iterator& operator++()
        {
            incrementSteps(&m_position, 1);
            return *this;
        }

        const_iterator operator++(int)
        {
            const const_iterator before(*this);
            incrementSteps(&m_position, 1);
            return before;
        }

        const_iterator& operator--()
        {
            incrementSteps(&m_position, -1);
            return *this;
        }

        const_iterator operator--(int)
        {
            const const_iterator before(*this);
            incrementSteps(&m_position, -1);
            return before;
        }

        /// Moves by `steps` characters, backward when negative.
        const_iterator& operator+=(int steps)
        {
            incrementSteps(&m_position, steps);
            return *this;
        }

        /// Moves `*position` by `steps` characters, backward when negative. Forward it stays at the end once
        /// there. Backward it stops at the zero byte before the text; one step more returns to the first
        /// character. A null position or 0 steps change nothing.
        void incrementSteps(const char** position, int steps) const;

        /// The byte this position points at.
        const char* address() const { return m_position; }

        friend bool operator==(const const_iterator& a, const const_iterator& b)
        {
            return a.m_position == b.m_position;
        }

        friend bool operator!=(const const_iterator& a, const const_iterator& b)
        {
            return a.m_position != b.m_position;
        }

    private:
        unsigned int decode() const;

        const char* m_position;
    };

    /// The block that every string points at which never owned storage. Never written, its count included.
    static const SStringData nullData;

    /// An empty string for functions that return a reference.
    static const CKoString null;

    /// An empty string; allocates nothing.
    constexpr CKoString() noexcept
        : m_data(const_cast<SStringData*>(&nullData))
    {
    }

    /// Copies a zero-terminated text; null gives the empty string.
    CKoString(const char* text);

    /// Copies at most `maxBytes` bytes of a text, fewer if a zero byte comes first; null gives the empty
    /// string.
    CKoString(const char* text, unsigned int maxBytes);

    /// An empty string with a block of its own of exactly `capacity` bytes. A capacity of 0xFFFFFFEC or more
    /// is reported and gives the plain empty string.
    explicit CKoString(unsigned int capacity);

    /// Copies a text of the standard library, up to its first zero byte.
    explicit CKoString(std::string_view text)
        : CKoString(text.data(), countOf(text))
    {
    }

    /// Shares the other string's block.
    CKoString(const CKoString& other) noexcept
        : m_data(share(other.m_data))
    {
    }

    /// Takes the other string's block and leaves it empty.
    CKoString(CKoString&& other) noexcept
        : m_data(other.m_data)
    {
        other.m_data = const_cast<SStringData*>(&nullData);
    }

    /// Converts 32-bit code units up to a zero unit; null gives the empty string. See fromUCS4Sequence.
    explicit CKoString(const unsigned int* wideText);

    /// Converts the 32-bit code units in [first, last). See fromUCS4Sequence.
    CKoString(const unsigned int* first, const unsigned int* last);

    ~CKoString() { removeReference(); }

    CKoString& operator=(const CKoString& other) noexcept
    {
        if (this != &other && m_data != other.m_data)
        {
            SStringData* const taken = share(other.m_data);
            removeReference();
            m_data = taken;
        }
        return *this;
    }

    CKoString& operator=(CKoString&& other) noexcept
    {
        SStringData* const taken = other.m_data;
        other.m_data = const_cast<SStringData*>(&nullData);
        removeReference();
        m_data = taken;
        return *this;
    }

    /// Exchanges the texts. Each string first gets a block of its own if it shares one.
    void swap(CKoString& other);

    /// The zero-terminated text; valid until the string is changed or destroyed.
    const char* c_str() const { return m_data->text(); }

    /// The bytes of the text; valid until the string is changed or destroyed.
    operator std::string_view() const noexcept { return {m_data->text(), m_data->byteLength}; }

    /// The first character, or the end of an empty string.
    const_iterator begin() const { return const_iterator(m_data->text()); }

    /// The position behind the last character.
    const_iterator end() const { return const_iterator(m_data->text() + m_data->byteLength); }

    /// Characters in the text.
    unsigned int length() const { return m_data->charCount; }

    /// Bytes in the text.
    unsigned int byteLength() const { return m_data->byteLength; }

    /// Bytes that fit into the block, without the terminating zero.
    unsigned int capacity() const { return m_data->capacity; }

    bool isEmpty() const { return m_data->byteLength == 0U; }

    /// True for the same characters in the same order, compared by bytes.
    bool operator==(const CKoString& other) const;

    bool operator!=(const CKoString& other) const { return !(*this == other); }

    /// The code point of a character, counting from 0 and stepping from the first; 0 beyond the text.
    unsigned int operator[](unsigned int index) const;

    /// Appends a zero-terminated text; null appends nothing. A malformed tail is dropped and logged.
    CKoString& append(const char* text);

    /// Appends at most `maxBytes` bytes, fewer if a zero byte comes first.
    CKoString& append(const char* text, unsigned int maxBytes);

    CKoString& append(const CKoString& other);

    /// Appends a text of the standard library, up to its first zero byte.
    CKoString& append(std::string_view text) { return append(text.data(), countOf(text)); }

    CKoString operator+(const CKoString& other) const;

    /// Appends bytes that are known to be well-formed, unchecked. Null, no bytes or a zero first byte append
    /// nothing.
    CKoString& internalAppend(const char* bytes, unsigned int count);

    /// Inserts before `position`, which then points at the first inserted character. Outside the text it does
    /// nothing.
    void insert(const_iterator& position, const CKoString& text);

    /// Removes up to `count` characters; `position` then points at the character that followed them. The
    /// string has a block of its own afterwards even when nothing was removed.
    void remove(const_iterator& position, unsigned int count);

    /// Replaces up to `count` characters by `text`; `position` then points at its first character. A count of
    /// 0 inserts; at the end any other count does nothing.
    void replace(const_iterator& position, unsigned int count, const CKoString& text);

    /// Replaces every occurrence from left to right. Inserted text is not searched again; an empty `from`
    /// changes nothing.
    void replaceAll(const CKoString& from, const CKoString& to);

    /// Replaces the lowest of the markers %0 to %9 in the text (the first of equal ones) by `argument`.
    /// Several arguments are put in by calling it repeatedly, in the order of the markers.
    void replaceArg(const CKoString& argument);

    /// Empties the text and keeps the capacity. A shared string gets a block of its own of that capacity.
    CKoString& clear();

    /// Keeps the first `count` characters. A block of its own keeps its capacity; a shared one is replaced by
    /// a block of exactly the bytes kept.
    CKoString& truncate(unsigned int count);

    /// Keeps the characters before `position`; nothing happens unless it points at a character.
    CKoString& truncate(const const_iterator& position);

    /// Removes blanks, tabs, line feeds, vertical tabs, form feeds and carriage returns from both ends.
    CKoString& trim();

    /// The first `count` characters, or all.
    CKoString getLeft(unsigned int count) const;

    /// The characters before `position`.
    CKoString getLeft(const const_iterator& position) const;

    /// The last `count` characters, or all.
    CKoString getRight(unsigned int count) const;

    /// The characters from `position` to the end.
    CKoString getRight(const const_iterator& position) const;

    /// Up to `count` characters from `position`.
    CKoString getMid(const const_iterator& position, unsigned int count) const;

    /// The first match met from `from` in the given direction, or the end. Backward from the end it starts
    /// with the last character. An empty pattern is never found. Takes linear time.
    const_iterator findString(const_iterator from, const CKoString& pattern, bool forward) const;

    const_iterator find(const CKoString& pattern) const;

    const_iterator find(const CKoString& pattern, const const_iterator& from) const;

    /// Replaces the text by a formatted one of at most 256 bytes. The arguments may point into the string.
    /// \return true when the output was not cut.
    bool format(const char* format, ...) KO_PRINTF(2, 3);

    /// As format, with a buffer of the caller: at most `size` - 1 bytes. The buffer keeps the formatted
    /// bytes. A size of 0 touches nothing and gives false.
    bool strprintf(char* buffer, unsigned int size, const char* format, ...) KO_PRINTF(4, 5);

    /// What format and strprintf do. Formatting that fails gives the empty text and false.
    bool doFormat(char* buffer, unsigned int size, const char* format, va_list arguments) KO_PRINTF(4, 0);

    /// Writes, aligned to 4, the byte length, the text and its terminating zero.
    static void toNubStream(IKoOStream& stream, const CKoString& string);

    /// Reads what toNubStream wrote. See operator>> for lengths that are not true.
    static void fromNubStream(const IKoIStream& stream, CKoString& string);

    /// Replaces the text by the encoding of `count` 32-bit code points. A value with its top bit set is no
    /// character: it is reported, and the conversion ends before it.
    void fromUCS4Sequence(const unsigned int* units, unsigned int count);

    /// Replaces the text by the encoding of `count` 16-bit units, each by itself.
    void fromUCS2Sequence(const unsigned short* units, unsigned int count);

    /// As fromUCS4Sequence for [first, last); a null or empty range gives the empty string.
    void fromWCharSequence(const unsigned int* first, const unsigned int* last);

    /// Makes room for `capacity` bytes of text; nothing when the block is large enough, even when it is
    /// shared.
    void reserve(unsigned int capacity);

    /// Counts one more reference to a block that is large enough (`forWrite` false), or makes the block this
    /// string's own with room for `capacity` bytes. A smaller capacity than the text keeps the characters
    /// that fit. For converters that fill a block themselves.
    void addReference(bool forWrite, unsigned int capacity);

    /// Drops this string's reference and releases the block with the last one. For converters; the string may
    /// only be assigned or destroyed after it.
    void removeReference()
    {
        if (m_data == &nullData || m_data == nullptr)
        {
            return;
        }
        // Who reads 1 holds the only reference, so nobody can count it up or down any more.
        const unsigned int references = KoAtomic::load(m_data->refCount);
        if (references == 1U || references == 0U || !KoAtomic::testDecrement(m_data->refCount))
        {
            releaseLastReference(references);
        }
    }

    /// Checks bytes, copies them to byte `offset` of the text and counts them. The block must be this
    /// string's own with room for offset + count bytes, else it is reported and nothing happens. Bytes that
    /// lie at that place already are not copied.
    void charConstruct(const char* bytes, unsigned int count, unsigned int offset);

private:
    friend class KoPrivate::CKoStringFiller;
    friend KO_EXPORT const IKoIStream& operator>>(const IKoIStream& stream, CKoString& string);

    static SStringData* share(SStringData* data) noexcept
    {
        if (data != &nullData)
        {
            KoAtomic::increment(data->refCount);
        }
        return data;
    }

    /// Its bytes as they count here: more than any block can have stay more than any block can have.
    static unsigned int countOf(std::string_view text)
    {
        return text.size() < UINT_MAX ? static_cast<unsigned int>(text.size()) : UINT_MAX;
    }

    static bool isValidCapacity(unsigned long long capacity) { return capacity < CAPACITY_LIMIT; }

    static void reportCapacity(unsigned int line, const char* operation, unsigned long long capacity);
    static SStringData* allocateBlock(unsigned int capacity);
    static CKoString copyOf(const char* text, unsigned int bytes, unsigned int characters);

    void releaseLastReference(unsigned int references) noexcept;
    void adoptBlock(SStringData* data);
    void setLength(unsigned int bytes, unsigned int characters);
    void grow(unsigned int bytes, unsigned int characters);
    unsigned int spare() const;
    void constructFrom(const char* text, unsigned int bytes);
    bool isShared() const { return KoAtomic::load(m_data->refCount) >= 2U; }

    bool hasRoom(unsigned long long capacity) const;
    CKoString& appendChecked(const char* text, std::size_t count);
    bool makePrivate(unsigned long long capacity);
    bool makePrivateEmpty(unsigned long long capacity);
    bool contains(const const_iterator& position) const;
    unsigned int offsetOf(const const_iterator& position) const;
    void replaceSpan(unsigned int offset, unsigned int removedBytes, unsigned int removedCharacters,
                     const CKoString& text);
    void assignFormatted(const char* bytes, unsigned int count);
    void truncateTo(unsigned int bytes, unsigned int characters);
    void assignFrom(const IKoIStream& stream, unsigned int length, unsigned int terminators);
    unsigned int fillFrom(const IKoIStream& stream, unsigned int length, unsigned int terminators);
    template <typename Unit>
    bool encodeUnits(const Unit* units, unsigned int count);
    void replaceInOnePass(const CKoString& from, const CKoString& to);

    /// From here on the size of a block would not fit into 32 bits.
    static constexpr unsigned int CAPACITY_LIMIT = 0xFFFFFFECU;

    SStringData* m_data;
};

/// Characters from `b` to `a`, negative when `a` lies before `b`. Both must belong to one string.
KO_EXPORT int operator-(const CKoString::const_iterator& a, const CKoString::const_iterator& b);

/// A hash of the bytes: h = 5 h + byte, the byte taken as signed; 0 for the empty string.
KO_EXPORT unsigned int getHashValueForString(const CKoString& string);

/// Writes the byte length as an unsigned int and the text without its terminating zero.
KO_EXPORT IKoOStream& operator<<(IKoOStream& stream, const CKoString& string);

/// Reads what operator<< wrote; malformed text is cut and logged. A length that no block can have is reported
/// and leaves the string as it was. A length that is longer than what the stream yields costs no more memory
/// than a small multiple of what arrives, and gives the text that arrived.
KO_EXPORT const IKoIStream& operator>>(const IKoIStream& stream, CKoString& string);

namespace std
{

/// Texts are hashed by their bytes, as std::hash does for a std::string_view of the same text.
template <>
struct hash<CKoString>
{
    size_t operator()(const CKoString& text) const noexcept { return hash<string_view>()(text); }
};

} // namespace std
