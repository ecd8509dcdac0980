#include "pf/stream/IKoOStream.h"

#include <algorithm>

namespace
{

constexpr unsigned int PIECE_SIZE = 512;
constexpr unsigned char ZEROS[PIECE_SIZE] = {};

} // namespace

IKoOStream::~IKoOStream() = default;

void IKoOStream::align(unsigned int)
{
}

void IKoOStream::writeSkip(unsigned int count)
{
    while (count > 0)
    {
        const unsigned int piece = std::min(count, PIECE_SIZE);
        write(ZEROS, piece);
        count -= piece;
    }
}
