#pragma once

#include <cstddef>

namespace KoPlatform
{

/// The host's `dirent` as a program sees it whose file offsets have 32 bits.
struct SNarrowEntry
{
    unsigned int d_ino;
    int d_off;
    unsigned short d_reclen;
    unsigned char d_type;
    char d_name[256];
};

static_assert(offsetof(SNarrowEntry, d_reclen) == 8 && offsetof(SNarrowEntry, d_name) == 11 &&
                  sizeof(SNarrowEntry) == 268,
              "the host's layout");

} // namespace KoPlatform
