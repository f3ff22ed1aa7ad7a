#include "../ThreadSupport.hpp"

#include <pthread.h>

namespace kestrow::thread {

void nameCurrent(const std::string& name) {
    // The kernel keeps 15 bytes and a terminator; a longer name is refused outright, not cut.
    pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
}

// Linux schedules threads by nice value only; a thread that sleeps almost always costs nothing
// worth lowering, and raising nice for one thread would also need privileges to undo.
void markCurrentAsUtility() {}

}  // namespace kestrow::thread
