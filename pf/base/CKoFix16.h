#pragma once

/// \file
/// A signed fixed-point number with 16 bits before and 16 bits after the point, for processors without
/// floating point: nothing here uses it except the conversions from and to `double`.
///
///     const CKoFix16 height = CKoFix16::sin(CKoFix16::deg2rad(30)) * length;

#include "pf/base/KoExport.h"
#include "pf/oswrapper/CKoAsserter.h"

/// One raw 32-bit value, the number times 65536. Operations do not fail: an overflow, a division by zero or
/// an argument outside the domain is reported as an assertion, and the result is the wrapped value or the one
/// named below. Products and quotients are cut toward zero. One object is used by one thread at a time.
class KO_EXPORT CKoFix16
{
public:
    static const CKoFix16 PI;
    static const CKoFix16 MINVALUE; ///< -32768
    static const CKoFix16 MAXVALUE; ///< 1/65536 below 32768

    /// 0.
    constexpr CKoFix16()
        : m_raw(0)
    {
    }

    /// An integer, -32768 to 32767; of any other the low 16 bits count.
    constexpr CKoFix16(int value)
        : m_raw(wrapped(static_cast<long long>(value) * ONE))
    {
    }

    /// The number cut toward zero after the sixteenth bit; one that is out of range gives the limit next to
    /// it.
    constexpr CKoFix16(double value)
        : m_raw(value > -32768.0 ? (value < 32768.0 ? static_cast<int>(value * ONE) : HIGHEST) : LOWEST)
    {
    }

    /// The number raw / 65536.
    static constexpr CKoFix16 fromRaw(int raw)
    {
        CKoFix16 result;
        result.m_raw = raw;
        return result;
    }

    constexpr int raw() const { return m_raw; }

    /// The number without its fraction: cut toward zero.
    constexpr int toInt() const { return m_raw / ONE; }

    /// The number, exactly.
    constexpr double toDouble() const { return static_cast<double>(m_raw) / ONE; }

    CKoFix16 operator+(const CKoFix16& other) const
    {
        if (m_raw <= 0 ? other.m_raw < LOWEST - m_raw : HIGHEST - m_raw < other.m_raw)
        {
            doCheapAssert(__LINE__, "CKoFix16");
        }
        return fromRaw(wrapped(static_cast<long long>(m_raw) + other.m_raw));
    }

    CKoFix16& operator+=(const CKoFix16& other) { return *this = *this + other; }

    /// The sum with the negation: MINVALUE on the right side is reported.
    CKoFix16 operator-(const CKoFix16& other) const { return *this + -other; }

    /// MINVALUE is reported and stays what it is.
    CKoFix16 operator-() const
    {
        if (m_raw == LOWEST)
        {
            doCheapAssert(__LINE__, "CKoFix16");
        }
        return fromRaw(wrapped(-static_cast<long long>(m_raw)));
    }

    CKoFix16 operator*(const CKoFix16& other) const { return fromRaw(mulDiv64(m_raw, other.m_raw, ONE)); }

    /// Division by zero gives MAXVALUE.
    CKoFix16 operator/(const CKoFix16& other) const { return fromRaw(mulDiv64(m_raw, ONE, other.m_raw)); }

    /// What the quotient's whole part leaves, with the sign of the dividend. It is computed from the
    /// quotient, the product and the difference, each of which reports its overflow.
    CKoFix16 operator%(const CKoFix16& other) const;

    constexpr bool operator==(const CKoFix16& other) const { return m_raw == other.m_raw; }
    constexpr bool operator!=(const CKoFix16& other) const { return m_raw != other.m_raw; }
    constexpr bool operator<(const CKoFix16& other) const { return m_raw < other.m_raw; }
    constexpr bool operator<=(const CKoFix16& other) const { return m_raw <= other.m_raw; }
    constexpr bool operator>(const CKoFix16& other) const { return m_raw > other.m_raw; }
    constexpr bool operator>=(const CKoFix16& other) const { return m_raw >= other.m_raw; }

    /// a * b / c without an overflow in between. MAXVALUE where c is 0.
    static CKoFix16 MulDiv(const CKoFix16& a, const CKoFix16& b, const CKoFix16& c);

    /// a % b.
    static CKoFix16 mod(const CKoFix16& a, const CKoFix16& b);

    /// The number without its sign. MINVALUE is reported and stays what it is.
    static CKoFix16 abs(const CKoFix16& x);

    /// The nearest integer; halves go away from zero.
    static int round(const CKoFix16& x);
    /// The next integer that is not smaller.
    static int ceil(const CKoFix16& x);
    /// The next integer that is not larger.
    static int floor(const CKoFix16& x);

    /// -1, 0 or 1.
    static int sgn(const CKoFix16& x);

    /// The square root as bisection between 0 and 181 finds it: the first midpoint whose square (cut) is x,
    /// or the last one tried. It is within a raw unit of the root from 0.25 on; for smaller numbers, whose
    /// squares coincide, it may be far from it (1/362 for 0). A negative number is reported and gives
    /// 1/65536.
    static CKoFix16 sqrt(const CKoFix16& x);

    /// Angles in radians. The error is a few raw units, for large angles also that of PI.
    static CKoFix16 sin(const CKoFix16& x);
    /// sin(x + PI / 2): an angle near MAXVALUE overflows.
    static CKoFix16 cos(const CKoFix16& x);
    /// sin(x) / cos(x). A cosine of 0 is reported, also by the division.
    static CKoFix16 tan(const CKoFix16& x);

    /// An angle in degrees, 0 or more and below 360, from one in radians.
    static CKoFix16 rad2deg(const CKoFix16& x);
    /// An angle in radians, 0 or more and below 2 * PI, from one in degrees.
    static CKoFix16 deg2rad(const CKoFix16& x);

private:
    static constexpr int ONE = 65536;
    static constexpr int LOWEST = -2147483647 - 1;
    static constexpr int HIGHEST = 2147483647;

    /// The low 32 bits.
    static constexpr int wrapped(long long value)
    {
        return static_cast<int>(static_cast<unsigned int>(static_cast<unsigned long long>(value)));
    }

    static int mulDiv64(int a, int b, int c)
    {
        if (c == 0)
        {
            doCheapAssert(__LINE__, "CKoFix16");
            return HIGHEST;
        }
        const long long quotient = static_cast<long long>(a) * b / c;
        const int result = wrapped(quotient);
        if (quotient != result)
        {
            doCheapAssert(__LINE__, "CKoFix16");
        }
        return result;
    }

    int m_raw;
};
