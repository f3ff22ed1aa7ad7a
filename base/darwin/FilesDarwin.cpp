// Swapping two names in one step. The macOS 12 SDK offers the swap only by path (renamex_np), and a
// path would be looked up again outside the folder we hold; APFS makes a new small file cheaply and
// has no flush on replace to avoid, so every write here takes the new-file way.
#include <cerrno>

#include "base/Files.hpp"

namespace kestrow {

int exchangeAt(int, const char*, const char*) { return ENOTSUP; }

}  // namespace kestrow
