#include "../ThreadSupport.hpp"

#include <pthread.h>
#include <pthread/qos.h>

namespace kestrow::thread {

// macOS names only the calling thread; names up to 63 bytes are kept.
void nameCurrent(const std::string& name) { pthread_setname_np(name.substr(0, 63).c_str()); }

void markCurrentAsUtility() { pthread_set_qos_class_self_np(QOS_CLASS_UTILITY, 0); }

}  // namespace kestrow::thread
