#include "common/FreedMemory.h"

#include <cstdlib>  // defines __GLIBC__ when the C library is glibc

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace tw {

void releaseFreedMemory() {
#if defined(__GLIBC__)
  malloc_trim(0);
#endif
}

}  // namespace tw
