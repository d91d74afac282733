#include "tools/commands/commands.h"

#include "base/text.h"
#include "tools/cms/certificates.h"
#include "tools/console/text.h"
#include "tools/token/open_token.h"

#include <algorithm>

namespace quelta::tools {

namespace {

using Row = std::vector<std::string>;

// Returns those of the two words whose flag is true.
Row words(bool firstHolds, const char* first, bool secondHolds, const char* second)
{
    Row all;
    if (firstHolds) all.emplace_back(first);
    if (secondHolds) all.emplace_back(second);
    return all;
}

Row abilities(const KeyEntry& key)
{
    return words(key.canSign, "sign", key.canDecrypt, "decrypt");
}

Row interfaces(const ListedKey& row)
{
    return words(row.throughCsp, "csp", row.throughKsp, "ksp");
}

std::string joined(const Row& words)
{
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ",") + word;
    return text.empty() ? "-" : text;
}

std::string untilText(const CERT_CONTEXT& certificate)
{
    const std::string day = timeText(certificate.pCertInfo->NotAfter).substr(0, 10);
    const std::string state = validityAt(certificate, timeNow());
    if (state == "not yet valid") return "NOT YET VALID, from " + timeText(certificate.pCertInfo->NotBefore).substr(0, 10);
    return state == "valid" ? day : day + " EXPIRED";
}

Row rowOf(const ListedKey& listed, std::size_t number)
{
    const KeyEntry& key = listed.key;
    const CERT_CONTEXT* certificate = key.certificate.get();
    return {std::to_string(number),
            shortName(key),
            certificate ? displayNameOf(*certificate) : "(no certificate)",
            certificate ? displayIssuerOf(*certificate) : "-",
            certificate ? untilText(*certificate) : "-",
            key.algorithm == "RSA" ? "RSA-" + std::to_string(key.bits) : key.algorithm,
            joined(abilities(key)),
            joined(interfaces(listed))};
}

Json jsonOf(const ListedKey& listed, std::size_t number)
{
    const KeyEntry& key = listed.key;
    Json json{{"number", number}, {"id", key.name},        {"algorithm", key.algorithm},
              {"bits", key.bits}, {"may", abilities(key)}, {"through", interfaces(listed)}};
    if (!key.certificate) return json;
    const CERT_CONTEXT& certificate = *key.certificate;
    json["certificate"] = {{"subject", subjectOf(certificate)},
                           {"issuer", issuerOf(certificate)},
                           {"serial", serialOf(certificate)},
                           {"validFrom", timeText(certificate.pCertInfo->NotBefore)},
                           {"validUntil", timeText(certificate.pCertInfo->NotAfter)},
                           {"state", validityAt(certificate, timeNow())}};
    return json;
}

// Counts the characters of a UTF-8 text.
std::size_t widthOf(const std::string& text)
{
    return static_cast<std::size_t>(std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

std::vector<std::string> aligned(const std::vector<Row>& rows)
{
    std::vector<std::size_t> widths(rows.front().size());
    for (const Row& row : rows)
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], widthOf(row[i]));
    std::vector<std::string> lines;
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) line += row[i] + std::string(widths[i] + 2 - widthOf(row[i]), ' ');
        line.resize(line.find_last_not_of(' ') + 1);
        lines.push_back(std::move(line));
    }
    return lines;
}

} // namespace

Outcome list()
{
    const std::vector<ListedKey> keys = listKeys();
    Outcome outcome;
    outcome.json["keys"] = Json::array();
    std::vector<Row> rows{{"#", "KEY", "HOLDER", "ISSUER", "VALID UNTIL", "KIND", "MAY", "THROUGH"}};
    for (std::size_t i = 0; i < keys.size(); ++i) {
        rows.push_back(rowOf(keys[i], i + 1));
        outcome.json["keys"].push_back(jsonOf(keys[i], i + 1));
    }
    outcome.lines = keys.empty() ? std::vector<std::string>{"the token holds no key; make one on it first"} : aligned(rows);
    return outcome;
}

} // namespace quelta::tools
