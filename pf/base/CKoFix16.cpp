#include "pf/base/CKoFix16.h"

#include "pf/oswrapper/KoLoadOrder.h"

#include <type_traits>

const CKoFix16 CKoFix16::PI KO_INIT_ORDER(KoLoadOrder::FIXED_POINT_CONSTANTS) = CKoFix16::fromRaw(205887);
const CKoFix16 CKoFix16::MINVALUE
    KO_INIT_ORDER(KoLoadOrder::FIXED_POINT_CONSTANTS) = CKoFix16::fromRaw(LOWEST);
const CKoFix16 CKoFix16::MAXVALUE
    KO_INIT_ORDER(KoLoadOrder::FIXED_POINT_CONSTANTS) = CKoFix16::fromRaw(HIGHEST);

static_assert(sizeof(CKoFix16) == 4 && std::is_trivially_copyable_v<CKoFix16>, "one raw value");

CKoFix16 CKoFix16::operator%(const CKoFix16& other) const
{
    const CKoFix16 quotient = *this / other;
    const int whole = quotient.m_raw < 0 ? ceil(quotient) : floor(quotient);
    return *this - CKoFix16(whole) * other;
}

CKoFix16 CKoFix16::MulDiv(const CKoFix16& a, const CKoFix16& b, const CKoFix16& c)
{
    return fromRaw(mulDiv64(a.m_raw, b.m_raw, c.m_raw));
}

CKoFix16 CKoFix16::mod(const CKoFix16& a, const CKoFix16& b)
{
    return a % b;
}

CKoFix16 CKoFix16::abs(const CKoFix16& x)
{
    return x.m_raw < 0 ? -x : x;
}

int CKoFix16::round(const CKoFix16& x)
{
    const long long half = x.m_raw >= 0 ? ONE / 2 : ONE / 2 - 1;
    return static_cast<int>((x.m_raw + half) >> 16);
}

int CKoFix16::ceil(const CKoFix16& x)
{
    return (x.m_raw >> 16) + ((x.m_raw & (ONE - 1)) != 0 ? 1 : 0);
}

int CKoFix16::floor(const CKoFix16& x)
{
    return x.m_raw >> 16;
}

int CKoFix16::sgn(const CKoFix16& x)
{
    return (x.m_raw > 0 ? 1 : 0) - (x.m_raw < 0 ? 1 : 0);
}

CKoFix16 CKoFix16::rad2deg(const CKoFix16& x)
{
    const CKoFix16 fullCircle = PI * 2;
    CKoFix16 angle = x % fullCircle;
    if (angle < 0)
    {
        angle += fullCircle;
    }
    return angle * 360 / fullCircle;
}

CKoFix16 CKoFix16::deg2rad(const CKoFix16& x)
{
    CKoFix16 angle = x % 360;
    if (angle < 0)
    {
        angle += 360;
    }
    return angle * 2 * PI / 360;
}
