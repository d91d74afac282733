#include "base/hex.h"
#include "cli/commands.h"
#include "cli/select.h"
#include "common/bcrypt_calls.h"
#include "crypto/asymmetric_key.h"
#include "crypto/primitives.h"
#include "formats/certificate.h"
#include "formats/distinguished_name.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>

namespace quelta::softtoken::cli {

namespace {

using Json = nlohmann::ordered_json;
using Row = std::vector<std::string>;

// The table and the JSON form show the same values.
struct Listing {
    std::vector<Row> keyPairs;
    std::vector<Row> certificates;
    std::vector<Row> aesKeys;
};

const Row keyPairColumns{"id", "type", "usage", "label", "certificate"};
// The table shows the first five columns. All seven would be too wide to read.
const Row certificateColumns{"thumbprint", "subject", "issuer", "notAfter", "keyId", "notBefore", "serial"};
const Row certificateColumnsShown(certificateColumns.begin(), certificateColumns.begin() + 5);
const Row aesKeyColumns{"id", "type", "label"};

std::string thumbprint(const StoredCertificate& certificate)
{
    return toHex(digestOf(sha1, certificate.der));
}

std::string typeOf(const StoredKeyPair& pair)
{
    const KeyAlgorithm* algorithm = keyAlgorithm(pair.algorithm);
    return algorithm == nullptr ? "unknown" : std::string(algorithm->name);
}

std::string certificateOf(const StoredToken& state, const StoredKeyPair& pair)
{
    for (const StoredCertificate& certificate : state.certificates)
        if (std::ranges::equal(certificate.keyId, pair.id)) return thumbprint(certificate);
    return {};
}

Row certificateRow(const StoredCertificate& certificate)
{
    const CertificateFields fields = readCertificate(certificate.der);
    return {thumbprint(certificate),  nameText(fields.subject), nameText(fields.issuer), fields.notAfter,
            toHex(certificate.keyId), fields.notBefore,         toHex(fields.serial)};
}

std::string aesType(const StoredAesKey& key)
{
    return "aes" + std::to_string(key.value.size() * 8);
}

Listing listingOf(const StoredToken& state)
{
    Listing listing;
    for (const StoredKeyPair& pair : state.keyPairs)
        listing.keyPairs.push_back(
            {toHex(pair.id), typeOf(pair), nameOfUsage(pair.usage), pair.label, certificateOf(state, pair)});
    for (const StoredCertificate& certificate : state.certificates) listing.certificates.push_back(certificateRow(certificate));
    for (const StoredAesKey& key : state.aesKeys) listing.aesKeys.push_back({toHex(key.id), aesType(key), key.label});
    return listing;
}

Json jsonRows(const Row& columns, const std::vector<Row>& rows)
{
    Json list = Json::array();
    for (const Row& row : rows) {
        Json item = Json::object();
        for (std::size_t i = 0; i < columns.size(); ++i) item[columns[i]] = row[i].empty() ? Json() : Json(row[i]);
        list.push_back(item);
    }
    return list;
}

void printJson(const std::filesystem::path& folder, const StoredToken& state, const Listing& listing)
{
    const Json json{{"folder", textOf(folder)},
                    {"serial", state.serial},
                    {"label", state.label},
                    {"plugged", state.plugged},
                    {"clock", state.clockMismatch ? "mismatch" : "ok"},
                    {"singleSignOn", {{"enabled", state.singleSignOnEnabled}, {"open", state.singleSignOnOpen}}},
                    {"pin", {{"attempts", state.pin.attempts}, {"remaining", state.pin.remaining}}},
                    {"keyPairs", jsonRows(keyPairColumns, listing.keyPairs)},
                    {"certificates", jsonRows(certificateColumns, listing.certificates)},
                    {"aesKeys", jsonRows(aesKeyColumns, listing.aesKeys)}};
    std::cout << json.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
}

// Counts the characters of a UTF-8 text.
std::size_t widthOf(const std::string& text)
{
    return static_cast<std::size_t>(std::ranges::count_if(text, [](char unit) { return (unit & 0xC0) != 0x80; }));
}

void printTable(const std::string& title, const Row& columns, std::vector<Row> rows)
{
    if (rows.empty()) return;
    rows.insert(rows.begin(), columns);
    std::vector<std::size_t> widths(columns.size());
    for (const Row& row : rows)
        for (std::size_t i = 0; i < columns.size(); ++i) widths[i] = std::max(widths[i], widthOf(row[i]));
    std::cout << "\n" << title << "\n";
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < columns.size(); ++i) line += "  " + row[i] + std::string(widths[i] - widthOf(row[i]), ' ');
        std::cout << line.substr(0, line.find_last_not_of(' ') + 1) << "\n";
    }
}

void printTables(const std::filesystem::path& folder, const StoredToken& state, const Listing& listing)
{
    const std::string session = !state.singleSignOnEnabled ? "off" : state.singleSignOnOpen ? "open" : "expired";
    std::cout << state.serial << " \"" << state.label << "\" in " << textOf(folder) << "\n"
              << (state.plugged ? "plugged in" : "unplugged") << ", clock " << (state.clockMismatch ? "mismatch" : "ok")
              << ", single sign-on " << session << ", PIN " << (state.pin.remaining > 0 ? "" : "locked, ") << state.pin.remaining
              << " of " << state.pin.attempts << " attempts left\n";
    printTable("Key pairs", keyPairColumns, listing.keyPairs);
    printTable("Certificates", certificateColumnsShown, listing.certificates);
    printTable("AES keys", aesKeyColumns, listing.aesKeys);
}

} // namespace

void list(const CommandLine& given)
{
    const auto token = requireToken(given.folder);
    if (given.json)
        printJson(given.folder, *token, listingOf(*token));
    else
        printTables(given.folder, *token, listingOf(*token));
}

} // namespace quelta::softtoken::cli
