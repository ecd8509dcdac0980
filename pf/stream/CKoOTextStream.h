#pragma once

/// \file
/// Builds text in a growing array: formatted as printf does it, numbers, booleans as digits or words, texts
/// as they are or escaped for XML.
///
///     CKoOTextStream report(0);
///     report << "<name>" << koXmlEscape << name << koNoXmlEscape << "</name>" << koWidth(8) << 42;
///     use(report.c_str());
///
/// It is no IKoOStream. Numbers look the same in every locale; only streamWrite follows the process's.

#include "pf/base/KoExport.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

class CKoString;

/// Asks for a field width, see koWidth.
struct SKoTextWidth
{
    unsigned int width;
};

/// Owns the array. Copying copies the text. One thread at a time. Memory exhaustion ends the process; a text
/// that would not fit into 32-bit sizes is reported and not appended.
///
/// A width is taken by the next item that is formatted: a number, a boolean as digits, a streamWrite, a C
/// string or character that is not escaped. The item stands right-aligned in a field of so many characters;
/// longer ones are not cut. All other items leave the width to those that follow.
///
/// Cost: three pointers and two words; capacity doubles from 128 and an item that fits is copied in place.
class KO_EXPORT CKoOTextStream
{
public:
    /// Bits of flags().
    enum Flag : unsigned int
    {
        BOOL_ALPHA = 1, ///< booleans as "true" and "false", not as digits
        XML_ESCAPE = 2  ///< texts and characters are escaped for XML
    };

    /// Room for `capacity` characters, of which one is kept for the terminating zero.
    explicit CKoOTextStream(unsigned int capacity = 0);

    /// The same text, capacity and flags, but no width.
    CKoOTextStream(const CKoOTextStream& other);

    ~CKoOTextStream();

    /// Takes text, capacity, flags and width.
    CKoOTextStream& operator=(const CKoOTextStream& other);

    /// Makes room for `count` more characters and a terminating zero. \return false, reported, when no array
    /// can have it.
    bool checkSpare(unsigned int count) { return count < spare() || grow(count); }

    /// 0 drops the text and the array. A capacity above the length becomes the array's, any other does
    /// nothing.
    void resize(unsigned int capacity);

    /// Gives back what the text and its terminating zero do not need.
    void trim();

    /// The text, zero-terminated; valid until the stream is changed. Allocates when there is no array yet.
    const char* c_str() const;

    /// Appends `count` characters as they are, whatever the width. Nothing for null. `text` may lie in this
    /// stream's text.
    void write(const char* text, unsigned int count)
    {
        if (text != nullptr && count < spare())
        {
            std::memcpy(m_cursor, text, count);
            m_cursor += count;
        }
        else
        {
            writeGrowing(text, count);
        }
    }

    /// Appends what printf would print, in a pending field width. A format that fails appends nothing. The
    /// arguments must not point into this stream's text.
    void streamWrite(const char* format, ...) KO_PRINTF(2, 3);

    CKoOTextStream& operator<<(bool value);
    CKoOTextStream& operator<<(int value);
    CKoOTextStream& operator<<(unsigned int value);
    CKoOTextStream& operator<<(long value);
    CKoOTextStream& operator<<(unsigned long value);
    CKoOTextStream& operator<<(long long value);
    CKoOTextStream& operator<<(unsigned long long value);

    /// Six significant digits, as "%g" prints it in the "C" locale.
    CKoOTextStream& operator<<(double value);

    /// A text of one character.
    CKoOTextStream& operator<<(char character);

    /// A text up to its terminating zero, escaped if the flags say so. Null appends nothing. It may lie in
    /// this stream's text.
    CKoOTextStream& operator<<(const char* text)
    {
        if (text != nullptr && (m_flags & XML_ESCAPE) == 0 && m_width == 0)
        {
            writeText(text, std::strlen(text));
            return *this;
        }
        return putText(text);
    }

    /// All bytes of the text, whatever the width; when escaped, those up to the first zero.
    CKoOTextStream& operator<<(const CKoString& text);

    /// Calls the manipulator, unless it is null.
    CKoOTextStream& operator<<(void (*manipulator)(CKoOTextStream&));

    CKoOTextStream& operator<<(SKoTextWidth width)
    {
        m_width = width.width;
        return *this;
    }

    /// An address is no boolean.
    template <class T>
    CKoOTextStream& operator<<(const T* address) = delete;

    /// Replaces all flags.
    void setFlags(unsigned int flags) { m_flags = flags; }
    unsigned int flags() const { return m_flags; }

    /// The field width of the next formatted item; 0 for none.
    void setWidth(unsigned int width) { m_width = width; }
    unsigned int width() const { return m_width; }

    /// Characters in the text.
    unsigned int length() const { return static_cast<unsigned int>(m_cursor - m_begin); }

    /// Characters the array holds, the terminating zero included.
    unsigned int capacity() const { return static_cast<unsigned int>(m_capacityEnd - m_begin); }

private:
    std::size_t spare() const { return static_cast<std::size_t>(m_capacityEnd - m_cursor); }
    bool grow(unsigned long long count) const;
    void setCapacity(unsigned int capacity) const;
    void writeText(const char* text, std::size_t count)
    {
        count <= UINT32_MAX ? write(text, static_cast<unsigned int>(count)) : writeGrowing(text, count);
    }
    void writeGrowing(const char* text, std::size_t count);
    const char* makeRoom(const char* text, unsigned long long count);
    CKoOTextStream& putText(const char* text);
    void putPlain(const char* text, std::size_t count);
    void putEscaped(const char* text, std::size_t count);
    void finishItem(std::size_t count);
    template <class T>
    CKoOTextStream& putNumber(T value);

    // c_str terminates the text on demand.
    mutable char* m_begin;
    mutable char* m_capacityEnd;
    mutable char* m_cursor;
    unsigned int m_flags;
    unsigned int m_width;
};

/// Booleans as words, or as digits.
KO_EXPORT void koBoolAlpha(CKoOTextStream& stream);
KO_EXPORT void koNoBoolAlpha(CKoOTextStream& stream);

/// Texts escaped for XML, or as they are.
KO_EXPORT void koXmlEscape(CKoOTextStream& stream);
KO_EXPORT void koNoXmlEscape(CKoOTextStream& stream);

/// The field width of the next formatted item.
inline SKoTextWidth koWidth(unsigned int width)
{
    return SKoTextWidth{width};
}
