// ctest runs this with a device library of another compiler on the path.

#include "end_to_end/interfaces.h"
#include "support/log_folder.h"

#include <gtest/gtest.h>

namespace quelta::test {

TEST(ForeignLibrary, IsRefusedByBothInterfacesBeforeAStringCrosses)
{
    LogFolder log;
    registerBuiltModule();
    EXPECT_FALSE(CryptoApi().get());
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(NTE_PROVIDER_DLL_FAIL));
    EXPECT_EQ(KeyStorage().status(), NTE_PROVIDER_DLL_FAIL);

    auto lines = log.takeLines();
    std::erase_if(lines, [](const auto& line) { return line.tag != error("").tag; });
    const LogLine refusal = error("QueltaDSCLibrary.dll was built with another compiler than this QueltaCSP.dll (it imports "
                                  "VCRUNTIME140.dll): install the QueltaCSP.dll that was built with Visual C++");
    EXPECT_EQ(lines, (std::vector{refusal, refusal}));
}

} // namespace quelta::test
