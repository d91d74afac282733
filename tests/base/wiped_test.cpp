#include "base/wipe.h"

#include "base/bytes.h"

#include <gmock/gmock.h>

#include <array>
#include <memory>

namespace quelta {
namespace {

using ::testing::Each;

TEST(Wiped, LeavesZerosWhenItGoes)
{
    using Record = std::array<unsigned char, 8>;
    alignas(Wiped<Record>) unsigned char place[sizeof(Wiped<Record>)];
    auto* record = std::construct_at(reinterpret_cast<Wiped<Record>*>(place), Record{1, 2, 3, 4, 5, 6, 7, 8});
    std::destroy_at(record);
    EXPECT_THAT(place, Each(0));
}

// A text this short is kept in the string itself, which a move copies.
TEST(Wiped, LeavesNothingBehindWhenItIsMoved)
{
    Wiped<std::string> pin("24680");
    const char* const before = pin->data();
    const Wiped<std::string> moved(std::move(pin));
    EXPECT_EQ(*moved, "24680");
    EXPECT_THAT(std::span(before, 5), Each('\0'));
}

TEST(Wiped, WipesTheEndOfALongerValueToo)
{
    Wiped<Bytes> buffer(std::size_t{64}, static_cast<unsigned char>(7));
    const unsigned char* const memory = buffer->data();
    buffer->resize(1);
    buffer.clear();
    EXPECT_TRUE(buffer->empty());
    ASSERT_GE(buffer->capacity(), 64u);
    EXPECT_THAT(std::span(memory, 64), Each(0));
}

} // namespace
} // namespace quelta
