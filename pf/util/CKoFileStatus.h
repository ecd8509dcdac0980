#pragma once

/// What the platform knows about a file (KoFileOperations::getFileStatus), all zero at first.
///
/// The members have the names and the meaning of the platform's status record, and the same widths wherever
/// and however a program is compiled.
struct CKoFileStatus
{
    /// A point in time since 1970.
    struct STime
    {
        long long tv_sec = 0; ///< whole seconds
        int tv_nsec = 0;      ///< nanoseconds of the second
    };

    unsigned long long st_dev = 0ULL;   ///< the device that holds the file
    unsigned long long st_ino = 0ULL;   ///< its number on this device
    unsigned int st_mode = 0U;          ///< type and permission bits
    unsigned long long st_nlink = 0ULL; ///< names of the file
    unsigned int st_uid = 0U;           ///< owner
    unsigned int st_gid = 0U;           ///< group
    unsigned long long st_rdev = 0ULL;  ///< the device that a device file stands for
    long long st_size = 0LL;            ///< bytes
    long long st_blksize = 0LL;         ///< bytes that are best moved at once
    long long st_blocks = 0LL;          ///< space in use, in units of 512 bytes
    STime st_atim;                      ///< last read
    STime st_mtim;                      ///< last change of the content
    STime st_ctim;                      ///< last change of the status
};
