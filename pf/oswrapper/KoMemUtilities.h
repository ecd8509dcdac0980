#pragma once

#include "pf/base/KoExport.h"

/// Typed fill functions and alignment-checked pointer casts.
///
/// Counts are elements. Every fill does nothing when `dst` is null or `count` is 0. Nothing is shared between
/// calls.
namespace KoMemUtilities
{

/// The pointer, or null if it is not aligned to 4 bytes.
KO_EXPORT unsigned int* castToUInt32Ptr(void* pointer);
KO_EXPORT const unsigned int* castToUInt32Ptr(const void* pointer);

/// The pointer, or null if it is not aligned to 2 bytes.
KO_EXPORT unsigned short* castToUInt16Ptr(void* pointer);
KO_EXPORT const unsigned short* castToUInt16Ptr(const void* pointer);

/// Stores `value` into `count` elements. The pointer is aligned for its element type.
KO_EXPORT void memFillUInt64(unsigned long long* dst, unsigned int count, unsigned long long value);
KO_EXPORT void memFillUInt32(unsigned int* dst, unsigned int count, unsigned int value);
KO_EXPORT void memFillUInt16(unsigned short* dst, unsigned int count, unsigned short value);
KO_EXPORT void memFillUInt8(unsigned char* dst, unsigned int count, unsigned char value);

/// Fills `count` 4-bit cells with the low 4 bits of `value`. Cell 2k is the high half of byte k, cell 2k + 1
/// its low half; with `startAtLowNibble` non-zero the first cell is the low half of the first byte. Halves
/// outside the cells keep their value.
KO_EXPORT void memFillNibble(unsigned char* dst, unsigned int count, unsigned char value,
                             unsigned int startAtLowNibble);

} // namespace KoMemUtilities
