#include "base/ZephCurrentThread.h"

#include <sys/syscall.h>
#include <unistd.h>

void ZephCurrentThread::cacheTid() {
    t_cachedTid = static_cast<int>(syscall(SYS_gettid));
}
