// A record goes into bytes and comes back, and a reader copes with bytes that are not one.
#include "pf/base/CKoString.h"
#include "pf/stream/CKoByteStream.h"
#include "pf/util/CKoDateAndTime.h"

#include <cstdio>

namespace
{

struct Reading
{
    CKoString pump;
    unsigned int litres = 0;
    CKoDateAndTime taken;
};

IKoOStream& operator<<(IKoOStream& stream, const Reading& reading)
{
    return stream << reading.pump << reading.litres << reading.taken;
}

const IKoIStream& operator>>(const IKoIStream& stream, Reading& reading)
{
    return stream >> reading.pump >> reading.litres >> reading.taken;
}

/// \return whether the bytes held a whole reading and nothing else.
bool parse(const CKoByteStream& bytes, Reading& reading)
{
    bytes >> reading;
    return !bytes.hasError() && bytes.position() == bytes.length();
}

} // namespace

int main()
{
    const Reading sent{"inlet", 40, CKoDateAndTime({2024, 3, 7}, {9, 5, 1, 0}, 0)};
    CKoByteStream bytes;
    bytes << sent;
    CKoString dump;
    bytes.dump(dump);
    std::printf("%u bytes: %s\n", bytes.length(), dump.c_str());

    Reading received;
    const bool isWhole = parse(bytes, received);
    std::printf("%s, %u l, %s: %s\n", received.pump.c_str(), received.litres,
                received.taken.toString().c_str(), isWhole ? "whole" : "damaged");

    const CKoByteStream cut(bytes.getMemoryBuffer(), 12); // the connection broke
    Reading partial;
    const bool isCutWhole = parse(cut, partial);
    std::printf("%s, %u l: %s\n", partial.pump.c_str(), partial.litres, isCutWhole ? "whole" : "damaged");
    return isWhole && !isCutWhole ? 0 : 1;
}
