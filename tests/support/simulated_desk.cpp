// SPDX-License-Identifier: Apache-2.0
#include "support/simulated_desk.h"

#include "ICC_COMM_VORN.h"

#include <cstring>
#include <map>
#include <regex>

namespace vorn::test {
namespace {

constexpr int kWait = 3;
constexpr const char* kSale = "P012000000000100T00200S006261121U006123456K00812345678";

// An output is a text only when the call wrote it.
std::string written(const Output& output) { return output.untouched() ? "(untouched)" : output.value(); }

CallRecord powerOn(SimulatedDesk& desk, int cardType, int slot)
{
    Output atr(ICC_ATR_CAPACITY);
    const int result = IC_PowerOn(desk.port(), "", 9600, kWait, cardType, slot, atr.text());
    return {"IC_PowerOn", result, {written(atr)}};
}

CallRecord send(SimulatedDesk& desk, int cardType, int slot, const char* apdu)
{
    Output response(ICC_RESPONSE_CAPACITY);
    const int result = IC_SendAPDU(desk.port(), "", 9600, kWait, cardType, slot, apdu, response.text());
    return {"IC_SendAPDU", result, {written(response)}};
}

CallRecord powerOff(SimulatedDesk& desk, int cardType, int slot)
{
    return {"IC_PowerOff", IC_PowerOff(desk.port(), "", 9600, kWait, cardType, slot), {}};
}

std::vector<CallRecord> rawAccess(SimulatedDesk& desk)
{
    return {powerOn(desk, 1, 0), send(desk, 1, 0, "00A404000E315041592E5359532E4444463031"),
            send(desk, 1, 0, "00B2010C00"), powerOff(desk, 1, 0)};
}

std::vector<CallRecord> psams(SimulatedDesk& desk)
{
    return {powerOn(desk, 2, 1), send(desk, 2, 1, "0084000008"), send(desk, 2, 1, "00A4000002DF01"),
            powerOff(desk, 2, 1)};
}

std::vector<CallRecord> information(SimulatedDesk& desk)
{
    Output record(ICC_USER_INFO_CAPACITY);
    int cardType = VORN_OPEN_EITHER;
    int length = -1;
    const int result = IC_GetInfo(desk.port(), "", 9600, kWait, &cardType, "", "ABCDEFGHIJKL", &length, record.text());
    return {{"IC_GetInfo", result, {written(record), std::to_string(length)}}};
}

std::vector<CallRecord> transactionLog(SimulatedDesk& desk)
{
    Output detail(ICC_TX_DETAIL_CAPACITY);
    int cardType = VORN_OPEN_EITHER;
    int length = -1;
    const int result = IC_GetTranDeta(desk.port(), "", 9600, kWait, &cardType, "A000000333", &length, detail.text());
    return {{"IC_GetTranDeta", result, {written(detail), std::to_string(length)}}};
}

std::vector<CallRecord> sale(SimulatedDesk& desk)
{
    Output arqc(ICC_CRYPTOGRAM_CAPACITY);
    Output state(ICC_STATE_CAPACITY);
    int cardType = VORN_OPEN_EITHER;
    int length = -1;
    const int first =
        IC_GenARQC(desk.port(), "", 9600, kWait, &cardType, "", kSale, &length, arqc.text(), state.text());
    std::vector<CallRecord> records{{"IC_GenARQC", first, {written(arqc), written(state), std::to_string(length)}}};
    if (first != VORN_OK) {
        return records;
    }
    const std::string answer = desk.issuer().authorise(arqc.value()).text;
    Output tc(ICC_CRYPTOGRAM_CAPACITY);
    Output script(ICC_SCRIPT_RESULT_CAPACITY);
    const int second = IC_CtlScriptData(desk.port(), "", 9600, kWait, &cardType, kSale, answer.c_str(), &length,
                                        tc.text(), script.text(), state.text());
    records.push_back({"IC_CtlScriptData", second, {written(tc), written(script), std::to_string(length)}});
    return records;
}

std::vector<CallRecord> memoryCard(SimulatedDesk& desk)
{
    constexpr int kBlock = 16;
    static const unsigned char key[ICC_M1_KEY_SIZE] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    std::vector<CallRecord> records;
    unsigned char flag = 0;
    Output uid(ICC_ATR_CAPACITY);
    Output block(ICC_M1_BLOCK_SIZE);
    int result = IC_M1ActiveCard(desk.port(), "", 9600, kWait, &flag, uid.text());
    records.push_back({"IC_M1ActiveCard", result, {written(uid), std::to_string(flag)}});
    result = IC_M1CheckCardPin(desk.port(), "", 9600, kWait, kBlock, "A", key);
    records.push_back({"IC_M1CheckCardPin", result, {}});
    result = IC_M1ReadCard(desk.port(), "", 9600, kWait, kBlock, block.bytes());
    records.push_back({"IC_M1ReadCard", result, {block.hex(ICC_M1_BLOCK_SIZE)}});
    result = IC_M1WriteCard(desk.port(), "", 9600, kWait, kBlock, block.bytes());
    records.push_back({"IC_M1WriteCard", result, {}});
    records.push_back({"IC_M1PowerOff", IC_M1PowerOff(desk.port(), "", 9600, kWait), {}});
    return records;
}

std::vector<CallRecord> wallet(SimulatedDesk& desk)
{
    Output context(ICC_CONTEXT_ID_CAPACITY);
    Output mode(ICC_WALLET_TEXT_CAPACITY);
    Output aid(ICC_WALLET_TEXT_CAPACITY);
    const int result = IC_GetZzhHardWalletInfo(desk.port(), "", 9600, kWait, context.text(), mode.text(), aid.text());
    return {{"IC_GetZzhHardWalletInfo", result, {written(context), written(mode), written(aid)}}};
}

std::vector<CallRecord> device(SimulatedDesk& desk)
{
    Output version(ICC_DEVICE_TEXT_CAPACITY);
    Output date(1);
    Output serial(1);
    const int result = GetDevInfo(desk.port(), version.text(), date.text(), serial.text());
    return {{"GetDevInfo", result, {written(version)}}};
}

// Letter, three digits, so many characters: the fields of a card's data by their letters.
std::map<char, std::string> fieldsOf(const std::string& record)
{
    std::map<char, std::string> fields;
    for (std::size_t at = 0; at + 4 <= record.size();) {
        const std::size_t size = std::stoul(record.substr(at + 1, 3));
        fields[record[at]] = record.substr(at + 4, size);
        at += 4 + size;
    }
    return fields;
}

// A text for the issuer without account number, its sequence number and the last online counter: what could not be
// read is left out, and the issuer refuses. Each is looked for by what the profile's card holds.
std::string withoutAccount(const std::string& arqc)
{
    static const std::regex account("5A0A[0-9]{19}F|5F3401[0-9]{2}|9F1302[0-9A-F]{4}");
    return std::regex_replace(arqc, account, "");
}

// A log without its merchant names: one that cannot be converted is empty.
std::string withoutNames(const std::string& detail)
{
    static const std::regex name("W\\d{3}.*?X004");
    return std::regex_replace(detail, name, "WX");
}

bool fieldsMayLack(const std::string& undisturbed, const std::string& record)
{
    const auto whole = fieldsOf(undisturbed);
    for (const auto& [letter, text] : fieldsOf(record)) {
        if (!text.empty() && (whole.count(letter) == 0 || whole.at(letter) != text)) {
            return false;
        }
    }
    return true;
}

} // namespace

std::string toText(const CallRecord& record)
{
    std::string text = record.call + " " + std::to_string(record.result);
    for (const std::string& output : record.texts) {
        text += " [" + output.substr(0, 400) + "]";
    }
    return text;
}

bool saysNoMoreThan(const CallRecord& undisturbed, const CallRecord& record)
{
    if (record.result != VORN_OK || record == undisturbed) {
        return true;
    }
    const std::string& text = record.texts.empty() ? record.call : record.texts[0];
    if (record.call == "IC_GetInfo") {
        return fieldsMayLack(undisturbed.texts[0], text);
    }
    if (record.call == "IC_GetTranDeta") {
        const std::string left = withoutNames(text);
        return withoutNames(undisturbed.texts[0]).compare(0, left.size(), left) == 0;
    }
    if (record.call == "IC_GenARQC") {
        return withoutAccount(undisturbed.texts[0]) == withoutAccount(text);
    }
    if (record.call == "IC_CtlScriptData") {
        return text.empty() || withoutAccount(undisturbed.texts[0]) == withoutAccount(text); // or declined
    }
    return record.call == "IC_SendAPDU" && text.empty();
}

const std::set<int>& documentedResults(const std::string& call)
{
    static const std::set<int> memory{0, -1, -3, -9, -10, -11};
    static const std::map<std::string, std::set<int>> table = {
        {"IC_PowerOn", {0, -1, -2, -3, -9, -11, -25}},
        {"IC_SendAPDU", {0, -1, -3, -9, -10, -11}},
        {"IC_PowerOff", {0, -1, -3}},
        {"IC_GetInfo", {0, -1, -2, -3, -11, -25, -26, -27, -28}},
        {"IC_GetTranDeta", {0, -1, -2, -3, -11, -25, -26, -27, -32}},
        {"IC_GenARQC", {0, -1, -2, -3, -11, -25, -26, -27, -28, -29}},
        {"IC_CtlScriptData", {0, -1, -2, -3, -4, -30, -31}},
        {"IC_M1ActiveCard", memory},
        {"IC_M1CheckCardPin", memory},
        {"IC_M1ReadCard", memory},
        {"IC_M1WriteCard", memory},
        {"IC_M1PowerOff", {0, -3}},
        {"IC_GetZzhHardWalletInfo", {0, -2, -3, -11, -25, -26, -27, -32}},
        {"GetDevInfo", {0, -3, -11}},
    };
    return table.at(call);
}

const std::vector<Errand>& errands()
{
    static const std::vector<Errand> all = {
        {"raw access", "debit", rawAccess},
        {"card information", "debit", information},
        {"transaction log", "debit", transactionLog},
        {"sale", "debit", sale},
        {"psams", "psam", psams},
        {"memory card", "memory", memoryCard},
        {"wallet", "wallet", wallet},
        {"device", "debit", device},
    };
    return all;
}

SimulatedDesk::SimulatedDesk(std::string port, const std::string& profile)
    : SimulatedDesk(std::move(port), sim::findProfile(profile))
{}

SimulatedDesk::SimulatedDesk(std::string port, const sim::Profile& profile) : port_(std::move(port))
{
    sim::load(profile, reader_);
    issuer_ = sim::issuerOf(profile);
}

} // namespace vorn::test
