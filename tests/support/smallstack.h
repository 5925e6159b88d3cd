#ifndef TESTS_SUPPORT_SMALLSTACK_H
#define TESTS_SUPPORT_SMALLSTACK_H

#include <functional>
#include <pthread.h>

#include <gtest/gtest.h>

namespace support {

/* Runs the body on a thread whose stack has 256 KiB. */
inline void run_on_small_stack(std::function<void()> body)
{
    pthread_attr_t attributes;
    pthread_t thread;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
    const auto entry = [](void *argument) -> void * {
        (*static_cast<std::function<void()> *>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, entry, &body), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
}

} // namespace support

#endif
