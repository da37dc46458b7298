#include "lib/platform/condition_variable.h"

#include "lib/platform/assertion.h"

namespace strata {

namespace {

constexpr const char* FILE_TEXT = "lib/platform/condition_variable.h";
constexpr const char* CONSTRUCTOR_TEXT = "strata::condition_variable::condition_variable()";
constexpr const char* DESTRUCTOR_TEXT = "strata::condition_variable::~condition_variable()";

}  // namespace

condition_variable::condition_variable() {
    if (const int error = pthread_mutex_init(&internal_mutex, nullptr)) {
        throw boost::thread_resource_error(
            error,
            "strata::condition_variable::condition_variable() constructor failed in pthread_mutex_init");
    }
    pthread_condattr_t condattr;
    if (const int error = pthread_condattr_init(&condattr)) {
        pthread_mutex_destroy(&internal_mutex);
        throw boost::thread_resource_error(error,
                                           "strata::condition_variable::condition_variable() constructor "
                                           "failed in pthread_condattr_init");
    }
    if (const int error = pthread_condattr_setclock(&condattr, CLOCK_MONOTONIC)) {
        PLATFORM_ASSERT_AT(FILE_TEXT, 104, CONSTRUCTOR_TEXT, !pthread_condattr_destroy(&condattr));
        pthread_mutex_destroy(&internal_mutex);
        throw boost::thread_resource_error(error,
                                           "strata::condition_variable::condition_variable() constructor "
                                           "failed in pthread_condattr_setclock");
    }
    const int error = pthread_cond_init(&cond, &condattr);
    PLATFORM_ASSERT_AT(FILE_TEXT, 109, CONSTRUCTOR_TEXT, !pthread_condattr_destroy(&condattr));
    if (error) {
        PLATFORM_ASSERT_AT(FILE_TEXT, 113, CONSTRUCTOR_TEXT, !pthread_mutex_destroy(&internal_mutex));
        throw boost::thread_resource_error(
            error,
            "strata::condition_variable::condition_variable() constructor failed in pthread_cond_init");
    }
}

condition_variable::~condition_variable() {
    int ret;
    do {
        ret = pthread_mutex_destroy(&internal_mutex);
    } while (ret == EINTR);
    PLATFORM_ASSERT_AT(FILE_TEXT, 125, DESTRUCTOR_TEXT, !ret);
    do {
        ret = pthread_cond_destroy(&cond);
    } while (ret == EINTR);
    PLATFORM_ASSERT_AT(FILE_TEXT, 130, DESTRUCTOR_TEXT, !ret);
}

void condition_variable::notify_one() {
    pthread_mutex_t* const m = &internal_mutex;
    PLATFORM_ASSERT(!pthread_mutex_lock(m));
    PLATFORM_ASSERT(!pthread_cond_signal(&cond));
    PLATFORM_ASSERT(!pthread_mutex_unlock(m));
}

}  // namespace strata
