#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "tests/fuzz/StreamedTypes.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/MemoryStream.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace
{

using KoTest::Bytes;
using KoTest::MemoryStream;

TEST(WireFormat, bytesAreTheDocumentedOnes)
{
    for (const KoTest::StreamedType& type : KoTest::streamedTypes())
    {
        SCOPED_TRACE(type.name);
        MemoryStream other;
        CKoByteStream own;
        type.writeValue(other);
        type.writeValue(own);
        EXPECT_TRUE(type.golden == other.bytes && type.golden == KoTest::bytesOf(own));
        EXPECT_EQ(type.golden, type.reread(own));
        EXPECT_TRUE(own.position() == own.length() && !own.hasError()) << "nothing more is read";
    }
}

TEST(WireFormat, whatIsCutAnywhereIsAnErrorOfTheStream)
{
    for (const KoTest::StreamedType& type : KoTest::streamedTypes())
        for (auto end = type.golden.begin(); end != type.golden.end(); ++end)
        {
            const CKoByteStream source = KoTest::streamOf(Bytes(type.golden.begin(), end));
            type.reread(source);
            EXPECT_TRUE(source.hasError()) << type.name << source.length();
        }
}

TEST(WireFormat, aClaimedLengthCostsNoMoreThanWhatArrives)
{
    const KoTest::AssertionReports reports;
    for (const KoTest::StreamedType& type : KoTest::streamedTypes())
        for (const unsigned int claimed : {0x10000U, 0x10001U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFE8U,
                                           0xFFFFFFE9U, 0xFFFFFFEBU, 0xFFFFFFECU, 0xFFFFFFFFU})
        {
            MemoryStream source(type.golden);
            for (unsigned int i = 0; i < std::min<std::size_t>(4, source.bytes.size()); ++i)
                source.bytes[i] = static_cast<unsigned char>(claimed >> 8U * i);
            type.reread(source);
            EXPECT_LE(*std::max_element(source.reads.begin(), source.reads.end()), 65537U) << type.name;
        }
}

TEST(WireFormat, keptInputsAreHarmless)
{
    const std::filesystem::directory_iterator corpus(KO_FUZZ_CORPUS);
    ASSERT_NE(end(corpus), corpus);
    for (const auto& entry : corpus)
    {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string input(std::istreambuf_iterator<char>(file), {});
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    }
}

} // namespace
