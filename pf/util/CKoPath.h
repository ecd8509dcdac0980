#pragma once

/// \file
/// A file-system path: a text with the operations of paths. It never looks at the file system; the file
/// classes take their paths as CKoPath.
///
///     const CKoPath record = CKoPath("/var/lib/station") / "record.bin";
///     file.open(record, flags);

#include "pf/base/CKoString.h"

/// Owns one text, which is handed to the platform unchanged. Nothing is normalised until the canonical form
/// is asked for: runs of separators become one, and a separator at the end goes unless it is all there is.
/// "." and "..", backslashes and blanks stay.
///
/// Threads: a path is a value. isRoot, operator== and doCanonify replace the stored text although the path is
/// const, so they count as changes. Cost: one pointer; a copy shares the text; parts and canonical forms that
/// equal the whole text share it as well.
class KO_EXPORT CKoPath
{
public:
    /// A valid path has fewer characters.
    static constexpr unsigned int MAXLEN = 1024U;

    static constexpr char SEPARATOR = '/';

    /// The empty path.
    CKoPath() = default;

    /// Stores the text as it is.
    CKoPath(const CKoString& text)
        : m_text(text)
    {
    }

    /// Stores the zero-terminated text as it is; null gives the empty path.
    CKoPath(const char* text)
        : m_text(text)
    {
    }

    CKoPath& operator=(const CKoString& text)
    {
        m_text = text;
        return *this;
    }

    CKoPath& operator=(const char* text) { return *this = CKoString(text); }

    CKoString getString() const { return m_text; }

    /// The text in the form that the platform takes.
    CKoString getOSSpecific() const { return m_text; }

    /// True for 1 to MAXLEN - 1 characters.
    bool isValid() const { return !m_text.isEmpty() && m_text.length() < MAXLEN; }

    /// True for "/", and for a text of at most three characters that begins with a letter and a colon. Brings
    /// this path into canonical form first.
    bool isRoot() const;

    /// The last component, with the separators that may follow it: "c" of "a/b/c", "c/" of "a/b/c/". Empty
    /// for "/", for nothing but separators, and for a path that is not valid.
    CKoString getLeaf() const;

    /// What stands before the separator in front of the last component: "a/b" of "a/b/c", "/" of "/abc".
    /// Empty for a single component and for a path that is not valid.
    CKoString getBranch() const;

    /// Brings this path into canonical form.
    CKoPath& canonify();

    /// As canonify.
    void doCanonify() const;

    /// The canonical form of a text of any length.
    static CKoString canonify(const CKoString& text);

    /// Replaces every backslash in a zero-terminated text by the separator. Null is left alone.
    static void convertSeparators(char* text);

    /// Does nothing: paths lead where the platform says.
    static void setSimulationRoot(const char* root);

    /// Compares the canonical forms, byte by byte. Brings this path into canonical form, not the other.
    bool operator==(const CKoPath& other) const;

    bool operator!=(const CKoPath& other) const { return !(*this == other); }

    /// Appends a separator and the other text, whatever they begin or end with. A path of MAXLEN bytes or
    /// more becomes the empty path. Null counts as the empty text.
    CKoPath& operator/=(const char* text);
    CKoPath& operator/=(const CKoPath& other);

    /// Writes and reads the text as CKoString is written and read. Only found for a CKoPath, so that texts
    /// keep their own operators.
    friend KO_EXPORT IKoOStream& operator<<(IKoOStream& stream, const CKoPath& path);
    friend KO_EXPORT const IKoIStream& operator>>(const IKoIStream& stream, CKoPath& path);

private:
    friend KO_EXPORT CKoPath operator/(const CKoPath& left, const CKoPath& right);
    friend KO_EXPORT CKoPath operator/(const CKoPath& left, const char* right);

    mutable CKoString m_text;
};

/// The joined path, see operator/= of CKoPath.
KO_EXPORT CKoPath operator/(const CKoPath& left, const CKoPath& right);
KO_EXPORT CKoPath operator/(const CKoPath& left, const char* right);
