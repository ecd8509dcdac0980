#pragma once

#include <string>

#include "Message.h"
#include "Rendezvous.h"
#include "SharedValues.h"
#include "pf/containers/TKoVector.h"

/// The sampler's way to whatever recorder there is. Samples wait in a queue until they are acknowledged; when
/// a recorder ends, the next one gets the rest. It may get a sample that the other one had kept already.
///
/// One thread at a time.
class RecorderLink
{
public:
    /// \param directory where recorders tell their addresses.
    explicit RecorderLink(const std::string& directory);
    ~RecorderLink();
    RecorderLink(const RecorderLink&) = delete;
    RecorderLink& operator=(const RecorderLink&) = delete;

    /// Makes a source known, before its first sample.
    void addSource(const Message::Announcement& source);

    /// Shares the memory with every recorder.
    void share(const SharedValues& values) { m_values = &values; }

    /// Queues a sample; a full queue loses its oldest one.
    void add(const Message::Sample& sample);

    /// Connects if need be, and sends what waits. Blocks for a time-out at most when a recorder hangs.
    /// \return whether nothing waits any more.
    bool deliver();

    /// Delivers the rest and tells the recorder to finish. \return whether it could be told.
    bool finish();

    unsigned int samples() const { return m_samples; }
    unsigned int restarts() const { return m_restarts; }

private:
    bool isConnected() const { return m_connection >= 0; }
    bool connect();
    void disconnect();
    void reportConnection();
    bool announce();
    bool send(const CKoByteStream& message);

    Rendezvous m_rendezvous;
    TKoVector<CKoByteStream> m_announcements;
    TKoVector<CKoByteStream> m_queue;
    const SharedValues* m_values = nullptr;
    Address m_recorder{};
    int m_connection = -1;
    unsigned int m_samples = 0;
    unsigned int m_restarts = 0;
};
