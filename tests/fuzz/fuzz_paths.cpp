// Splits an input at its first line feed into two paths, which come out of a stream as a client's would, and
// compares what CKoPath makes of them with the plainest rules.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "pf/stream/CKoByteStream.h"
#include "pf/stream/KoStreamOperators.h"
#include "tests/fuzz/PathModel.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

static CKoPath pathOf(const std::uint8_t* first, const std::uint8_t* last)
{
    CKoByteStream stream;
    stream << static_cast<unsigned int>(last - first);
    stream.write(first, static_cast<unsigned int>(last - first));
    CKoPath path;
    stream >> path;
    return path;
}

/// A text with a zero byte in it has parts, too, though no rules for them.
static std::string useWhole(const CKoPath& path)
{
    const CKoString parts[] = {path.getLeaf(), path.getBranch(), (path / path).getString()};
    for (const CKoString& part : parts)
    {
        if (part.length() > part.byteLength())
            std::abort();
    }
    return CKoPath::canonify(path.getString()).isEmpty() ? "" : path.getString().c_str();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::uint8_t* const end = data + size;
    const std::uint8_t* const split = std::find(data, end, '\n');
    const std::string left = useWhole(pathOf(data, split));
    const std::string right = useWhole(pathOf(split == end ? end : split + 1, end));
    const std::string difference = KoTest::differenceOfPaths(left, right);
    if (!difference.empty())
    {
        std::fprintf(stderr, "%s\n", difference.c_str());
        std::abort();
    }
    return 0;
}
