#include "common/threads.h"

#include <pthread.h>

namespace trv {

int runWorkers(ThreadBody body, const int* args, int count) {
    if (count > kMaxWorkers) count = kMaxWorkers;
    int slots[kMaxWorkers];
    pthread_t threads[kMaxWorkers];
    bool started[kMaxWorkers];
    for (int i = 0; i < count; ++i) {
        slots[i] = args[i];
        started[i] = pthread_create(&threads[i], nullptr, body, &slots[i]) == 0;
        if (!started[i]) body(&slots[i]);
    }
    int status = 0;
    for (int i = 0; i < count; ++i) {
        if (started[i]) status = pthread_join(threads[i], nullptr);
    }
    return status;
}

int runWorkers(ThreadBody body, int count) {
    int args[kMaxWorkers];
    if (count > kMaxWorkers) count = kMaxWorkers;
    for (int i = 0; i < count; ++i) args[i] = i;
    return runWorkers(body, args, count);
}

}  // namespace trv
