#include "base/bytes.h"
#include "base/wipe.h"

#include <gmock/gmock.h>

namespace quelta {
namespace {

using ::testing::Each;

// The string keeps such a short text within itself. A move copies it.
TEST(Wiped, LeavesNothingBehindWhenItIsMovedOrAssigned)
{
    Wiped<std::string> pin("24680");
    const char* const before = pin->data();
    Wiped<std::string> moved(std::move(pin));
    EXPECT_EQ(*moved, "24680");
    EXPECT_THAT(std::span(before, 5), Each('\0'));
    moved = Wiped<std::string>("1");
    EXPECT_EQ(*moved, "1");
    EXPECT_THAT(std::span(moved->data() + 1, 4), Each('\0'));
}

TEST(Wiped, WipesTheEndOfALongerValueToo)
{
    Wiped<Bytes> buffer(std::size_t{64}, static_cast<unsigned char>(7));
    const unsigned char* const memory = buffer->data();
    buffer->resize(1);
    buffer.clear();
    EXPECT_TRUE(buffer->empty() && buffer->capacity() >= 64U);
    EXPECT_THAT(std::span(memory, 64), Each(0));
}

} // namespace
} // namespace quelta
