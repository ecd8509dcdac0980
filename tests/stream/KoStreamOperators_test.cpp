#include "pf/stream/KoStreamOperators.h"

#include <limits>
#include <system_error>
#include <utility>

#include <gtest/gtest.h>

#include "pf/base/CKoString.h"
#include "pf/stream/CKoNullStream.h"
#include "tests/support/MemoryStream.h"

namespace
{

using KoTest::MemoryStream;
using Bytes = std::vector<unsigned char>;

constexpr auto WRITE = [](IKoOStream& stream, const auto& value) -> decltype(stream << value)
{ return stream << value; };
constexpr auto READ = [](const IKoIStream& stream, auto& value) -> decltype(stream >> value)
{ return stream >> value; };

/// How many of the two operators take a T.
template <class T>
constexpr int OPERATORS = std::is_invocable_v<decltype(WRITE), IKoOStream&, const T&> +
                          std::is_invocable_v<decltype(READ), const IKoIStream&, T&>;

static_assert(OPERATORS<CKoString> == 2 && OPERATORS<char[4]> == 1, "texts are strings");
static_assert(OPERATORS<std::float_round_style> + OPERATORS<std::errc> == 0, "an enumeration is no int");
static_assert(OPERATORS<int*> + OPERATORS<void*> + OPERATORS<std::true_type> == 0, "nor is what converts");
static_assert(OPERATORS<long double> == 0, "no size of its own");

template <class... Values>
void expectBytes(const Bytes& expected, Values... values)
{
    const auto check = [&](auto value)
    {
        const std::vector<unsigned int> oneCall = {sizeof(value)};
        MemoryStream stream;
        EXPECT_EQ(&stream, &WRITE(stream, value));
        EXPECT_EQ(expected, stream.bytes);
        auto result = decltype(value)();
        EXPECT_EQ(&stream, &READ(stream, result));
        EXPECT_EQ(value, result);
        EXPECT_TRUE(stream.writes == oneCall && stream.reads == oneCall);

        CKoNullStream::INSTANCE << value;
        CKoNullStream::INSTANCE >> result;
        EXPECT_EQ(value, result) << "what does not come leaves the value alone";
    };
    (check(values), ...);
}

TEST(KoStreamOperators, valuesAreTheirBytesLeastSignificantFirst)
{
    expectBytes({0x61}, 'a', static_cast<signed char>(0x61), static_cast<unsigned char>(0x61));
    expectBytes({1}, true);
    expectBytes({2, 1}, static_cast<short>(0x0102), static_cast<unsigned short>(0x0102), u'\u0102');
    expectBytes({4, 3, 2, 1}, 0x01020304, 0x01020304U, static_cast<char32_t>(0x01020304));
    expectBytes({8, 7, 6, 5, 4, 3, 2, 1}, 0x0102030405060708LL, 0x0102030405060708ULL);
    expectBytes({0, 0, 0x80, 0xBF}, -1.0F);
    expectBytes({0, 0, 0, 0, 0, 0, 0, 0xC0}, -2.0);
    expectBytes(Bytes(sizeof(long), 0xFF), -1L, ~0UL);
}

TEST(KoStreamOperators, anyByteButZeroIsTrueAndATextIsAString)
{
    const MemoryStream source(Bytes{0x80, 0});
    bool values[] = {false, true, true};
    source >> values[0] >> values[1] >> values[2];
    EXPECT_TRUE(values[0] && !values[1] && values[2]);

    MemoryStream stream;
    stream << "ab" << CKoString("c");
    EXPECT_EQ((Bytes{2, 0, 0, 0, 'a', 'b', 1, 0, 0, 0, 'c'}), stream.bytes);
}

TEST(IKoIOStream, skipsInPieces)
{
    const MemoryStream source(Bytes(1500));
    source.readSkip(1300);
    source.readSkip(1000);
    EXPECT_EQ((std::vector<unsigned int>{512, 512, 276, 512, 488}), source.reads);

    MemoryStream target;
    target.writeSkip(0);
    target.writeSkip(513);
    EXPECT_EQ((std::vector<unsigned int>{512, 1}), target.writes);
    EXPECT_EQ(Bytes(513), target.bytes);
}

TEST(CKoNullStream, movesNothing)
{
    CKoNullStream& stream = CKoNullStream::INSTANCE;
    unsigned char byte = 7;
    EXPECT_EQ(0U, stream.write(nullptr, 4) + stream.read(&byte, 1));
    EXPECT_EQ(7, byte);
    EXPECT_FALSE(stream.waitToRead(-1) || stream.waitToWrite(-1));
    stream.readSkip(UINT32_MAX);
    stream.writeSkip(UINT32_MAX);
    stream.flush();
    stream.ready();
}

} // namespace
