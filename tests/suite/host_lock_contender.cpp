// A process that competes for the suite's host lock, for the tests that need real rivals.
//   host_lock_contender POLL_MS RETRY_MS LOCK_FILE...
// Commands on standard input, one a line:
//   "status"  prints "held=H tries=N acquired=A lost=L" (H 0 or 1; N failed tries; A and L how often
//             the lock was won and let go because its file was replaced)
//   "release" releases the lock and prints "released"
// End of input releases and ends the process. The lock's log lines go to standard error.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "suite/protocol/HostLock.hpp"

int main(int argc, char** argv) {
    if (argc < 4) return 2;
    using std::chrono::milliseconds;
    kestrow::suite::HostLock::Timing timing;
    timing.poll = milliseconds(std::stoi(argv[1]));
    timing.retry = milliseconds(std::stoi(argv[2]));
    timing.heldCheck = timing.retry;
    kestrow::suite::HostLock lock(std::vector<std::string>(argv + 3, argv + argc), timing);
    std::atomic<int> acquired{0}, lost{0};
    lock.start([&] { ++acquired; }, [&] { ++lost; });
    std::string command;
    while (std::getline(std::cin, command)) {
        if (command == "status") {
            std::cout << "held=" << lock.isHeld() << " tries=" << lock.failedTries() << " acquired=" << acquired
                      << " lost=" << lost << std::endl;
        } else if (command == "release") {
            lock.release();
            std::cout << "released" << std::endl;
        }
    }
    return 0;
}
