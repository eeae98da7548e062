// SPDX-License-Identifier: Apache-2.0
#include "sim/cards/emv_profile.h"

#include "sim/cards/crypto.h"
#include "sim/data/card_values.h"
#include "sim/data/digits.h"
#include "sim/data/profile_error.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace vorn::sim {
namespace {

const std::string kPseName = "1PAY.SYS.DDF01";
const std::string kContactlessPseName = "2PAY.SYS.DDF01";
constexpr std::size_t kLogRecordSize = 45;
constexpr std::size_t kMerchantSize = 20;
constexpr std::size_t kRecordsMax = 254; // record numbers are 01 to FE
constexpr std::size_t kApplicationsMax = 32;
constexpr std::size_t kFciMax = 254;
constexpr tlv::Tag kAid = 0x4F, kLabel = 0x50, kEntry = 0x61, kFci = 0x6F, kRecord = 0x70, kDfName = 0x84;
constexpr tlv::Tag kPriority = 0x87, kDirectorySfi = 0x88, kDdfName = 0x9D, kProprietary = 0xA5;
constexpr tlv::Tag kLanguage = 0x5F2D, kPreferredName = 0x9F12, kLogEntry = 0x9F4D, kDiscretionary = 0xBF0C;
// What GET DATA names when the profile names no log format: date, time, the two amounts, country, currency,
// merchant, type and counter, 45 bytes in all.
const char* const kLogFormat = "9A039F21039F02069F03069F1A025F2A029F4E149C019F3602";

Bytes number(unsigned value) { return {static_cast<std::uint8_t>(value)}; }

Answers readAnswers(const JsonNode& commands)
{
    Answers answers;
    for (const auto& [name, member] : commands.members()) {
        const auto start = fromHex(name);
        if (!start || start->size() < 2) {
            member.expected("the leading bytes of a command in hex, at least two, as the name of this answer");
        }
        const auto list = member.isArray() ? member.items() : std::vector<JsonNode>{member};
        for (const JsonNode& item : list) {
            answers[*start].push_back(bytesOf(item, 2, 258));
        }
        if (list.empty()) {
            member.expected("at least one answer");
        }
    }
    return answers;
}

// Records: {"1": [record, ...]} by short file identifier; a record is its whole bytes, or the objects in a template.
Records readRecords(const JsonNode& files)
{
    Records records;
    for (const auto& [name, member] : files.members()) {
        const unsigned sfi = numberOf(name, 2).value_or(0);
        if (sfi < 1 || sfi > 30) {
            member.expected("a short file identifier from 1 to 30 as the name of this file");
        }
        for (const JsonNode& item : member.items()) {
            Bytes record = item.isText() ? bytesOf(item) : tlv::encode(kRecord, objectsOf(item));
            if (record.empty() || record.size() > 254) {
                item.expected("a record of 1 to 254 bytes");
            }
            records[sfi].push_back(record);
            if (records[sfi].size() > kRecordsMax) {
                member.expected("no more than " + std::to_string(kRecordsMax) + " records");
            }
        }
    }
    return records;
}

Bytes fciOf(const Bytes& name, const Bytes& proprietary)
{
    Bytes body = tlv::encode(kDfName, name);
    tlv::append(body, tlv::encode(kProprietary, proprietary));
    return tlv::encode(kFci, body);
}

// ---------------------------------------------------------------- directories

Bytes applicationEntry(const Bytes& aid, const Bytes& label, std::optional<unsigned> priority)
{
    Bytes body = tlv::encode(kAid, aid);
    if (!label.empty()) {
        tlv::append(body, tlv::encode(kLabel, label));
    }
    if (priority) {
        tlv::append(body, tlv::encode(kPriority, number(*priority)));
    }
    return tlv::encode(kEntry, body);
}

Bytes labelOf(const JsonNode& node)
{
    const auto label = node.find("label");
    return label ? wordingOf(*label) : Bytes();
}

std::optional<unsigned> priorityOf(const JsonNode& node)
{
    const auto priority = node.find("priority");
    return priority ? std::optional(static_cast<unsigned>(priority->number(0, 255))) : std::nullopt;
}

void readDirectory(const JsonNode& node, const Bytes& name, std::vector<DedicatedFile>& directories);

// One entry: an application, or a nested directory, which is added to the list of directories as well.
Bytes readEntry(const JsonNode& node, std::vector<DedicatedFile>& directories)
{
    if (node.isText()) {
        return bytesOf(node);
    }
    if (node.find("ddf")) {
        const Bytes name = wordingOf(node.at("ddf"));
        readDirectory(node, name, directories);
        return tlv::encode(kEntry, tlv::encode(kDdfName, name));
    }
    node.allow({"aid", "label", "priority", "objects", "comment"});
    if (const auto objects = node.find("objects")) {
        return tlv::encode(kEntry, objectsOf(*objects));
    }
    return applicationEntry(bytesOf(node.at("aid"), 1, 16), labelOf(node), priorityOf(node));
}

Bytes readDirectoryRecord(const JsonNode& node, std::vector<DedicatedFile>& directories)
{
    if (node.isText()) {
        return bytesOf(node);
    }
    Bytes entries;
    for (const JsonNode& entry : node.isArray() ? node.items() : std::vector<JsonNode>{node}) {
        tlv::append(entries, readEntry(entry, directories));
    }
    return tlv::encode(kRecord, entries);
}

void readDirectory(const JsonNode& node, const Bytes& name, std::vector<DedicatedFile>& directories)
{
    node.allow({"name", "ddf", "sfi", "language", "fci", "directory", "comment"});
    const auto sfiNode = node.find("sfi");
    const unsigned sfi = sfiNode ? static_cast<unsigned>(sfiNode->number(1, 30)) : 1;
    Bytes proprietary = tlv::encode(kDirectorySfi, number(sfi));
    if (const auto language = node.find("language")) {
        tlv::append(proprietary, tlv::encode(kLanguage, wordingOf(*language)));
    }
    DedicatedFile directory{name, fciOf(name, proprietary), {}};
    if (const auto fci = node.find("fci")) {
        directory.fci = bytesOf(*fci);
    }
    std::vector<DedicatedFile> nested;
    for (const JsonNode& record : node.at("directory").items()) {
        directory.records[sfi].push_back(readDirectoryRecord(record, nested));
    }
    directories.push_back(std::move(directory));
    directories.insert(directories.end(), nested.begin(), nested.end());
}

// A card without the member gets a directory with one record for each application that has not "listed": false.
DedicatedFile defaultDirectory(const JsonNode& applications)
{
    DedicatedFile directory{{kPseName.begin(), kPseName.end()}, {}, {}};
    directory.fci = fciOf(directory.name, tlv::encode(kDirectorySfi, number(1)));
    unsigned position = 0;
    for (const JsonNode& node : applications.items()) {
        ++position;
        const auto listed = node.find("listed");
        if (!listed || listed->flag()) {
            const auto priority = priorityOf(node);
            directory.records[1].push_back(tlv::encode(
                kRecord, applicationEntry(bytesOf(node.at("aid"), 1, 16), labelOf(node), priority.value_or(position))));
        }
    }
    return directory;
}

// The contactless directory has no records: its entries are in its own file control information.
DedicatedFile contactlessDirectory(const JsonNode& applications)
{
    Bytes entries;
    unsigned position = 0;
    for (const JsonNode& node : applications.items()) {
        ++position;
        const auto listed = node.find("listed");
        if (!listed || listed->flag()) {
            tlv::append(entries, applicationEntry(bytesOf(node.at("aid"), 1, 16), labelOf(node),
                                                  priorityOf(node).value_or(position)));
        }
    }
    DedicatedFile directory{{kContactlessPseName.begin(), kContactlessPseName.end()}, {}, {}};
    directory.fci = fciOf(directory.name, tlv::encode(kDiscretionary, entries));
    if (directory.fci.size() > kFciMax) {
        applications.expected("fewer applications, or shorter names, for a directory of one answer");
    }
    return directory;
}

// ---------------------------------------------------------------- applications

Bytes readFci(const JsonNode& node, const Bytes& aid, const std::optional<TransactionLog>& log, std::size_t logCount)
{
    if (const auto raw = node.find("fci_raw")) {
        return bytesOf(*raw, 0, 254);
    }
    Bytes body;
    const Bytes label = labelOf(node);
    if (!label.empty()) {
        tlv::append(body, tlv::encode(kLabel, label));
    }
    if (const auto priority = priorityOf(node)) {
        tlv::append(body, tlv::encode(kPriority, number(*priority)));
    }
    if (const auto language = node.find("language")) {
        tlv::append(body, tlv::encode(kLanguage, wordingOf(*language)));
    }
    if (const auto preferred = node.find("preferred_name")) {
        tlv::append(body, tlv::encode(kPreferredName, wordingOf(*preferred)));
    }
    const auto more = node.find("fci");
    const Bytes objects = more ? objectsOf(*more) : Bytes();
    tlv::append(body, objects);
    if (log && !tlv::find(objects, kLogEntry)) {
        const Bytes entry = {static_cast<std::uint8_t>(log->sfi), static_cast<std::uint8_t>(logCount)};
        tlv::append(body, tlv::encode(kDiscretionary, tlv::encode(kLogEntry, entry)));
    }
    return fciOf(aid, body);
}

Bytes readLogRecord(const JsonNode& node)
{
    if (node.isText()) {
        return bytesOf(node, kLogRecordSize, kLogRecordSize);
    }
    node.allow({"date", "time", "amount", "other", "country", "currency", "merchant", "type", "atc"});
    const auto field = [&node](const char* name, std::size_t size, const char* otherwise) {
        const auto member = node.find(name);
        return member ? bytesOf(*member, size, size) : fromHex(otherwise).value_or(Bytes(size));
    };
    const auto other = node.find("other");
    Bytes merchant = wordingOf(node.at("merchant"));
    if (merchant.size() > kMerchantSize) {
        node.at("merchant").expected("a merchant name of at most 20 bytes in GBK");
    }
    merchant.resize(kMerchantSize, ' ');

    Bytes record = field("date", 3, "240101");
    tlv::append(record, field("time", 3, "000000"));
    tlv::append(record, bcdAmount(amountOf(node.at("amount"))));
    tlv::append(record, bcdAmount(other ? amountOf(*other) : 0));
    tlv::append(record, field("country", 2, "0156"));
    tlv::append(record, field("currency", 2, "0156"));
    tlv::append(record, merchant);
    tlv::append(record, field("type", 1, "00"));
    tlv::append(record, field("atc", 2, "0001"));
    return record;
}

// The log's records go into the application's files; its newest record is the first.
std::optional<TransactionLog> readLog(const JsonNode& node, Records& files)
{
    const auto log = node.find("log");
    if (!log) {
        return std::nullopt;
    }
    log->allow({"sfi", "capacity", "records", "comment"});
    TransactionLog result;
    const auto sfi = log->find("sfi");
    result.sfi = sfi ? static_cast<unsigned>(sfi->number(1, 30)) : 11;
    std::vector<Bytes>& records = files[result.sfi];
    for (const JsonNode& record : log->at("records").items()) {
        records.push_back(readLogRecord(record));
    }
    const auto capacity = log->find("capacity");
    result.capacity =
        capacity ? static_cast<std::size_t>(capacity->number(1, 255)) : std::max<std::size_t>(records.size(), 10);
    if (records.size() > result.capacity) {
        log->at("records").expected("no more records than the log's capacity");
    }
    return result;
}

// Without the member: every file of the records but the log, each from its first record to its last.
Bytes locatorOf(const JsonNode& afl)
{
    Bytes entries = bytesOf(afl, 0, 248);
    if (entries.size() % 4 != 0) {
        afl.expected("entries of four bytes");
    }
    return entries;
}

Bytes readLocator(const JsonNode& node, const Records& records, const std::optional<TransactionLog>& log,
                  const std::optional<CardCertificates>& certificates)
{
    if (const auto afl = node.find("afl")) {
        return locatorOf(*afl);
    }
    Bytes entries;
    for (const auto& [sfi, list] : records) {
        if (!(log && log->sfi == sfi)) {
            const unsigned authenticated = certificates ? certificates->signedRecords(sfi) : 0;
            tlv::append(entries, {static_cast<std::uint8_t>(sfi << 3), 1, static_cast<std::uint8_t>(list.size()),
                                  static_cast<std::uint8_t>(authenticated)});
        }
    }
    return entries;
}

// The AIP says what the card can do, unless the profile states another; the certificates vouch for it and for the
// records that the AFL marks.
void readOfflineAuthentication(const JsonNode& node, Application& application)
{
    constexpr unsigned kUsual = 0x1C; // cardholder verification, risk management and issuer authentication
    Records& files = application.file.records;
    const auto member = node.find("offline_authentication");
    const auto certificates = member ? std::optional<CardCertificates>(std::in_place, *member, files) : std::nullopt;
    application.offline = certificates ? certificates->methods() : OfflineAuthentication();
    const auto aip = node.find("aip");
    application.aip =
        aip ? bytesOf(*aip, 2, 2) : Bytes{static_cast<std::uint8_t>(kUsual | application.offline.profileBits()), 0x00};
    application.afl = readLocator(node, files, application.log, certificates);
    if (certificates) {
        certificates->fill(application.aip, application.afl, files);
    }
}

std::optional<QuickPayment> readQuickPayment(const JsonNode& node, const Application& application)
{
    constexpr std::size_t kLocatorMax = 16; // the answer has to hold much else
    const auto member = node.find("qpboc");
    if (!member) {
        return std::nullopt;
    }
    member->allow({"afl", "comment"});
    const auto afl = member->find("afl");
    const Records& files = application.file.records;
    QuickPayment quick{afl ? locatorOf(*afl) : application.afl, findInRecords(files, 0x57).value_or(Bytes()),
                       findInRecords(files, 0x5F34).value_or(Bytes())};
    if (quick.afl.size() > kLocatorMax || quick.track2.size() > 19 || quick.sequenceNumber.size() > 1) {
        member->expected("at most four entries in the AFL, 19 bytes in 57 and one in 5F34");
    }
    if (!node.find("keys")) {
        member->expected("keys beside it, for the cryptogram");
    }
    return quick;
}

crypto::Key keyOf(const JsonNode& node)
{
    const Bytes bytes = bytesOf(node, 16, 16);
    crypto::Key key{};
    std::copy(bytes.begin(), bytes.end(), key.begin());
    return key;
}

crypto::KeySet readKeySet(const JsonNode& node, const char* const (&names)[3])
{
    crypto::KeySet keys;
    keys.ac = keyOf(node.at(names[0]));
    const auto mac = node.find(names[1]);
    const auto enc = node.find(names[2]);
    keys.mac = mac ? keyOf(*mac) : keys.ac;
    keys.enc = enc ? keyOf(*enc) : keys.ac;
    if (const auto session = node.find("session")) {
        if (session->text() != "pboc" && session->text() != "common") {
            session->expected("\"pboc\" or \"common\"");
        }
        keys.session = session->text() == "pboc" ? crypto::SessionKeys::Pboc : crypto::SessionKeys::Common;
    }
    return keys;
}

std::optional<crypto::KeySet> readCardKeys(const JsonNode& node, const Records& records)
{
    const auto keys = node.find("keys");
    if (!keys) {
        return std::nullopt;
    }
    keys->allow({"mk_ac", "mk_mac", "mk_enc", "udk_ac", "udk_mac", "udk_enc", "session", "comment"});
    if (keys->find("udk_ac")) {
        return readKeySet(*keys, {"udk_ac", "udk_mac", "udk_enc"});
    }
    const auto pan = node.find("pan");
    const auto psn = node.find("psn");
    const auto panValue =
        pan ? fromHex(pan->text().size() % 2 ? pan->text() + "F" : pan->text()) : findInRecords(records, 0x5A);
    const Bytes psnValue = psn ? bytesOf(*psn, 1, 1) : findInRecords(records, 0x5F34).value_or(Bytes{0});
    if (!panValue) {
        keys->expected("an account number (5A in the records, or a member \"pan\") to derive the card's keys from");
    }
    const std::string digits = toHex(*panValue);
    return crypto::cardKeys(readIssuerKeys(*keys), digits.substr(0, digits.find('F')), toHex(psnValue));
}

std::optional<std::uint8_t> cryptogramType(const std::optional<JsonNode>& node)
{
    if (!node) {
        return std::nullopt;
    }
    const std::string name = node->text();
    if (name == "AAC") {
        return std::uint8_t{0x00};
    }
    if (name == "TC") {
        return std::uint8_t{0x40};
    }
    if (name != "ARQC") {
        node->expected("\"AAC\", \"TC\" or \"ARQC\"");
    }
    return std::uint8_t{0x80};
}

RiskRules readRisk(const JsonNode& node)
{
    node.allow({"decline_above", "offline_below", "refuse_online", "require_issuer_auth", "force_first", "force_second",
                "comment"});
    RiskRules rules;
    if (const auto above = node.find("decline_above")) {
        rules.declineAbove = amountOf(*above);
    }
    if (const auto below = node.find("offline_below")) {
        rules.offlineBelow = amountOf(*below);
    }
    if (const auto refuse = node.find("refuse_online")) {
        rules.refuseOnline = refuse->flag();
    }
    if (const auto require = node.find("require_issuer_auth")) {
        rules.requireIssuerAuth = require->flag();
    }
    rules.forceFirst = cryptogramType(node.find("force_first"));
    rules.forceSecond = cryptogramType(node.find("force_second"));
    return rules;
}

std::uint16_t counterOf(const JsonNode& node, const char* name)
{
    const auto member = node.find(name);
    return member ? static_cast<std::uint16_t>(member->number(0, 0xFFFF)) : std::uint16_t{0};
}

void readPin(const JsonNode& node, Application& application)
{
    node.allow({"value", "tries", "tries_left", "comment"});
    application.state.pin = node.at("value").text();
    if (!crypto::isPin(application.state.pin)) {
        node.at("value").expected("a PIN of 4 to 12 digits");
    }
    const auto tries = node.find("tries");
    const auto left = node.find("tries_left");
    application.pinTryLimit = tries ? static_cast<unsigned>(tries->number(1, 15)) : 3;
    application.state.pinTries = left ? static_cast<unsigned>(left->number(0, 15)) : application.pinTryLimit;
}

void readElectronicCash(const JsonNode& node, ApplicationState& state)
{
    node.allow({"balance", "limit", "single_limit", "reset_threshold", "currency", "comment"});
    state.electronicCash = true;
    state.balance = amountOf(node.at("balance"));
    state.balanceLimit = amountOf(node.at("limit"));
    state.singleLimit = amountOf(node.at("single_limit"));
    const auto threshold = node.find("reset_threshold");
    state.resetThreshold = threshold ? std::optional(amountOf(*threshold)) : std::nullopt;
    const auto currency = node.find("currency");
    state.cashCurrency = currency ? bytesOf(*currency, 2, 2) : Bytes{0x01, 0x56};
}

ApplicationState readState(const JsonNode& node, Application& application)
{
    application.state.atc = counterOf(node, "atc");
    application.state.lastOnlineAtc = counterOf(node, "last_online_atc");
    if (const auto blocked = node.find("blocked")) {
        application.state.blocked = blocked->flag();
    }
    if (const auto pin = node.find("pin")) {
        readPin(*pin, application);
    }
    if (const auto cash = node.find("electronic_cash")) {
        readElectronicCash(*cash, application.state);
    }
    return application.state;
}

std::map<tlv::Tag, Bytes> readData(const std::optional<JsonNode>& node, std::size_t least)
{
    std::map<tlv::Tag, Bytes> data;
    for (const auto& [name, member] : node ? node->members() : std::vector<std::pair<std::string, JsonNode>>()) {
        const auto tag = tlv::tagFromHex(name);
        if (!tag) {
            member.expected("a tag in hex as the name of this object");
        }
        data[*tag] = bytesOf(member, least, 250);
    }
    return data;
}

std::map<unsigned, Bytes> readBinaries(const std::optional<JsonNode>& node)
{
    std::map<unsigned, Bytes> binaries;
    for (const auto& [name, member] : node ? node->members() : std::vector<std::pair<std::string, JsonNode>>()) {
        const auto sfi = numberOf(name, 2);
        if (!sfi || *sfi > 31) {
            member.expected("a short file identifier from 0 to 31 as the name of this file");
        }
        binaries[*sfi] = bytesOf(member);
    }
    return binaries;
}

std::optional<tlv::Dol> readDol(const JsonNode& node, const std::optional<Bytes>& bytes, const char* what)
{
    auto dol = bytes ? tlv::parseDol(*bytes) : std::nullopt;
    if (bytes && !dol) {
        throw ProfileError(node.where() + ": " + what + " is no list of tags and lengths");
    }
    return dol;
}

unsigned formatOf(const JsonNode& node, const char* name)
{
    const auto member = node.find(name);
    return member ? static_cast<unsigned>(member->number(1, 2)) : 1;
}

Application readApplication(const JsonNode& node)
{
    node.allow({"aid",
                "label",
                "priority",
                "preferred_name",
                "language",
                "listed",
                "fci",
                "fci_raw",
                "aip",
                "afl",
                "gpo_format",
                "ac_format",
                "refuse_gpo",
                "records",
                "offline_authentication",
                "qpboc",
                "binaries",
                "get_data",
                "get_data_raw",
                "log",
                "keys",
                "key_index",
                "verification_results",
                "pan",
                "psn",
                "atc",
                "last_online_atc",
                "blocked",
                "pin",
                "electronic_cash",
                "risk",
                "commands",
                "comment"});
    Application application;
    application.file.name = bytesOf(node.at("aid"), 1, 16);
    const auto records = node.find("records");
    application.file.records = records ? readRecords(*records) : Records();
    application.log = readLog(node, application.file.records);
    application.data = readData(node.find("get_data"), 0);
    if (application.log) {
        application.data.emplace(0x9F4F, fromHex(kLogFormat).value_or(Bytes()));
    }
    application.rawAnswers = readData(node.find("get_data_raw"), 2);
    application.file.fci =
        readFci(node, application.file.name, application.log, application.log ? application.log->capacity : 0);
    application.binaries = readBinaries(node.find("binaries"));

    readOfflineAuthentication(node, application);
    application.quick = readQuickPayment(node, application);
    const Records& files = application.file.records;
    application.pdol = readDol(node, tlv::find(application.file.fci, 0x9F38), "9F38").value_or(tlv::Dol());
    application.cdol1 = readDol(node, findInRecords(files, 0x8C), "8C");
    application.cdol2 = readDol(node, findInRecords(files, 0x8D), "8D");
    application.ddol = readDol(node, findInRecords(files, 0x9F49), "9F49").value_or(tlv::Dol());
    application.processingFormat = formatOf(node, "gpo_format");
    application.cryptogramFormat = formatOf(node, "ac_format");
    const auto refuse = node.find("refuse_gpo");
    application.refuseProcessing = refuse && refuse->flag();

    application.keys = readCardKeys(node, files);
    const auto index = node.find("key_index");
    application.keyIndex = index ? bytesOf(*index, 1, 1)[0] : std::uint8_t{0};
    const auto results = node.find("verification_results");
    application.verificationResults = results ? bytesOf(*results, 3, 3) : Bytes(3);
    const auto risk = node.find("risk");
    application.risk = risk ? readRisk(*risk) : RiskRules();
    readState(node, application);
    const auto commands = node.find("commands");
    application.answers = commands ? readAnswers(*commands) : Answers();
    return application;
}

std::vector<DedicatedFile> readDirectories(const JsonNode& card)
{
    std::vector<DedicatedFile> directories;
    const auto contactless = card.find("ppse");
    if (contactless && contactless->flag()) {
        directories.push_back(contactlessDirectory(card.at("applications")));
    }
    const auto pse = card.find("pse");
    if (!pse || pse->value().is_boolean()) {
        if (!pse || pse->flag()) {
            directories.push_back(defaultDirectory(card.at("applications")));
        }
        return directories;
    }
    const auto name = pse->find("name");
    readDirectory(*pse, name ? wordingOf(*name) : Bytes(kPseName.begin(), kPseName.end()), directories);
    return directories;
}

} // namespace

