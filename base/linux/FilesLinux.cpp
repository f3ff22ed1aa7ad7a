// Swapping two names in one step: renameat2's exchange, which ext4, xfs, btrfs and tmpfs know.
#include <stdio.h>

#include <cerrno>

#include "base/Files.hpp"

namespace kestrow {

int exchangeAt(int folderFd, const char* first, const char* second) {
    return ::renameat2(folderFd, first, folderFd, second, RENAME_EXCHANGE) == 0 ? 0 : errno;
}

}  // namespace kestrow
