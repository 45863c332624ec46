#include "inventory/text/agt_exception.h"

#include <cerrno>
#include <stdexcept>
#include <type_traits>

#include <gtest/gtest.h>

TEST(AgtException, HasTheTextAsItsMessage) {
    const CAgtException exception{"Cannot do this"};
    EXPECT_STREQ(exception.what(), "Cannot do this");
}

TEST(AgtException, HasTheSystemsMessageBehindTheText) {
    const CAgtException exception{"Cannot open /dev/sg0", EACCES};
    EXPECT_STREQ(exception.what(), "Cannot open /dev/sg0\nError message: Permission denied");
}

TEST(AgtException, TellsANumberThatTheSystemDoesNotKnow) {
    const CAgtException exception{"x", 12345};
    EXPECT_STREQ(exception.what(), "x\nError message: Unknown error 12345");
}

TEST(AgtException, IsCaughtAsARuntimeError) {
    EXPECT_TRUE(std::has_virtual_destructor_v<CAgtException>);
    try {
        throw CAgtException{"thrown"};
    } catch (const std::runtime_error& caught) {
        EXPECT_STREQ(caught.what(), "thrown");
    }
}

TEST(AgtException, KeepsItsTextInACopy) {
    CAgtException copy{"former"};
    {
        const CAgtException exception{"text", ENOENT};
        copy = exception;
    }
    EXPECT_STREQ(copy.what(), "text\nError message: No such file or directory");
}
