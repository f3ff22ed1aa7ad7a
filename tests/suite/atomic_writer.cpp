// Replaces one file atomically, over and over, until killed: the tests kill it mid-write to see what
// a killed writer leaves behind.
//   atomic_writer PATH BYTES
#include <string>

#include "base/Files.hpp"

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const std::string bytes(std::stoul(argv[2]), 'x');
    for (;;) {
        if (kestrow::writeAtomically(argv[1], bytes).failed()) return 1;
    }
}
