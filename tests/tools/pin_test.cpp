#include "tools/console/pin.h"

#include "tools/console/failure.h"

#include <gtest/gtest.h>

namespace quelta::tools {

// With a similar letter, another PIN would reach the token.
TEST(GivenPin, IsRefusedIfTheCodePageLacksOneOfItsLetters)
{
    EXPECT_EQ(*readPin({.given = "A1"}), "A1");
    EXPECT_THROW(readPin({.given = "A1\xC4\x80"}), Failure) << "The last letter is an A with a macron.";
}

} // namespace quelta::tools
