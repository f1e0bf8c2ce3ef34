// Locks that do nothing. The sound of a page has one thread, so the unit's lock has nothing to do.
#pragma once
struct pthread_mutex_t {};
inline int pthread_mutex_init(pthread_mutex_t*, const void*) {
    return 0;
}
inline int pthread_mutex_lock(pthread_mutex_t*) {
    return 0;
}
inline int pthread_mutex_unlock(pthread_mutex_t*) {
    return 0;
}
inline int pthread_mutex_destroy(pthread_mutex_t*) {
    return 0;
}
