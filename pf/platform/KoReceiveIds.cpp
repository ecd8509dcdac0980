#include "pf/platform/KoReceiveIds.h"

#include "pf/oswrapper/KoMemory.h"
#include "pf/platform/KoChannelLock.h"

#include <algorithm>
#include <cerrno>
#include <climits>

namespace
{

using KoPlatform::ChannelLock;
using KoPlatform::ChannelLockGuard;
using KoPlatform::Exchange;

// The number of places is a power of two. The lower bits of an id are its place, and the ids of a place grow
// by the number of places: an id comes again only when all others have had their turn.
constexpr int FIRST_PLACES = 8;
constexpr int NO_PLACE = -1;

struct Place
{
    Exchange* exchange; // null while free
    int receiveId;      // the last one that it had
    int nextFree;
    int endedError; // of a pending one that was ended
    bool pending;
};

ChannelLock sLock;
Place* sPlaces = nullptr;
int sPlaceCount = 0;
int sFirstFree = NO_PLACE;
int sUsed = 0;

int nextId(int receiveId)
{
    return receiveId <= INT_MAX - sPlaceCount ? receiveId + sPlaceCount
                                              : (receiveId & (sPlaceCount - 1)) + sPlaceCount;
}

/// The place of an id that is in use, or null.
Place* find(int receiveId)
{
    Place* const place = receiveId > 0 && sPlaceCount > 0 ? &sPlaces[receiveId & (sPlaceCount - 1)] : nullptr;
    return place != nullptr && place->exchange != nullptr && place->receiveId == receiveId ? place : nullptr;
}

void addFreePlace(Place* places, int number, int lastId)
{
    places[number] = Place{nullptr, lastId, sFirstFree, 0, false};
    sFirstFree = number;
}

/// Moves the places, all of which are in use, into a table twice as large: each stays where it is or goes to
/// the upper half, and leaves a free one in the other half.
void movePlaces(Place* places)
{
    for (int number = sPlaceCount - 1; number >= 0; --number)
    {
        const Place& place = sPlaces[number];
        const int moved = place.receiveId & (2 * sPlaceCount - 1);
        places[moved] = place;
        addFreePlace(places, moved ^ sPlaceCount, place.receiveId - sPlaceCount);
    }
}

bool grow()
{
    if (sPlaceCount == KoPlatform::ReceiveIds::MAX_RECEIVED)
    {
        errno = EAGAIN;
        return false;
    }
    const int count = std::max(FIRST_PLACES, sPlaceCount * 2);
    const unsigned int bytes = static_cast<unsigned int>(count) * static_cast<unsigned int>(sizeof(Place));
    Place* places = static_cast<Place*>(KoMemory::alloc(bytes));
    if (places == nullptr)
    {
        errno = ENOMEM;
        return false;
    }
    for (int number = sPlaceCount == 0 ? count - 1 : -1; number >= 0; --number)
    {
        addFreePlace(places, number, number);
    }
    movePlaces(places);
    KoMemory::release(sPlaces);
    sPlaces = places;
    sPlaceCount = count;
    return true;
}

/// The table stays when its last id goes, so that the ids go on: a stale one must stay refused.
void freePlace(Place& place)
{
    place.exchange = nullptr;
    place.pending = false;
    place.nextFree = sFirstFree;
    sFirstFree = static_cast<int>(&place - sPlaces);
    --sUsed;
}

} // namespace

namespace KoPlatform
{

int ReceiveIds::add(Exchange& exchange) noexcept
{
    const ChannelLockGuard guard(sLock);
    if (sFirstFree == NO_PLACE && !grow())
    {
        return -1;
    }
    Place& place = sPlaces[sFirstFree];
    sFirstFree = place.nextFree;
    place.exchange = &exchange;
    place.receiveId = nextId(place.receiveId);
    place.pending = true;
    ++sUsed;
    exchange.retain();
    place.endedError = 0;
    exchange.setReceiveId(place.receiveId);
    return place.receiveId;
}

int ReceiveIds::publish(int receiveId) noexcept
{
    const ChannelLockGuard guard(sLock);
    Place& place = *find(receiveId);
    const int error = place.endedError;
    place.pending = false;
    if (error != 0)
    {
        freePlace(place);
    }
    return error;
}

void ReceiveIds::remove(int receiveId) noexcept
{
    const ChannelLockGuard guard(sLock);
    freePlace(*find(receiveId));
}

Exchange* ReceiveIds::claim(int receiveId) noexcept
{
    const ChannelLockGuard guard(sLock);
    Place* place = find(receiveId);
    if (place == nullptr || place->pending)
    {
        return nullptr;
    }
    Exchange* exchange = place->exchange;
    freePlace(*place);
    return exchange;
}

bool ReceiveIds::breakOff(Exchange& exchange, int error) noexcept
{
    const ChannelLockGuard guard(sLock);
    Place* place = find(exchange.receiveId());
    if (place == nullptr || place->exchange != &exchange)
    {
        return false;
    }
    if (place->pending)
    {
        place->endedError = error;
        return false;
    }
    freePlace(*place);
    return true;
}

void ReceiveIds::endAll(const Channel& channel, const Connection* connection, int error) noexcept
{
    const ChannelLockGuard guard(sLock);
    for (int number = 0; sUsed > 0 && number < sPlaceCount; ++number)
    {
        Place& place = sPlaces[number];
        Exchange* exchange = place.exchange;
        const bool meant = exchange != nullptr && exchange->channel() == &channel &&
                           (connection == nullptr || exchange->connection() == connection);
        if (meant && place.pending)
        {
            place.endedError = error;
        }
        else if (meant)
        {
            freePlace(place);
            exchange->replyError(error);
        }
    }
}

void ReceiveIds::lockForFork() noexcept
{
    sLock.lock();
}

void ReceiveIds::unlockAfterFork() noexcept
{
    sLock.unlock();
}

void ReceiveIds::startOverInChild() noexcept
{
    sLock.startOver();
    for (int number = 0; number < sPlaceCount; ++number)
    {
        if (sPlaces[number].exchange != nullptr)
        {
            freePlace(sPlaces[number]);
        }
    }
}

} // namespace KoPlatform
