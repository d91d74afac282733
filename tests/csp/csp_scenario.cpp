#include "csp/csp_scenario.h"

#include "csp/key_context.h"

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

void CspScenario::noteKey(HCRYPTKEY key)
{
    const KeyContext& record = *keyOf(key);
    std::string text = recorder.handle(key) + " is " + hexOf(record.keyId) + ": algorithm " + std::to_string(record.algorithm) +
                       ", " + std::to_string(record.bitLength) + " bits, usage " + std::to_string(record.keyUsage) + ", flag " +
                       std::to_string(record.keyPairFlag);
    if (!record.label.empty()) text += ", label \"" + std::string(record.label.view().begin(), record.label.view().end()) + "\"";
    for (const auto& [name, bytes] : {std::pair<const char*, ByteView>{"reference", record.objectId.view()},
                                      {"public key", record.publicKey.view()},
                                      {"symmetric key", record.symmetricKey->view()}}) {
        if (!bytes.empty()) text += ", " + std::string(name) + " " + words(bytes);
    }
    recorder.note(text);
}

} // namespace quelta::test
