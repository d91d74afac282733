#include "common/der_reader.h"
#include "tools/check/steps.h"
#include "tools/cms/certificates.h"
#include "tools/cms/chain_check.h"
#include "tools/commands/certificate_store.h"
#include "tools/console/failure.h"
#include "tools/console/provider_log.h"
#include "tools/console/text.h"

#include <algorithm>

namespace quelta::tools {

namespace {

Found lookAtToken(Examination& examination)
{
    examination.csp = openProvider(Interface::csp);
    examination.ksp = openProvider(Interface::ksp);
    return {Verdict::ok, "plugged in, and both interfaces open it"};
}

std::string describe(const ListedKey& row)
{
    const KeyEntry& key = row.key;
    return shortName(key) + " (" + (key.certificate ? displayNameOf(*key.certificate) : key.algorithm) + ")";
}

// Joins the faults that `judge` finds with the keys; empty if there is none.
template <class Judge>
std::string faults(const Examination& examination, Judge judge)
{
    std::string text;
    for (const ListedKey& row : examination.keys)
        if (const std::string fault = judge(row); !fault.empty())
            text += (text.empty() ? "" : "; ") + describe(row) + " " + fault;
    return text;
}

Found judged(const std::string& faults, Verdict ifAny, const std::string& well, const std::string& advice)
{
    if (faults.empty()) return {Verdict::ok, well};
    return {ifAny, faults + advice};
}

Found lookAtKeys(Examination& examination)
{
    examination.keys = listKeys();
    if (examination.keys.empty()) throw Failure("the token holds no key; if it is the right token, ask who issued it");
    return {Verdict::ok, std::to_string(examination.keys.size()) + " on the token; quelta list shows them"};
}

Found lookAtCertificates(Examination& examination)
{
    const auto& keys = examination.keys;
    const auto missing = faults(examination, [](const ListedKey& row) { return row.key.certificate ? "" : "has none"; });
    const bool all = std::ranges::none_of(keys, [](const ListedKey& row) { return row.key.certificate != nullptr; });
    return judged(missing, all ? Verdict::failed : Verdict::note, "one for each key",
                  "; most applications can't use a key without one: ask who issued the token");
}

Found lookAtValidity(Examination& examination)
{
    const FILETIME now = timeNow();
    const auto judge = [&](const ListedKey& row) { return row.key.certificate ? validityFault(*row.key.certificate, now) : ""; };
    return judged(faults(examination, judge), Verdict::failed, "every certificate is valid today",
                  "; this computer's clock says " + timeText(now) + ": set it if that is wrong, else ask for a new certificate");
}

std::string chainFault(const Examination& examination, const ListedKey& row)
{
    const auto& provider = row.throughCsp ? examination.csp : examination.ksp;
    if (!row.key.certificate || !provider) return {};
    const ChainEnd end = describeChain(*row.key.certificate, provider->chain(row.key));
    if (end.trusted) return {};
    if (!end.missingIssuer.empty())
        return "has an issuer whose certificate is missing on this computer, " + end.missingIssuer +
               ": applications may refuse it; get the issuer's certificate from whoever issued the token, and add it to this "
               "computer";
    return "ends in " + end.name +
           ", a root that this computer does not trust: applications may refuse it; an administrator who knows the root can add "
           "it";
}

Found lookAtChains(Examination& examination)
{
    return judged(faults(examination, [&](const ListedKey& row) { return chainFault(examination, row); }), Verdict::note,
                  "every certificate leads to a root that this system trusts", "");
}

Found lookAtStore(Examination& examination)
{
    const UserStore store(L"My");
    const auto absent = faults(examination, [&](const ListedKey& row) {
        return !row.key.certificate || store.leadsToProvider(encodedOf(*row.key.certificate))
                   ? ""
                   : "is not among the user's certificates in Windows (My)";
    });
    return judged(absent, Verdict::failed, "every certificate is in the store My",
                  "; applications can't see what is missing there; run: quelta publish");
}

// Shows the dialog once, by a signature with a key that can sign.
void letDialogAsk(Examination& examination)
{
    for (auto* provider : {examination.csp.get(), examination.ksp.get()}) {
        if (!provider) continue;
        const auto keys = provider->keys();
        const auto able = std::ranges::find_if(keys, &KeyEntry::canSign);
        if (able != keys.end()) return askForPin(*provider, *able);
    }
    throw Failure("no key on the token can sign, so that the dialog is not to be had; give the PIN with --pin-stdin");
}

Found lookAtPin(Examination& examination)
{
    if (!examination.options.withPin) return {Verdict::leftOut, "not asked for; --pin-dialog or --pin-stdin also tries to sign"};
    rememberLogEnd();
    try {
        if (examination.options.pin.isDialog()) {
            letDialogAsk(examination);
        } else {
            examination.csp->usePin(*examination.pin);
            if (examination.ksp) examination.ksp->usePin(*examination.pin);
        }
    } catch (const CallFailure& failure) {
        throw Failure(std::string("refused: ") + failure.what());
    }
    examination.pinAccepted = true;
    return {Verdict::ok, "accepted"};
}

Found lookAtSignature(TokenProvider* provider)
{
    if (!provider) return {Verdict::leftOut, "this interface did not open the token"};
    const auto keys = provider->keys();
    const auto able = std::ranges::find_if(keys, [](const KeyEntry& key) { return key.canSign && key.certificate; });
    if (able == keys.end()) return {Verdict::note, "no key with a certificate can sign through this interface"};
    const Bytes data = randomBytes(32);
    Bytes signature = provider->sign(*able, knownDigests[0], data);
    if (able->algorithm != "RSA") signature = der::ecdsaSignature(signature);
    if (!signatureHolds(*able->certificate, knownDigests[0], digestOf(knownDigests[0], data), signature))
        throw Failure("made, but it does not fit the certificate; the token has another certificate for the key");
    return {Verdict::ok, "made with key " + shortName(*able) + " and verified"};
}

constexpr CheckStep steps[] = {
    {"token", Need::registration, lookAtToken},
    {"keys", Need::token, lookAtKeys},
    {"certificates", Need::key, lookAtCertificates},
    {"validity", Need::certificate, lookAtValidity},
    {"chains", Need::certificate, lookAtChains},
    {"published", Need::certificate, lookAtStore},
    {"PIN", Need::token, lookAtPin},
    {"signature through CryptoAPI", Need::pin, [](Examination& found) { return lookAtSignature(found.csp.get()); }},
    {"signature through key storage", Need::pin, [](Examination& found) { return lookAtSignature(found.ksp.get()); }},
};

} // namespace

std::span<const CheckStep> tokenSteps()
{
    return steps;
}

} // namespace quelta::tools
