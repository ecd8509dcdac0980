#pragma once

#include "pf/base/KoExport.h"

/// A version number in three parts, a plain value. Which of two is the newer one is its user's business.
class KO_EXPORT CKoVersion
{
public:
    /// 0.0.0, which stands for no version.
    static const CKoVersion invalid;

    constexpr CKoVersion(unsigned short theMajor, unsigned short theMinor, unsigned short theRevision)
        : m_major(theMajor)
        , m_minor(theMinor)
        , m_revision(theRevision)
    {
    }

    CKoVersion(const CKoVersion& other) = default;
    CKoVersion& operator=(const CKoVersion& other) = default;

    /// CKoVersion::invalid, the same object each time.
    static const CKoVersion& invalidVersion();

    constexpr unsigned short getMajor() const { return m_major; }
    constexpr unsigned short getMinor() const { return m_minor; }
    constexpr unsigned short getRevision() const { return m_revision; }

private:
    unsigned short m_major;
    unsigned short m_minor;
    unsigned short m_revision;
};
