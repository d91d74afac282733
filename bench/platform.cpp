#include "calls.h"
#include "measure.h"
#include "sections.h"

namespace quelta::bench {

namespace {

// The system's own provider, with a key pair that it has just made.
class SystemProvider {
public:
    SystemProvider()
    {
        expectTrue(CryptAcquireContextA(context_.out(), nullptr, MS_ENH_RSA_AES_PROV_A, PROV_RSA_AES, CRYPT_VERIFYCONTEXT),
                   "CryptAcquireContext");
        constexpr DWORD bits = 2048U << 16;
        expectTrue(CryptGenKey(context_.get(), AT_SIGNATURE, bits, key_.out()), "CryptGenKey");
        sign();
    }
    CryptHash hash(ByteView data) const
    {
        CryptHash hash;
        expectTrue(CryptCreateHash(context_.get(), CALG_SHA_256, 0, 0, hash.out()), "CryptCreateHash");
        expectTrue(CryptHashData(hash.get(), data.data(), static_cast<DWORD>(data.size()), 0), "CryptHashData");
        return hash;
    }
    void digest(ByteView data) const
    {
        BYTE value[32];
        DWORD length = sizeof value;
        expectTrue(CryptGetHashParam(hash(data).get(), HP_HASHVAL, value, &length, 0), "CryptGetHashParam");
    }
    void sign()
    {
        const CryptHash made = hash(text_);
        DWORD length = static_cast<DWORD>(signature_.size());
        expectTrue(CryptSignHashA(made.get(), AT_SIGNATURE, nullptr, 0, signature_.data(), &length), "CryptSignHash");
    }
    void verify() const
    {
        const CryptHash made = hash(text_);
        expectTrue(
            CryptVerifySignatureA(made.get(), signature_.data(), static_cast<DWORD>(signature_.size()), key_.get(), nullptr, 0),
            "CryptVerifySignature");
    }

private:
    CryptContext context_;
    CryptKey key_;
    Bytes text_ = Bytes(32, 0x62);
    Bytes signature_ = Bytes(256);
};

} // namespace

Figures measurePlatform(const std::string& pin)
{
    const LogLevel set(2);
    OpenModule module(pin);
    SystemProvider system;
    const Bytes file(16 << 20, 0x61);
    const auto ours = [&](const std::string& name) {
        for (const Operation& operation : module.operations())
            if (operation.name == name) return operation.call;
        return std::function<void()>();
    };
    Figures figures{"Beside the system's own provider, in microseconds, at level 2",
                    {{"call", "call"},
                     {"module", "the module and the software token"},
                     {"system", "the system's provider"},
                     {"ratio", "ratio", 2}}};
    const auto compare = [&](const char* name, std::function<void()> our, std::function<void()> theirs) {
        const auto times = sideBySide({std::move(our), std::move(theirs)});
        figures.rows.push_back(
            {{"call", name}, {"module", std::round(times[0])}, {"system", std::round(times[1])}, {"ratio", times[0] / times[1]}});
    };
    compare("hash and sign, RSA-2048", ours("hash and sign"), [&] { system.sign(); });
    compare("hash and verify", ours("hash and verify"), [&] { system.verify(); });
    compare(
        "hash, 16 MiB", [&] { module.digest(file); }, [&] { system.digest(file); });
    return figures;
}

} // namespace quelta::bench
