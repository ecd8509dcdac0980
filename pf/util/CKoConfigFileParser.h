#pragma once

/// \file
/// Reads a line-oriented text file that is divided into named sections, and hands each line of a section to
/// the callback registered for it:
///
///     # a comment
///     [sources]
///     load = 110     # behind a line, too
///     path = a\#b    # handed over as "path = a#b"
///
/// The parser knows nothing of keys and values: what a line means is the callback's business.
///
///     CKoConfigFileParser parser;
///     parser.addSectionCallback("sources", 0, &sources);
///     if (!parser.parse(path)) report(path);

#include "pf/base/CKoString.h"
#include "pf/base/KoExport.h"
#include "pf/containers/TKoMap.h"

/// Owns its section names; the callbacks stay their owners'. Copies share the callbacks. One parser is used
/// by one thread at a time, and its callbacks run on the thread that calls parse. Parsers are independent of
/// each other, so that a callback may parse another file.
///
/// The file, read as bytes:
/// - A line longer than MAX_LINE bytes, its end included, comes in several pieces; each is a line of its own.
/// - A "#" begins a comment. Behind a backslash it is an ordinary character, and the backslash is dropped.
/// - Bytes 1 to 32 at the end of a line are dropped, and lines that are empty then are skipped. Bytes from
///   128 on are text.
/// - "[" in the first column begins a header. The section's name is what stands before the first "]", blanks
///   and case included; what follows it is ignored.
/// - Lines before the first header, and behind one of an unknown name or without a "]", are skipped.
/// - A section may come back any number of times.
class KO_EXPORT CKoConfigFileParser
{
public:
    /// Bytes that are handed over at once at most.
    static constexpr unsigned int MAX_LINE = 1023U;

    /// Takes the lines of sections.
    class ICallback
    {
    public:
        /// Takes one line.
        /// \param sectionId as registered. \param line the line without comment and trailing blanks; never
        /// empty, and valid during the call only. \return whether to go on; false ends the parse.
        virtual bool processConfigFileEntry(unsigned short sectionId, const char* line) = 0;

    protected:
        ICallback() = default;
        ICallback(const ICallback&) = default;
        ICallback& operator=(const ICallback&) = default;
        ~ICallback() = default;
    };

    /// What is registered for a section.
    struct SSectionInfo
    {
        unsigned short sectionId;
        ICallback* callback; ///< not owned; null skips the section's lines
    };

    /// Knows no section; allocates nothing.
    CKoConfigFileParser() = default;

    /// Registers the callback of a section.
    /// \param sectionId handed back with every line. \param callback outlives the parser's last parse.
    /// \return false if the name is registered already; the first registration stays.
    bool addSectionCallback(const CKoString& section, unsigned short sectionId, ICallback* callback);

    /// Reads the file once from front to back and calls back for each line of a registered section. Waits for
    /// whatever the file waits for, a pipe for instance; allocates nothing.
    /// \return false, with `errno`, if the file cannot be opened: nothing was called back. True otherwise,
    /// also when a callback ended the parse, or a read error did, like the end of the file; `errno` is then
    /// what the callbacks left.
    bool parse(const CKoString& fileName) const;

    /// The same, for callbacks that name the place of a line.
    /// \param lineNumber while a callback runs, the number of its line in the file, counted from 1; 0 as long
    /// as nothing was read.
    bool parse(const CKoString& fileName, unsigned int& lineNumber) const;

private:
    bool processLine(char* line, char* rawEnd, SSectionInfo& current) const;
    SSectionInfo sectionOf(char* header) const;

    TKoMap<CKoString, SSectionInfo, TKoBefore<CKoString>> m_sections;
};
