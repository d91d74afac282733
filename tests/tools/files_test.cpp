#include "failure.h"
#include "files.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>

namespace quelta {
namespace {

const Bytes before{'o', 'l', 'd'};
const Bytes after{'n', 'e', 'w'};

TEST(OutputFiles, AnExistingFileStaysUntilTheNewOneIsComplete)
{
    const ScratchFolder folder;
    const auto target = folder.write("out", before);
    {
        OutputFile output(target);
        output.write(after);
        EXPECT_EQ(folder.read("out"), before);
        output.commit();
    }
    EXPECT_EQ(folder.read("out"), after);
    EXPECT_EQ(folder.fileCount(), 1) << "no temporary file stays behind";
}

TEST(OutputFiles, AFailureLeavesNothingBehind)
{
    const ScratchFolder folder;
    const auto target = folder.write("out", before);
    {
        OutputFile output(target);
        output.write(after);
    }
    {
        OutputFile output(folder / "new");
        output.write(after);
    }
    EXPECT_EQ(folder.read("out"), before);
    EXPECT_EQ(folder.fileCount(), 1);
}

TEST(OutputFiles, NamesOutsideTheCodePageWork)
{
    const ScratchFolder folder;
    OutputFile output(folder / L"\u7F72\u540D.p7s");
    output.write(after);
    output.commit();
    EXPECT_EQ(folder.read(L"\u7F72\u540D.p7s"), after);
}

TEST(OutputFiles, TheInputIsNeverTheOutput)
{
    const ScratchFolder folder;
    const auto input = folder.write("in", before);
    EXPECT_THROW(refuseSameFile(input, folder / "./in"), Failure);
    EXPECT_NO_THROW(refuseSameFile(input, folder / "elsewhere"));
}

TEST(InputFiles, PiecesAddUpToTheFileAtEveryBoundary)
{
    const ScratchFolder folder;
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, pieceSize - 1, pieceSize, pieceSize + 1, 3 * pieceSize}) {
        Bytes content(size);
        for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<unsigned char>(i * 7 + i / 251);
        InputFile file(folder.write("in", content));
        Bytes joined;
        forEachPiece(file, "reading", [&](ByteView piece) { joined.insert(joined.end(), piece.begin(), piece.end()); });
        EXPECT_EQ(joined, content) << size;
    }
}

TEST(InputFiles, AMissingFileSaysSo)
{
    const ScratchFolder folder;
    try {
        InputFile file(folder / "absent");
        FAIL();
    } catch (const Failure& failure) {
        EXPECT_NE(std::string(failure.what()).find("there is no such file"), std::string::npos) << failure.what();
    }
}

} // namespace
} // namespace quelta
