#pragma once

#include <malloc.h>

namespace fw_test {

/// Bytes that the process has from malloc and has not freed; 0 where the C library does not tell.
inline double bytes_in_use() {
#ifdef __GLIBC__
#if __GLIBC_PREREQ(2, 33)
    const struct mallinfo2 info = ::mallinfo2();
    return static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd);
#else
    const struct mallinfo info = ::mallinfo();  // counts modulo 4 GiB
    return static_cast<double>(static_cast<unsigned>(info.uordblks)) +
           static_cast<double>(static_cast<unsigned>(info.hblkhd));
#endif
#else
    return 0;
#endif
}

}  // namespace fw_test
