// Reads a value of the type that the first byte of an input chooses from the bytes behind it. Whatever comes
// is a value: written and read again it has to stay the same.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "pf/oswrapper/CKoAsserter.h"
#include "tests/fuzz/StreamedTypes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const std::vector<KoTest::StreamedType> types = KoTest::streamedTypes();
    if (size == 0)
        return 0;
    CKoAsserter::setOccuredAssertions(0);
    CKoAsserter::setExpectedAssertions(UINT32_MAX); // lengths that no string has are reported
    const KoTest::StreamedType& type = types[data[0] % types.size()];
    const KoTest::Bytes written = type.reread(KoTest::streamOf(KoTest::Bytes(data + 1, data + size)));
    const KoTest::Bytes again = type.reread(KoTest::streamOf(written));
    CKoAsserter::setExpectedAssertions(0);
    if (written != again)
    {
        std::fprintf(stderr, "%s changes when it is written and read again\n", type.name);
        std::abort();
    }
    return 0;
}
