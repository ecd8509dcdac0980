#pragma once

#include "pf/containers/CKoCircularByteBuffer.h"
#include "pf/stream/CKoByteStream.h"

/// The newest of a flow of messages, as many as a few hundred bytes hold.
class Latest
{
public:
    /// Makes room by dropping the oldest ones. A message that would not fit at all is not kept.
    void add(const CKoByteStream& message);

    /// Calls `visit` with each message, the oldest first.
    template <class Visit>
    void forEach(Visit visit) const
    {
        const CKoCircularByteBuffer ring(m_ring); // reading takes the messages out
        CKoByteStream message;
        while (ring.size() > 0)
        {
            ring >> message;
            visit(message);
        }
    }

private:
    static constexpr unsigned int CAPACITY = 512;

    CKoCircularByteBuffer m_ring{CAPACITY};
};
