#pragma once

namespace tw {

// Hands the pages of freed memory back to the system, in every malloc arena.
// The allocator keeps freed pages inside its heaps for reuse; after a burst
// (a post's TLS buffers on the network thread, a dropped colour record) they
// would stay resident although nothing uses them. A few milliseconds; call it
// now and then, not per colour.
void releaseFreedMemory();

}  // namespace tw