crypto::KeySet readIssuerKeys(const JsonNode& keys) { return readKeySet(keys, {"mk_ac", "mk_mac", "mk_enc"}); }

EmvProfile readEmvProfile(const JsonNode& card)
{
    card.allow({"slot", "after_ms", "type", "comment", "atr", "contactless_answer", "t0", "blocked", "pse", "ppse",
                "applications", "commands"});
    EmvProfile profile;
    const auto atr = card.find("atr");
    const auto slot = card.find("slot");
    const auto contactless = card.find("contactless_answer");
    const bool inField = slot && slot->isText() && slot->text() == "field";
    profile.answerToReset = inField && contactless ? bytesOf(*contactless, 1, 64)
                            : atr                  ? bytesOf(*atr, 2, 33)
                                                   : Bytes{0x3B, 0x00};
    const auto t0 = card.find("t0");
    profile.t0 = t0 && t0->flag();
    const auto blocked = card.find("blocked");
    profile.blocked = blocked && blocked->flag();
    profile.directories = readDirectories(card);
    for (const JsonNode& application : card.at("applications").items()) {
        if (profile.applications.size() == kApplicationsMax) {
            application.expected("no more than " + std::to_string(kApplicationsMax) + " applications");
        }
        profile.applications.push_back(readApplication(application));
    }
    const auto commands = card.find("commands");
    profile.answers = commands ? readAnswers(*commands) : Answers();
    return profile;
}

} // namespace vorn::sim
