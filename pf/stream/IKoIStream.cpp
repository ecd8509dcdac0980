#include "pf/stream/IKoIStream.h"

#include <algorithm>

namespace
{

constexpr unsigned int PIECE_SIZE = 512;

} // namespace

IKoIStream::~IKoIStream() = default;

void IKoIStream::align(unsigned int) const
{
}

void IKoIStream::readSkip(unsigned int count) const
{
    unsigned char discarded[PIECE_SIZE];
    while (count > 0)
    {
        const unsigned int piece = std::min(count, PIECE_SIZE);
        read(discarded, piece);
        count -= piece;
    }
}
