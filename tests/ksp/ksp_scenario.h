#pragma once

#include "ksp/ksp_calls.h"
#include "support/scenario.h"

namespace quelta::test {

// A public key as KSPExportKey writes it: the bytes as they stand, the exponent 65537.
Bytes cngBlob(const Bytes& key);

class KspScenario : public Scenario {
protected:
    using Key = NCRYPT_KEY_HANDLE;

    explicit KspScenario(bool opened = true)
    {
        if (opened) open();
    }

    void open()
    {
        silently([&] { return ksp.openProvider(); });
    }
    // The public key of the key pair gets a word, and so does what the token is given for it.
    Key opened(const QueltaKeyPair& pair);
    Key withKey(std::uint32_t algorithm, std::uint32_t usage = usageBoth) { return opened(token.withKeyPair(usage, algorithm)); }
    void get(Key key, std::initializer_list<LPCWSTR> properties)
    {
        for (const LPCWSTR name : properties) ksp("KSPGetKeyProperty", {key, name, room(66)});
    }
    // A symmetric key that this process holds in clear.
    Key clearKey(const Bytes& value);

    KspCalls ksp{recorder};
};

} // namespace quelta::test
