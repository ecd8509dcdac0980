#include "pf/base/CKoFix16.h"

#include <climits>
#include <functional>
#include <random>

#include <gtest/gtest.h>

#include "tests/support/AssertionCounter.h"

namespace
{

/// The rules step by step in 64 bits; counts what is to be reported.
struct Model
{
    using Int = long long;

    static constexpr Int ONE = 65536, PI = 205887, LOWEST = -2147483648LL, HIGHEST = 2147483647LL;

    unsigned int reports = 0;

    Int fit(Int value)
    {
        reports += value < LOWEST || value > HIGHEST ? 1U : 0U;
        return static_cast<int>(static_cast<unsigned int>(value & 0xFFFFFFFFLL));
    }
    Int mulDiv(Int a, Int b, Int c)
    {
        reports += c == 0 ? 1U : 0U;
        return c == 0 ? HIGHEST : fit(a * b / c);
    }
    Int add(Int a, Int b) { return fit(a + b); }
    Int neg(Int a) { return fit(-a); }
    Int sub(Int a, Int b) { return add(a, neg(b)); }
    Int mul(Int a, Int b) { return mulDiv(a, b, ONE); }
    Int div(Int a, Int b) { return mulDiv(a, ONE, b); }
    Int floor(Int a) { return (a - (a % ONE + ONE) % ONE) / ONE; }
    Int ceil(Int a) { return -floor(-a); }
    Int round(Int a) { return a >= 0 ? floor(a + ONE / 2) : -floor(-a + ONE / 2); }
    Int mod(Int a, Int b)
    {
        const Int quotient = div(a, b);
        return sub(a, mul((quotient < 0 ? ceil(quotient) : floor(quotient)) * ONE, b));
    }
    Int deg2rad(Int a)
    {
        const Int angle = mod(a, 360 * ONE);
        return div(mul(mul(angle < 0 ? add(angle, 360 * ONE) : angle, 2 * ONE), PI), 360 * ONE);
    }
    Int rad2deg(Int a)
    {
        const Int angle = mod(a, mul(PI, 2 * ONE));
        return div(mul(angle < 0 ? add(angle, mul(PI, 2 * ONE)) : angle, 360 * ONE), mul(PI, 2 * ONE));
    }
    Int sqrt(Int a)
    {
        reports += a < 0 ? 1U : 0U;
        Int low = 0, high = 181 * ONE, root = ONE;
        while (low < high)
        {
            root = div(add(low, high), 2 * ONE);
            const Int square = mul(root, root);
            high = square > a ? root : high;
            low = square < a ? root : square == a ? high : low;
            low = high - low <= 1 ? high : low;
        }
        return root;
    }
    Int sin(Int a)
    {
        Int angle = mod(a, mul(PI, 2 * ONE));
        bool isNegative = angle < 0;
        angle = isNegative ? neg(angle) : angle;
        if (angle >= PI)
        {
            angle = sub(mul(PI, 2 * ONE), angle);
            isNegative = !isNegative;
        }
        angle = angle >= div(PI, 2 * ONE) ? sub(PI, angle) : angle;
        Int result = angle;
        Int term = div(neg(mul(mul(angle, angle), angle)), 6 * ONE);
        for (Int k = 5; term != 0; k += 2)
        {
            result = add(result, term);
            term = div(neg(mul(mul(term, angle), angle)), (k - 1) * k * ONE);
        }
        result = result > ONE ? ONE : result;
        return isNegative ? neg(result) : result;
    }
    Int cos(Int a) { return sin(add(a, div(PI, 2 * ONE))); }
    Int tan(Int a)
    {
        const Int sine = sin(a);
        const Int cosine = cos(a);
        reports += cosine == 0 ? 1U : 0U;
        return div(sine, cosine);
    }
};

using Fix = CKoFix16;

struct Operation
{
    const char* name;
    std::function<int(Fix, Fix, Fix)> real;
    std::function<Model::Int(Model&, int, int, int)> model;
};

#define KO_OPERATION(real, expected)                                                                         \
    {                                                                                                        \
#real, [](Fix a, Fix b, Fix c)                                                                       \
        { return (void)a, (void)b, (void)c, (real); }, [](Model & m, int a, int b, int c)                    \
        { return (void)a, (void)b, (void)c, m.expected; }                                                    \
    }

const Operation OPERATIONS[] = {KO_OPERATION((a + b).raw(), add(a, b)),
                                KO_OPERATION((a += b).raw(), add(a, b)),
                                KO_OPERATION((a - b).raw(), sub(a, b)),
                                KO_OPERATION((-a).raw(), neg(a)),
                                KO_OPERATION((a * b).raw(), mul(a, b)),
                                KO_OPERATION((a / b).raw(), div(a, b)),
                                KO_OPERATION((a % b).raw(), mod(a, b)),
                                KO_OPERATION(Fix::mod(a, b).raw(), mod(a, b)),
                                KO_OPERATION(Fix::MulDiv(a, b, c).raw(), mulDiv(a, b, c)),
                                KO_OPERATION(Fix::abs(a).raw(), fit(a < 0 ? -static_cast<Model::Int>(a) : a)),
                                KO_OPERATION(Fix::round(a), round(a)),
                                KO_OPERATION(Fix::ceil(a), ceil(a)),
                                KO_OPERATION(Fix::floor(a), floor(a)),
                                KO_OPERATION(Fix::sgn(a), fit((a > 0) - (a < 0))),
                                KO_OPERATION(Fix::sqrt(a).raw(), sqrt(a)),
                                KO_OPERATION(Fix::sin(a).raw(), sin(a)),
                                KO_OPERATION(Fix::cos(a).raw(), cos(a)),
                                KO_OPERATION(Fix::tan(a).raw(), tan(a)),
                                KO_OPERATION(Fix::deg2rad(a).raw(), deg2rad(a)),
                                KO_OPERATION(Fix::rad2deg(a).raw(), rad2deg(a))};

void expectAsModel(int a, int b, int c)
{
    for (const Operation& operation : OPERATIONS)
    {
        Model model;
        const Model::Int expected = operation.model(model, a, b, c);
        const KoTest::AssertionCounter reports(model.reports);
        ASSERT_EQ(operation.real(Fix::fromRaw(a), Fix::fromRaw(b), Fix::fromRaw(c)), expected)
            << operation.name << " of " << a << " " << b << " " << c;
        ASSERT_EQ(reports.count(), model.reports) << operation.name << " of " << a << " " << b << " " << c;
    }
}

TEST(CKoFix16, agreesWithItsRulesInEveryBitAndReport)
{
    const int edges[] = {INT_MIN, INT_MIN + 1, -65537, -65536,   -205887,  -32768,     -1,          0,
                         1,       255,         16383,  16384,    65535,    65536,      102943,      102944,
                         205887,  308830,      411774, 11862016, 23592960, 2147024896, INT_MAX - 1, INT_MAX};
    for (const int a : edges)
    {
        for (const int b : edges)
        {
            expectAsModel(a, b, edges[static_cast<unsigned int>(a ^ b) % std::size(edges)]);
        }
    }
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto any = [&] { return static_cast<int>(random()) >> (random() % 32U); };
    for (int round = 0; round < 5000 && !HasFatalFailure(); ++round)
    {
        expectAsModel(any(), any(), any());
    }
}

TEST(CKoFix16, hasTheKnownValues)
{
    EXPECT_EQ((Fix(1.5) * 2.0).raw(), 196608);
    EXPECT_EQ((Fix(1) / 3).raw(), 21845);
    EXPECT_EQ(Fix::round(-2.5), -3);
    EXPECT_EQ(Fix::round(Fix::MAXVALUE), 32768);
    EXPECT_EQ(Fix::mod(-7, 3), Fix(-1));
    EXPECT_EQ(Fix::sin(Fix::PI / 2), Fix(1));
    EXPECT_EQ(Fix::sin(-(Fix::PI / 2)), Fix(-1));
    EXPECT_NEAR(Fix::deg2rad(-90).toDouble(), 4.712, 0.001);
    EXPECT_NEAR(Fix::sqrt(4).raw(), 2 * 65536, 1);
    EXPECT_EQ(Fix::sqrt(0).raw(), 181);
    EXPECT_EQ(Fix(-1.75).toInt(), -1);
    EXPECT_EQ(Fix(40000.0), Fix::MAXVALUE);
    EXPECT_EQ(Fix(-40000.0), Fix::MINVALUE);
    EXPECT_TRUE(Fix(1) < Fix(2) && Fix(1) <= Fix(1) && Fix(2) > Fix(1) && Fix(2) >= Fix(2) &&
                Fix(1) != Fix(2));
}

} // namespace
