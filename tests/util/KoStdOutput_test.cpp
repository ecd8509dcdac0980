#include "pf/util/KoStdOutput.h"

#include "pf/containers/CKoBuffer.h"
#include "pf/containers/TKoHashMap.h"
#include "pf/containers/TKoMap.h"

#include <iomanip>
#include <sstream>

#include <gtest/gtest.h>

namespace
{

template <class T>
std::string written(const T& value)
{
    std::ostringstream stream;
    stream << std::setfill('.') << std::setw(8) << value << std::setw(3) << 7;
    return stream.str();
}

TEST(KoStdOutput, writesValuesForPeople)
{
    const CKoDateAndTime moment({2024, 3, 7}, {9, 5, 1, 250}, 0);
    const CKoTimeSpan before(0ULL - 93784000005ULL); // a day, two hours, three minutes, four seconds and more
    const unsigned char bytes[] = {0, 255};
    CKoBuffer buffer;
    buffer.copyTo(bytes, sizeof(bytes), 0);
    const struct
    {
        std::string text;
        const char* expected;
    } cases[] = {
        {written(CKoString("Öl")), ".....Öl..7"}, // padded by bytes, as texts of the standard library are
        {written(CKoPath("/dev/pump")), "/dev/pump..7"},
        {written(CKoClassID("IPump")), "...IPump..7"},
        {written(CKoVersion(7, 0, 65535)), "7.0.65535..7"},
        {written(CKoFix16(-0.5)), "....-0.5..7"},
        {written(CKoFix16::MAXVALUE), "32767.99998..7"},
        {written(moment), "2024-03-07 09:05:01.000250..7"},
        {written(CKoDateAndTime::SKoDate(2024, 3, 7)), "2024-03-07..7"},
        {written(CKoDateAndTime::SKoTime(9, 5, 1, 250)), "09:05:01.000250..7"},
        {written(before), "-1 d 02:03:04.000005..7"},
        {written(SKoTimeBreakdown{1, 2, 3, 4}), "1.002003004 s..7"},
        {written(buffer), "2 bytes: 00 ff..7"},
        {written(TKoPair<CKoString, int>("pump", 40)), ".......(pump, 40)..7"},
    };
    for (const auto& each : cases)
    {
        EXPECT_EQ(each.text, each.expected);
    }
    TKoHashMap<CKoString> names;
    names[3] = "pump";
    EXPECT_EQ(testing::PrintToString(names), "{ (3, pump) }");
    EXPECT_EQ(testing::PrintToString(moment), "2024-03-07 09:05:01.000250");
}

} // namespace
