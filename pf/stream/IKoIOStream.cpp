#include "pf/stream/IKoIOStream.h"

IKoIOStream::~IKoIOStream() = default;
