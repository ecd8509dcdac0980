#pragma once

#include "pf/stream/IKoIStream.h"
#include "pf/stream/IKoOStream.h"

/// The base of every stream that can be read and written.
class KO_EXPORT IKoIOStream : public IKoIStream, public IKoOStream
{
public:
    ~IKoIOStream() override;
};
