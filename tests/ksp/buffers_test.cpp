#include "ksp/ksp_test.h"

namespace quelta::test {

namespace {

// A slot that hands out so many bytes.
struct Giving {
    const char* name;
    DWORD size;
    std::function<SECURITY_STATUS(PBYTE output, DWORD room, DWORD* result)> call;
};

void expectAnswer(const Giving& giving, GuardedBuffer* output, DWORD room, SECURITY_STATUS status)
{
    constexpr DWORD noResult = 0x5EED;
    GuardedBuffer result = GuardedBuffer::of(noResult);
    const auto answer = giving.call(output ? output->data() : nullptr, room, reinterpret_cast<DWORD*>(result.data()));
    EXPECT_EQ(answer, status) << giving.name << " into " << room;
    EXPECT_EQ(result.as<DWORD>(), giving.size) << giving.name << " into " << room;
}

} // namespace

using KspBuffers = KspTest;

// Nothing is written where it does not fit, and nothing behind it where there is room to spare.
TEST_F(KspBuffers, EachSlotTellsTheSizeAndWritesOnlyWhatFits)
{
    auto& pair = token.withKeyPair(usageBoth, algorithmRsa1024);
    token.withCertificateOf(pair, counting(40));
    const auto key = opened(pair);
    cachePin();
    token.plain.bytes = counting(10);
    token.cipher.bytes = counting(128);
    const auto property = [&](LPCWSTR name) {
        return [this, key, name](PBYTE out, DWORD room, DWORD* size) {
            return ksp.GetKeyProperty(provider, key, name, out, room, size, 0);
        };
    };
    const auto blob = [&](LPCWSTR type) {
        return [this, key, type](PBYTE out, DWORD room, DWORD* size) {
            return ksp.ExportKey(provider, key, 0, type, nullptr, out, room, size, 0);
        };
    };
    BYTE input[] = {1, 2, 3};
    const Giving rows[] = {
        {"provider property", 68,
         [&](PBYTE out, DWORD room, DWORD* size) { return ksp.GetProviderProperty(provider, L"Name", out, room, size, 0); }},
        {"number", 4, property(L"Length")},
        {"text", 66, property(L"Name")},
        {"structure", 16, property(L"Lengths")},
        {"certificate", 40, property(L"SmartCardKeyCertificate")},
        {"CNG blob", 155, blob(L"PUBLICBLOB")},
        {"legacy blob", 148, blob(L"CAPIPUBLICBLOB")},
        {"signature", 128,
         [&](PBYTE out, DWORD room, DWORD* size) {
             token.signature.bytes = counting(128);
             return ksp.SignHash(provider, key, nullptr, input, 3, out, room, size, 0);
         }},
        {"cipher", 128,
         [&](PBYTE out, DWORD room, DWORD* size) { return ksp.Encrypt(provider, key, input, 3, nullptr, out, room, size, 0); }},
    };
    for (const Giving& row : rows) {
        for (const DWORD room : {DWORD{0}, row.size}) expectAnswer(row, nullptr, room, 0);
        for (const DWORD room : {DWORD{0}, DWORD{1}, row.size - 1}) {
            GuardedBuffer output(room);
            expectAnswer(row, &output, room, NTE_BUFFER_TOO_SMALL);
            EXPECT_TRUE(output.untouchedFrom(0)) << row.name << " into " << room;
        }
        for (const DWORD room : {row.size, row.size + 3}) {
            GuardedBuffer output(room);
            expectAnswer(row, &output, room, 0);
            EXPECT_FALSE(output.untouchedFrom(row.size - 1)) << row.name << " into " << room;
            EXPECT_TRUE(output.untouchedFrom(row.size)) << row.name << " into " << room;
        }
    }
}

} // namespace quelta::test
