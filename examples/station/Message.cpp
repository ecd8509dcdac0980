#include "Message.h"

#include "pf/oswrapper/KoOperatingSystem.h"

namespace
{

constexpr int WALL_CLOCK = 0;
constexpr unsigned long long NS_PER_MICROSECOND = 1000;

} // namespace

namespace Message
{

IKoOStream& operator<<(IKoOStream& stream, const Start& start)
{
    return stream << start.at;
}

const IKoIStream& operator>>(const IKoIStream& stream, Start& start)
{
    return stream >> start.at;
}

IKoOStream& operator<<(IKoOStream& stream, const Announcement& announcement)
{
    return stream << announcement.run << announcement.name << announcement.unit << announcement.periodMs;
}

const IKoIStream& operator>>(const IKoIStream& stream, Announcement& announcement)
{
    return stream >> announcement.run >> announcement.name >> announcement.unit >> announcement.periodMs;
}

IKoOStream& operator<<(IKoOStream& stream, const Sample& sample)
{
    return stream << sample.taken << sample.name << sample.value << sample.run << sample.sequence
                  << sample.lateness;
}

const IKoIStream& operator>>(const IKoIStream& stream, Sample& sample)
{
    return stream >> sample.taken >> sample.name >> sample.value >> sample.run >> sample.sequence >>
           sample.lateness;
}

CKoByteStream make(Kind kind)
{
    CKoByteStream message;
    message << static_cast<unsigned int>(kind);
    return message;
}

unsigned int kindOf(const CKoByteStream& message)
{
    unsigned int kind = 0;
    message >> kind;
    return message.hasError() ? 0 : kind;
}

CKoDateAndTime wallClock()
{
    const unsigned long long nanoseconds = KoOperatingSystem::getClockValue(WALL_CLOCK);
    return CKoDateAndTime(nanoseconds / NS_PER_MICROSECOND, false, 0);
}

} // namespace Message
