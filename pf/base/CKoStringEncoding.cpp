#include "pf/base/CKoString.h"
#include "pf/base/KoUtf8.h"
#include "pf/oswrapper/CKoAsserter.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace
{

/// Code units with a value that has its top bit set are no characters.
constexpr unsigned int FIRST_INVALID_UNIT = 0x80000000U;

/// What a range of code units needs: the units up to the first invalid one, and their bytes.
struct SExtent
{
    unsigned int units;
    unsigned long long bytes;
};

template <typename Unit>
SExtent measure(const Unit* units, unsigned int count)
{
    SExtent extent = {0U, 0U};
    while (extent.units != count && units[extent.units] < FIRST_INVALID_UNIT)
    {
        extent.bytes += KoPrivate::encodedLength(units[extent.units]);
        ++extent.units;
    }
    return extent;
}

template <typename Unit>
unsigned int encode(char* target, const Unit* units, unsigned int count)
{
    unsigned int bytes = 0;
    for (unsigned int i = 0; i != count; ++i)
    {
        bytes += KoPrivate::encodeUtf8(target + bytes, units[i]);
    }
    return bytes;
}

} // namespace

/// Measures first, so that the block is allocated once with the capacity that growing unit by unit ends with.
template <typename Unit>
bool CKoString::encodeUnits(const Unit* units, unsigned int count)
{
    if (!isValidCapacity(count))
    {
        reportCapacity(__LINE__, "CKoString::addReference", count);
        return true;
    }
    if (units == nullptr || count == 0U)
    {
        truncate(0U);
        return true;
    }
    const SExtent extent = measure(units, count);
    if (makePrivateEmpty(std::max<unsigned long long>(count, extent.bytes)))
    {
        setLength(encode(m_data->text(), units, extent.units), extent.units);
    }
    return extent.units == count;
}

void CKoString::fromUCS4Sequence(const unsigned int* units, unsigned int count)
{
    if (!encodeUnits(units, count))
    {
        doCheapAssert(__LINE__, "CKoString");
    }
}

void CKoString::fromUCS2Sequence(const unsigned short* units, unsigned int count)
{
    encodeUnits(units, count);
}

void CKoString::fromWCharSequence(const unsigned int* first, const unsigned int* last)
{
    const bool isEmptyRange = first == nullptr || last == nullptr || last <= first;
    const std::size_t units = isEmptyRange ? 0U : static_cast<std::size_t>(last - first);
    if (!isValidCapacity(units))
    {
        reportCapacity(__LINE__, "CKoString::addReference", units);
        return;
    }
    CKoString converted;
    converted.fromUCS4Sequence(first, static_cast<unsigned int>(units));
    std::swap(m_data, converted.m_data);
}
