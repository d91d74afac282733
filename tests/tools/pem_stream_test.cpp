#include "tools/cms/pem_stream.h"

#include "support/scratch_folder.h"
#include "support/test_bytes.h"
#include "tools/console/failure.h"

namespace quelta::tools {
namespace {

Bytes readAll(const std::filesystem::path& path)
{
    InputFile file(path);
    MessageReader reader(file);
    Bytes all;
    Bytes room(1000);
    for (auto count = reader.read(room); count != 0; count = reader.read(room)) append(all, ByteView(room).first(count));
    return all;
}

TEST(PemText, ComesBackAsTheBytesOfEveryLengthAndPlainBytesAsTheyAre)
{
    const ScratchFolder folder;
    for (const std::size_t size : {std::size_t{1}, std::size_t{47}, std::size_t{48}, std::size_t{49}, 2 * pieceSize + 1}) {
        const Bytes content = test::counting(size);
        for (const char* label : {"", "CMS"}) {
            OutputFile output(folder / "message");
            MessageWriter writer(output, label);
            writer.write(ByteView(content).first(size / 3));
            writer.write(ByteView(content).subspan(size / 3));
            writer.finish();
            output.commit();
            EXPECT_EQ(readAll(folder / "message"), content) << size << label;
        }
    }
    const std::string gap = "-----BEGIN CMS-----\n" + std::string(2 * pieceSize, '\n') + "AQID\n-----END CMS-----\n";
    EXPECT_EQ(readAll(folder.write("gap", toBytes(gap))), (Bytes{1, 2, 3})) << "a piece with nothing in it is no end";
    EXPECT_THROW(readAll(folder.write("bad", toBytes("-----BEGIN CMS-----\nAA*A\n-----END CMS-----\n"))), Failure);
}

} // namespace
} // namespace quelta::tools
