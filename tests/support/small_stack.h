#pragma once

#include <pthread.h>

#include <functional>

#include <gtest/gtest.h>

/// A stack that no recursion over the depth of an input gets along with.
inline constexpr size_t kSmallStack = size_t{256} * 1024;

/// Runs `body` on a thread with such a stack, and waits for it.
inline void OnSmallStack(std::function<void()> body) {
    const auto call = [](void* function) -> void* {
        (*static_cast<std::function<void()>*>(function))();
        return nullptr;
    };
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, kSmallStack), 0);
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, &attributes, call, &body), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    ASSERT_EQ(pthread_attr_destroy(&attributes), 0);
}
