#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

/// What the two ends of a lane agree on: the hello that the client sends over the socket, and the layout of
/// the memory they share. The same for processes of either pointer width.
namespace KoPlatform
{

/// States of an exchange. The client moves a lane from idle to queued, the server from there to received and
/// replied, the client back to idle. A client that gives up moves it to cancelled, for good.
enum LaneState : std::uint32_t
{
    LANE_IDLE,
    LANE_QUEUED,
    LANE_RECEIVED,
    LANE_REPLIED,
    LANE_CANCELLED
};

struct SLanePulse
{
    std::int32_t priority;
    std::int32_t code;
    alignas(8) std::int64_t value;
};

/// Pulses that a lane holds before its client is refused; a power of two, because the counters wrap.
constexpr std::uint32_t LANE_PULSES = 256U;

/// The start of the shared memory. Words that one side writes while the other may look are accessed
/// atomically; the words of a side are on cache lines of their own.
struct SLaneHeader
{
    alignas(64) std::uint32_t state;
    std::uint32_t messageBytes; // by the client, before it queues
    std::uint32_t replyRoom;    // by the client, before it queues
    std::int32_t priority;      // by the client, before it queues
    std::int32_t thread;        // by the client, before it queues
    std::uint32_t replyBytes;   // by the server, before it replies
    std::int32_t status;        // by the server, before it replies
    std::int32_t error;         // by the server, before it replies: the call fails with it, if it is not 0
    alignas(64) std::uint32_t pulsesSent;  // counted by the client
    alignas(64) std::uint32_t pulsesTaken; // counted by the server
    alignas(4096) SLanePulse pulses[LANE_PULSES];
};

/// Where in the file the area of the message and its reply begins: a multiple of every page size in use. What
/// lies between costs no memory.
constexpr std::size_t LANE_AREA_OFFSET = 65536U;

/// What an area has at least, and what both sides keep mapped for the next exchange at most.
constexpr std::size_t LANE_SMALL_AREA = 65536U;
constexpr std::size_t LANE_KEPT_AREA = std::size_t{8} * 1024U * 1024U;

/// The bytes of a message, and of a reply, fit an int.
constexpr std::size_t LANE_MAX_BYTES = 0x7FFFFFFFU;

/// The client's first and only message on the socket. With it come the three descriptors.
struct SLaneHello
{
    std::uint32_t magic;
    std::uint32_t version;
    std::uint32_t headerBytes;
    std::int32_t connection;
};

constexpr std::uint32_t LANE_MAGIC = 0x4B6F4C61U; // "KoLa"
constexpr std::uint32_t LANE_VERSION = 1U;

/// Order of the descriptors: the shared memory, the bell that the client rings, the bell that the server
/// rings.
enum LaneDescriptor
{
    LANE_MEMORY,
    LANE_SERVER_BELL,
    LANE_CLIENT_BELL,
    LANE_DESCRIPTORS
};

static_assert(sizeof(SLanePulse) == 16 && offsetof(SLanePulse, value) == 8, "the same on every target");
static_assert(offsetof(SLaneHeader, error) == 28 && offsetof(SLaneHeader, pulsesSent) == 64 &&
                  offsetof(SLaneHeader, pulsesTaken) == 128 && offsetof(SLaneHeader, pulses) == 4096,
              "the same on every target");
static_assert(sizeof(SLaneHeader) == 8192 && sizeof(SLaneHeader) <= LANE_AREA_OFFSET,
              "the same on every target");
static_assert(sizeof(SLaneHello) == 16, "the same on every target");

/// Reads a word that the other side may be writing. Acquire pairs with storeShared of the other side: what it
/// wrote before is seen.
template <class Word>
inline Word loadShared(const Word& word) noexcept
{
    return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

/// Publishes a word; pairs with loadShared of the other side.
template <class Word>
inline void storeShared(Word& word, Word value) noexcept
{
    __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

/// Reads a word that the other side wrote before it published the state; a claim, to be checked.
template <class Word>
inline Word readClaim(const Word& word) noexcept
{
    return __atomic_load_n(&word, __ATOMIC_RELAXED);
}

/// Writes a word that the other side reads after the state has been published.
template <class Word>
inline void writeClaim(Word& word, Word value) noexcept
{
    __atomic_store_n(&word, value, __ATOMIC_RELAXED);
}

/// Reads a priority that the other side wrote.
inline int claimedPriority(const std::int32_t& word) noexcept
{
    constexpr std::int32_t HIGHEST = 255;
    return std::clamp(readClaim(word), 0, HIGHEST);
}

/// Moves the state on, unless the other side did. \return whether it was moved. Acquire and release: hands
/// over what was written before, and receives what the other side wrote before.
inline bool moveState(SLaneHeader& header, std::uint32_t from, std::uint32_t to) noexcept
{
    return __atomic_compare_exchange_n(&header.state, &from, to, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
}

} // namespace KoPlatform
