#pragma once

#include "FileWindow.h"
#include "pf/stream/CKoByteStream.h"
#include "pf/util/CKoFileHandle.h"

/// A file of records, which grows at its end only:
///
///     length    4 bytes, the least significant one first
///     content   as many bytes
///     CRC       4 bytes, CRC-32 of the length and the content
///
/// A writer that is killed may leave a record that is cut short at the end; the next one takes that away and
/// goes on. Behind damage, a reader goes on at the next place where a whole record begins, wherever that is:
/// it has to try each byte, and a CRC of 16 bits would be right by chance too often.

/// Reads the records from the front. Lengths in the file are claims. What is no whole record is told on
/// standard error, with path and offset, and passed over.
///
/// One thread at a time.
class RecordReader
{
public:
    explicit RecordReader(const CKoPath& path);

    /// \return false if there is no file that could be read; the reason is in `errno`.
    bool isOpen() const { return m_file.isOpen(); }

    /// Reads the next whole record. \return false where none follows.
    bool next(CKoByteStream& record);

    /// Tells that the record that was read last is of no use, and why.
    void reject(const char* why);

    /// Whether all that was read was of use.
    bool isAllOfUse() const { return m_isAllOfUse; }

    /// Whether what was read can be the work of a writer: a whole record, or no more than the beginning of
    /// one.
    bool isRecordFile() const { return !m_file.hasFailed() && (m_hasRecords || m_end == 0); }

    /// Where a writer goes on: behind all but a record that is cut short.
    unsigned long long end() const { return m_end; }

private:
    unsigned int wholeLength();
    bool isCutShort();
    void tellOfGap(bool isCut);

    CKoPath m_path;
    FileWindow m_file;
    bool m_isAllOfUse = true;
    bool m_hasRecords = false;
    unsigned long long m_offset = 0; ///< of what is told of
    unsigned long long m_end = 0;
};

/// Appends records. One thread, and one writer, at a time.
class RecordWriter
{
public:
    /// Goes on behind the first `end` bytes of the file, and takes away what follows them. Makes the file,
    /// and the directories above it, if there is none.
    RecordWriter(const CKoPath& path, unsigned long long end);

    /// \return false if the file cannot be written; the reason is in `errno`.
    bool isOpen() const { return m_file.isOpen(); }

    /// \return whether the record is in the file, where it survives the end of this process.
    bool append(const CKoByteStream& record);

private:
    CKoFileHandle m_file;
};
