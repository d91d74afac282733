#include "support/scratch_folder.h"
#include "tools/console/files.h"

#include <gtest/gtest.h>

namespace quelta::tools {
namespace {

TEST(InputFiles, PiecesAddUpToTheFileAtEveryBoundary)
{
    const ScratchFolder folder;
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, pieceSize - 1, pieceSize, pieceSize + 1, 3 * pieceSize}) {
        Bytes content(size);
        for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<unsigned char>(i * 7 + i / 251);
        InputFile file(folder.write("in", content));
        Bytes joined;
        forEachPiece(file, [&](ByteView piece) { joined.insert(joined.end(), piece.begin(), piece.end()); });
        EXPECT_EQ(joined, content) << size;
    }
}

} // namespace
} // namespace quelta::tools
