#include "inventory/text/agt_exception.h"

#include <cerrno>
#include <exception>
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

/// A slot of an object's table of virtual operations.
const void* Slot(const std::exception& object, int slot) {
    return (*reinterpret_cast<const void* const* const*>(&object))[slot];
}

TEST(AgtException, HasTwoVirtualOperationsOfItsOwnTheDestructors) {
    const CAgtException own{"text"};
    const std::runtime_error base{"text"};
    EXPECT_NE(Slot(own, 0), Slot(base, 0));
    EXPECT_NE(Slot(own, 1), Slot(base, 1));
    EXPECT_NE(Slot(own, 0), Slot(own, 1));
    EXPECT_EQ(Slot(own, 2), Slot(base, 2)) << "what()";
    EXPECT_EQ(sizeof own, sizeof base);
}

TEST(AgtException, KeepsItsTextInACopy) {
    CAgtException copy{"former"};
    {
        const CAgtException exception{"text", ENOENT};
        copy = exception;
    }
    EXPECT_STREQ(copy.what(), "text\nError message: No such file or directory");
}
