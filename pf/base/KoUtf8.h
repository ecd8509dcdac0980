#pragma once

/// The rules of the text encoding: which bytes are accepted, what a character is, how positions step.
///
/// A sequence is a lead byte and as many bytes with their top bit set as the lead byte asks for. A step goes
/// from one byte that is not 10xxxxxx to the next; in all text that an encoder has written the two agree.

namespace KoPrivate
{

/// Length of a sequence by its lead byte; 0 where no sequence can start.
extern const unsigned char UTF8LookUpTable[256];

/// A count of bytes together with the characters in them.
struct SUtf8Span
{
    unsigned int byteLength;
    unsigned int charCount;
};

/// True for a byte of the form 10xxxxxx.
inline bool isContinuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

inline unsigned int sequenceLength(char leadByte)
{
    return UTF8LookUpTable[static_cast<unsigned char>(leadByte)];
}

/// Copies the longest prefix of the bytes that consists of whole sequences to `target`, unless it lies there
/// already. When that is not all, a line in the log says so. Reads each part of the bytes only once from
/// memory; behind the prefix the target may be written to as well, as far as `count`.
SUtf8Span copyValidUtf8(char* target, const char* bytes, unsigned int count);

/// Sequences by their lead bytes in bytes that nobody has checked: a byte that leads none counts as one, and
/// the last may be cut off.
unsigned int countSequences(const char* bytes, unsigned int count);

/// Bytes in [first, last) that are not 10xxxxxx, that is the steps from one to the other.
unsigned int countSteps(const char* first, const char* last);

/// Goes `steps` characters forward, at most to the next zero byte.
/// \return the characters passed.
unsigned int stepForward(const char*& position, unsigned int steps);

/// Goes one character backward; the byte before the text, a zero, stops it.
inline void stepBack(const char*& position)
{
    do
    {
        --position;
    } while (isContinuation(*position));
}

/// As stepBack, but never beyond `first`, which lies before `position`.
inline void stepBack(const char*& position, const char* first)
{
    do
    {
        --position;
    } while (position != first && isContinuation(*position));
}

/// The count to keep for a text: of text that is not empty at least one character is counted, and never more
/// than it has bytes, however the count was arrived at.
inline unsigned int plausibleCount(unsigned int byteLength, unsigned int characters)
{
    const unsigned int atLeast = characters == 0U ? 1U : characters;
    return atLeast < byteLength ? atLeast : byteLength;
}

/// Characters in a text when `removed` of them have gone. Positions may count more of them in malformed
/// continuation bytes than the text is said to have.
inline unsigned int without(unsigned int characters, unsigned int removed)
{
    return removed < characters ? characters - removed : 0U;
}

/// Writes one code point (below 0x80000000) as 1 to 6 bytes.
/// \return the bytes written.
unsigned int encodeUtf8(char* target, unsigned int codePoint);

/// Bytes that encodeUtf8 writes.
unsigned int encodedLength(unsigned int codePoint);

} // namespace KoPrivate
