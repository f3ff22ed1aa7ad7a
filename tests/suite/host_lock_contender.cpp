// A process that competes for the suite's host lock, for the tests that need real rivals.
//   host_lock_contender RESULTS_DIR ID LOCK_FILE...
// On becoming host it creates RESULTS_DIR/ID.host. It reads commands from standard input:
// "release" releases the lock (and creates ID.released); end of input ends the process.
#include <fcntl.h>
#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "suite/protocol/HostLock.hpp"

int main(int argc, char** argv) {
    if (argc < 4) return 2;
    const std::string results = argv[1];
    const std::string id = argv[2];
    std::vector<std::string> urls(argv + 3, argv + argc);
    kestrow::suite::HostLock lock(urls);
    lock.start([&] { ::close(::open((results + "/" + id + ".host").c_str(), O_CREAT | O_WRONLY, 0600)); });
    std::string command;
    while (std::getline(std::cin, command)) {
        if (command == "release") {
            lock.release();
            ::close(::open((results + "/" + id + ".released").c_str(), O_CREAT | O_WRONLY, 0600));
        }
    }
    lock.release();
    return 0;
}
