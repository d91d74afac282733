#include "csp/csp_scenario.h"

#include "csp/key_context.h"

namespace quelta::test {

HCRYPTKEY CspScenario::sessionKey(ALG_ID algorithm, const Bytes& value)
{
    const HCRYPTKEY with = userKey(AT_KEYEXCHANGE);
    token.plain.bytes = value;
    const HCRYPTKEY key = silently([&] { return csp.importKey(keyBlob(SIMPLEBLOB, algorithm, Bytes(132)), with); });
    token.plain = {};
    return key;
}

HCRYPTHASH CspScenario::finishedHash()
{
    const HCRYPTHASH hash = newHash();
    silently([&] { return csp.setHashParam(hash, HP_HASHVAL, counting(32)); });
    return hash;
}

void CspScenario::noteKey(HCRYPTKEY key)
{
    const KeyContext& record = *keyOf(key);
    std::string text = recorder.handle(key) + " is " + toHex(record.keyId) + ": algorithm " + std::to_string(record.algorithm) +
                       ", " + std::to_string(record.bitLength) + " bits, usage " + std::to_string(record.keyUsage) + ", flag " +
                       std::to_string(record.keyPairFlag);
    if (!record.label.empty()) text += ", label \"" + std::string(record.label.view().begin(), record.label.view().end()) + "\"";
    for (const auto& [name, bytes] : {std::pair<const char*, ByteView>{", reference ", record.objectId.view()},
                                      {", public key ", record.publicKey.view()},
                                      {", symmetric key ", record.symmetricKey->view()}}) {
        if (!bytes.empty()) text += name + words(bytes);
    }
    recorder.note(text);
}

void CspScenario::noteAnswers(const std::string& what, const Answers& answers)
{
    std::string text = what + ":";
    for (std::size_t i = 0; i < answers.size(); ++i) {
        const bool last = i + 1 == answers.size();
        const bool same = !last && answers[i].second == answers[i + 1].second;
        text += " " + answers[i].first + (same ? "," : " -> " + answers[i].second + (last ? "" : ";"));
    }
    recorder.note(text);
}

} // namespace quelta::test
