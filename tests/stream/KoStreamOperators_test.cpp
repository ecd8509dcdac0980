#include "pf/stream/KoStreamOperators.h"

#include <limits>
#include <utility>

#include <gtest/gtest.h>

#include "pf/base/CKoString.h"
#include "pf/stream/CKoNullStream.h"
#include "tests/support/MemoryStream.h"

namespace
{

using KoTest::MemoryStream;
using Bytes = std::vector<unsigned char>;

template <class T, class = void>
struct IsWritable : std::false_type
{
};
template <class T>
struct IsWritable<T, std::void_t<decltype(std::declval<IKoOStream&>() << std::declval<const T&>())>>
    : std::true_type
{
};
template <class T, class = void>
struct IsReadable : std::false_type
{
};
template <class T>
struct IsReadable<T, std::void_t<decltype(std::declval<const IKoIStream&>() >> std::declval<T&>())>>
    : std::true_type
{
};

enum Plain
{
    PLAIN
};
enum class Scoped
{
    SCOPED
};
struct ConvertsToBool
{
    operator bool() const { return true; }
};

static_assert(!IsWritable<Plain>::value && !IsReadable<Plain>::value, "an enumeration is no int");
static_assert(!IsWritable<Scoped>::value && !IsReadable<Scoped>::value, "an enumeration is no int");
static_assert(!IsWritable<int*>::value && !IsWritable<void*>::value && !IsReadable<int*>::value,
              "nor is a pointer");
static_assert(!IsWritable<long double>::value && !IsReadable<long double>::value, "no size of its own");
static_assert(!IsWritable<ConvertsToBool>::value, "nor what converts");
static_assert(IsWritable<CKoString>::value && IsWritable<char[4]>::value, "texts are strings");

template <class T>
void expectBytes(T value, const Bytes& expected)
{
    MemoryStream stream;
    IKoOStream& written = stream << value;
    EXPECT_EQ(&written, &stream);
    EXPECT_EQ(expected, stream.bytes);
    EXPECT_EQ(std::vector<unsigned int>{sizeof(T)}, stream.writes) << "one call";

    T result = T();
    const IKoIStream& read = stream >> result;
    EXPECT_EQ(&read, &stream);
    EXPECT_EQ(value, result);
    EXPECT_EQ(std::vector<unsigned int>{sizeof(T)}, stream.reads) << "one call";

    CKoNullStream::INSTANCE << value;
    CKoNullStream::INSTANCE >> result;
    EXPECT_EQ(value, result) << "what does not come leaves the value alone";
}

TEST(KoStreamOperators, valuesAreTheirBytesLeastSignificantFirst)
{
    expectBytes<char>('a', {0x61});
    expectBytes<signed char>(-2, {0xFE});
    expectBytes<unsigned char>(0x80, {0x80});
    expectBytes<bool>(true, {1});
    expectBytes<short>(-2, {0xFE, 0xFF});
    expectBytes<unsigned short>(0x0102, {2, 1});
    expectBytes<char16_t>(0x0102, {2, 1});
    expectBytes<int>(-3, {0xFD, 0xFF, 0xFF, 0xFF});
    expectBytes<unsigned int>(0x01020304, {4, 3, 2, 1});
    expectBytes<char32_t>(0x01020304, {4, 3, 2, 1});
    expectBytes<long long>(-2, {0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    expectBytes<unsigned long long>(0x0102030405060708, {8, 7, 6, 5, 4, 3, 2, 1});
    expectBytes<float>(1.0F, {0, 0, 0x80, 0x3F});
    expectBytes<double>(-2.0, {0, 0, 0, 0, 0, 0, 0, 0xC0});

    Bytes one(sizeof(long));
    one[0] = 1;
    expectBytes<long>(1, one);
    expectBytes<unsigned long>(1, one);
}

TEST(KoStreamOperators, anyByteButZeroIsTrue)
{
    const MemoryStream stream(Bytes{0x80, 0});
    bool first = false;
    bool second = true;
    bool missing = true;
    stream >> first >> second >> missing;
    EXPECT_TRUE(first);
    EXPECT_FALSE(second);
    EXPECT_TRUE(missing);
}

TEST(KoStreamOperators, aTextIsAString)
{
    MemoryStream stream;
    stream << "ab" << CKoString("c");
    EXPECT_EQ((Bytes{2, 0, 0, 0, 'a', 'b', 1, 0, 0, 0, 'c'}), stream.bytes);
}

TEST(IKoIOStream, skipsInPieces)
{
    const MemoryStream source(Bytes(2000));
    source.readSkip(1300);
    EXPECT_EQ((std::vector<unsigned int>{512, 512, 276}), source.reads);
    source.readSkip(1000);
    EXPECT_EQ((std::vector<unsigned int>{512, 512, 276, 512, 488}), source.reads);

    MemoryStream target;
    target.writeSkip(0);
    EXPECT_TRUE(target.writes.empty());
    target.writeSkip(513);
    EXPECT_EQ((std::vector<unsigned int>{512, 1}), target.writes);
    EXPECT_EQ(Bytes(513), target.bytes);
}

TEST(CKoNullStream, movesNothing)
{
    CKoNullStream& stream = CKoNullStream::INSTANCE;
    unsigned char bytes[2] = {7, 8};
    EXPECT_EQ(0U, stream.write(nullptr, 4));
    EXPECT_EQ(0U, stream.read(bytes, 2));
    EXPECT_EQ(7, bytes[0]);
    EXPECT_FALSE(stream.waitToRead(-1));
    EXPECT_FALSE(stream.waitToWrite(-1));
    stream.readSkip(UINT32_MAX);
    stream.writeSkip(UINT32_MAX);
    stream.flush();
    stream.ready();
}

} // namespace
