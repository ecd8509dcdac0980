#include "pf/base/CKoFix16.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace
{

constexpr int ONE = 65536;
constexpr int HALF_CIRCLE = 205887; ///< PI
constexpr int FULL_CIRCLE = 2 * HALF_CIRCLE;
constexpr int QUARTER_CIRCLE = HALF_CIRCLE / 2;

/// The next term of the sine series without its sign, each product and the quotient cut.
constexpr std::uint32_t nextTerm(std::uint32_t term, std::uint32_t angle, unsigned int divisor)
{
    const std::uint64_t once = (static_cast<std::uint64_t>(term) * angle) >> 16U;
    return static_cast<std::uint32_t>((once * angle) >> 16U) / divisor;
}

constexpr std::uint32_t fifthTerm(std::uint32_t angle)
{
    const std::uint32_t third = nextTerm(nextTerm(nextTerm(angle, angle, 6U), angle, 20U), angle, 42U);
    return nextTerm(nextTerm(third, angle, 72U), angle, 110U);
}

/// The sine of 0 to a quarter circle. \return at most 1.
constexpr int sineSeries(std::uint32_t angle)
{
    // Cut terms are the same with either sign. Those that follow are 0.
    static_assert(fifthTerm(HALF_CIRCLE - QUARTER_CIRCLE) == 0U, "of the largest angle, so of any");
    const std::uint32_t cubic = nextTerm(angle, angle, 2U * 3U);
    const std::uint32_t quintic = nextTerm(cubic, angle, 4U * 5U);
    const std::uint32_t septic = nextTerm(quintic, angle, 6U * 7U);
    const std::uint32_t nonic = nextTerm(septic, angle, 8U * 9U);
    return std::min(static_cast<int>(angle - cubic + quintic - septic + nonic), ONE);
}

constexpr int LARGEST_ROOT = 181; ///< the largest integer whose square is in range
constexpr int SEARCH_END = LARGEST_ROOT * ONE;

/// From here on, at a quarter, no two roots have the same square, so that the search can be foreseen.
constexpr int FORESEEABLE = ONE / 4;

/// Bisection for the root. \return the first midpoint whose square is the target, or the last one.
int searchRoot(int target)
{
    int low = 0;
    int high = SEARCH_END;
    int root = ONE;
    while (low < high)
    {
        root = std::min((low + high) / 2, SEARCH_END);
        const long long square = static_cast<long long>(root) * root / ONE;
        high = square > target ? root : high;
        low = square < target ? root : low;
        if (square == target || high - low <= 1)
        {
            low = high;
        }
    }
    return root;
}

/// Whether the last midpoint of a search between 0 and 181 that ends between i and i + 1 is i. Sixteen
/// bisections lead from the whole range to such an interval.
constexpr std::array<bool, LARGEST_ROOT> makeEndsBelow()
{
    std::array<bool, LARGEST_ROOT> endsBelow = {};
    for (int i = 0; i < LARGEST_ROOT; ++i)
    {
        int low = 0;
        int high = LARGEST_ROOT;
        while (high - low > 1)
        {
            const int middle = (low + high) / 2;
            endsBelow[static_cast<std::size_t>(i)] = middle <= i;
            (middle <= i ? low : high) = middle;
        }
    }
    return endsBelow;
}

constexpr std::array<bool, LARGEST_ROOT> ENDS_BELOW = makeEndsBelow();

/// Roots of 64 to 255, times 16: where the approximation starts.
constexpr std::array<unsigned char, 192> makeFirstRoots()
{
    std::array<unsigned char, 192> roots = {};
    unsigned int root = 128U;
    for (unsigned int i = 0; i < roots.size(); ++i)
    {
        while ((root + 1U) * (root + 1U) <= (i + 65U) * 256U - 1U)
        {
            ++root;
        }
        roots[i] = static_cast<unsigned char>(root);
    }
    return roots;
}

constexpr std::array<unsigned char, 192> FIRST_ROOTS = makeFirstRoots();

std::uint64_t squareOf(std::uint32_t root)
{
    return static_cast<std::uint64_t>(root) * root;
}

/// The integer root of 2^30 to 2^47: eight bits from the table, and two divisions that double them.
std::uint32_t integerRoot(std::uint64_t square)
{
    const auto shift = static_cast<unsigned int>(__builtin_clzll(square) - 16) & ~1U;
    const std::uint64_t scaled = square << shift; // 2^46 to 2^48
    std::uint32_t root = FIRST_ROOTS[static_cast<std::uint32_t>(scaled >> 40U) - 64U];
    root = (root << 7U) + static_cast<std::uint32_t>(scaled >> 25U) / root;
    root = (root << 7U) + static_cast<std::uint32_t>((scaled >> 9U) / root);
    root >>= shift / 2U;
    while (squareOf(root) > square)
    {
        --root;
    }
    while (squareOf(root + 1U) <= square)
    {
        ++root;
    }
    return root;
}

/// What searchRoot gives for a target that is foreseeable.
int foreseeRoot(int target)
{
    const std::uint64_t square = static_cast<std::uint64_t>(target) << 16U;
    const std::uint32_t root = integerRoot(square);
    const std::uint32_t below = squareOf(root) == square ? root - 1U : root; // its square is smaller
    const std::uint32_t above = below + 1U;
    if (above >= SEARCH_END)
    {
        return SEARCH_END - 1;
    }
    const bool isFound = squareOf(above) < square + ONE;
    return static_cast<int>(!isFound && ENDS_BELOW[below % LARGEST_ROOT] ? below : above);
}

} // namespace

CKoFix16 CKoFix16::sqrt(const CKoFix16& x)
{
    if (x.m_raw < 0)
    {
        doCheapAssert(__LINE__, "CKoFix16");
    }
    return fromRaw(x.m_raw < FORESEEABLE ? searchRoot(x.m_raw) : foreseeRoot(x.m_raw));
}

CKoFix16 CKoFix16::sin(const CKoFix16& x)
{
    // The same as x % (PI * 2): neither its quotient nor its product can overflow.
    int angle = x.m_raw % FULL_CIRCLE;
    bool isNegative = angle < 0;
    angle = isNegative ? -angle : angle;
    if (angle >= HALF_CIRCLE)
    {
        angle = FULL_CIRCLE - angle;
        isNegative = !isNegative;
    }
    if (angle >= QUARTER_CIRCLE)
    {
        angle = HALF_CIRCLE - angle;
    }
    const int sine = sineSeries(static_cast<std::uint32_t>(angle));
    return fromRaw(isNegative ? -sine : sine);
}

CKoFix16 CKoFix16::cos(const CKoFix16& x)
{
    return sin(x + fromRaw(QUARTER_CIRCLE));
}

CKoFix16 CKoFix16::tan(const CKoFix16& x)
{
    const CKoFix16 sine = sin(x);
    const CKoFix16 cosine = cos(x);
    if (cosine.m_raw == 0)
    {
        doCheapAssert(__LINE__, "CKoFix16");
    }
    return sine / cosine;
}
