#include "csp/csp_scenario.h"

namespace quelta::test {

void CspScenario::open(const char* container)
{
    const Recorder::Pause pause(recorder);
    require(csp.acquire(container) != 0, "CPAcquireContext");
}

void CspScenario::openContainerOf(const QueltaKeyPair& pair)
{
    open(keyName(pair).c_str());
}

HCRYPTKEY CspScenario::userKey(DWORD keySpec)
{
    const Recorder::Pause pause(recorder);
    const HCRYPTKEY key = csp.getUserKey(keySpec);
    require(key != 0, "CPGetUserKey");
    return key;
}

HCRYPTKEY CspScenario::importedKey(const Bytes& blob, HCRYPTKEY with)
{
    const Recorder::Pause pause(recorder);
    const HCRYPTKEY key = csp.importKey(blob, with);
    require(key != 0, "CPImportKey");
    return key;
}

HCRYPTKEY CspScenario::sessionKey(ALG_ID algorithm, const Bytes& value)
{
    token.plain.bytes = value;
    const HCRYPTKEY key = importedKey(keyBlob(SIMPLEBLOB, algorithm, Bytes(132)), userKey(AT_KEYEXCHANGE));
    token.plain = {};
    return key;
}

HCRYPTHASH CspScenario::newHash(ALG_ID algorithm)
{
    const Recorder::Pause pause(recorder);
    const HCRYPTHASH hash = csp.createHash(algorithm);
    require(hash != 0, "CPCreateHash");
    return hash;
}

HCRYPTHASH CspScenario::finishedHash()
{
    const HCRYPTHASH hash = newHash();
    const Recorder::Pause pause(recorder);
    require(csp.setHashParam(hash, HP_HASHVAL, counting(32)), "CPSetHashParam");
    return hash;
}

} // namespace quelta::test
