// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/log_entries.h"

#include <algorithm>

namespace vorn::tool {

namespace {

// Where an entry ends, when not at the end of its line.
enum class End { Line, Name, Bang, Number };

struct Row {
    const char* begins;
    const char* name;
    EntryKind kind;
    End end;
};

const Row kRows[] = {
    {"begin func IC_GetInfo(", "IC_GetInfo", EntryKind::Call, End::Line},
    {"IC_GenARQC nPortNo:", "IC_GenARQC", EntryKind::Call, End::Line},
    {"IC_CtlScriptData nPortNo:", "IC_CtlScriptData", EntryKind::Call, End::Line},
    {"IC_GetTranDeta nPortNo:", "IC_GetTranDeta", EntryKind::Call, End::Line},
    {"IC_GetZzhHardWalletInfo nPortNo:", "IC_GetZzhHardWalletInfo", EntryKind::Call, End::Line},
    {"IC_PowerOn nPortNo:", "IC_PowerOn", EntryKind::Call, End::Line},
    {"IC_PowerOff nPortNo:", "IC_PowerOff", EntryKind::Call, End::Line},
    {"IC_SendAPDU nPortNo:", "IC_SendAPDU", EntryKind::Call, End::Line},
    {"IC_OpenPort", "IC_OpenPort", EntryKind::Call, End::Line},
    {"IC_ClosePort", "IC_ClosePort", EntryKind::Call, End::Line},
    {"IC_M1ActiveCard start!", "IC_M1ActiveCard", EntryKind::Call, End::Name},
    {"IC_M1CheckCardPin start!", "IC_M1CheckCardPin", EntryKind::Call, End::Name},
    {"IC_M1ReadCard start!", "IC_M1ReadCard", EntryKind::Call, End::Name},
    {"IC_M1WriteCard start!", "IC_M1WriteCard", EntryKind::Call, End::Name},
    {"IC_M1PowerOff start!", "IC_M1PowerOff", EntryKind::Call, End::Name},
    {"DEV_CommCall", "DEV_CommCall", EntryKind::Call, End::Name},
    {"pnUsrInfoLen:", "pnUsrInfoLen", EntryKind::Result, End::Line},
    {"pnARQCLen:", "pnARQCLen", EntryKind::Result, End::Line},
    {"pszARQC:", "pszARQC", EntryKind::Result, End::Line},
    {"icc_tempappdata:", "icc_tempappdata", EntryKind::Result, End::Line},
    {"pnTCLen:", "pszTC", EntryKind::Result, End::Line},
    {"pszScriptResult:", "pszScriptResult", EntryKind::Result, End::Line},
    {"pnTxDetailLen:", "pnTxDetailLen", EntryKind::Result, End::Line},
    {"TxDetail:", "TxDetail", EntryKind::Result, End::Line},
    {"pszAID:", "pszAID", EntryKind::Result, End::Line},
    {"APDU:", "APDU", EntryKind::Other, End::Bang},
    {"recv:", "recv", EntryKind::Result, End::Bang},
    {"return OK!", "return OK", EntryKind::Result, End::Name},
    {"vr_openicc outtime!", "no card in time", EntryKind::Failure, End::Name},
    {"vr_openicc fail!return=", "card not powered", EntryKind::Failure, End::Number},
    {"vrdk_PseAppSelect fail!return=", "no application", EntryKind::Failure, End::Number},
    {"vrdk_FinalAppSelect fail!return=", "selection failed", EntryKind::Failure, End::Number},
    {"func IC_GetInfo return ", "IC_GetInfo returned", EntryKind::Failure, End::Number},
    {"param icc_tempappdata  is null!", "no state text", EntryKind::Failure, End::Name},
    {"[ICC/ICC_COMM_VORN:", "exit", EntryKind::Other, End::Number},
};

const Row* rowAt(const std::string& line, std::size_t at)
{
    const auto* const row = std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& r) {
        return line[at] == r.begins[0] && line.compare(at, std::char_traits<char>::length(r.begins), r.begins) == 0;
    });
    return row == std::end(kRows) ? nullptr : row;
}

// "5069]0", "-26", "4119]-1(-2)"
std::size_t endOfNumber(const std::string& line, std::size_t at)
{
    at = std::min(line.find_first_not_of("-0123456789", at), line.size());
    if (at < line.size() && line[at] == ']') {
        at = std::min(line.find_first_not_of("-0123456789", at + 1), line.size());
    }
    return line.compare(at, 4, "(-2)") == 0 ? at + 4 : at;
}

std::size_t endOf(const Row& row, const std::string& line, std::size_t at)
{
    switch (row.end) {
    case End::Line:
        return line.size();
    case End::Name:
        return at;
    case End::Bang:
        return std::min(line.find('!', at), line.size());
    case End::Number:
        return endOfNumber(line, at);
    }
    return at;
}

// Arguments are part of what a call's entry says about them.
std::string textOf(const Row& row, const std::string& line, std::size_t begin, std::size_t end)
{
    const bool arguments = row.kind == EntryKind::Call && row.end == End::Line;
    const std::string named = line.substr(begin, end - begin);
    const std::size_t first = named.find("nPortNo:");
    return arguments && first != std::string::npos
               ? named.substr(first)
               : named.substr(std::min(named.size(), std::char_traits<char>::length(row.begins)));
}

const char* const kArguments[] = {"nPortNo",  "extendPort",      "nBaudRate",  "nTimeout",
                                  "pnIcType", "pszAIDlist",      "pszTaglist", "pszTxData",
                                  "pszARPC",  "icc_tempappdata", "nCardType",  "nPSAMCardNo"};

} // namespace

std::vector<LogEntry> entriesOf(const std::string& line)
{
    std::vector<LogEntry> entries;
    std::string unknown;
    const auto flush = [&] {
        if (unknown.find_first_not_of(" \r!") != std::string::npos) {
            entries.push_back({EntryKind::Other, "", unknown});
        }
        unknown.clear();
    };
    for (std::size_t at = 0; at < line.size();) {
        const Row* const row = rowAt(line, at);
        if (row == nullptr) {
            unknown += line[at++];
            continue;
        }
        flush();
        const std::size_t end = endOf(*row, line, at + std::char_traits<char>::length(row->begins));
        entries.push_back({row->kind, row->name, textOf(*row, line, at, end)});
        at = end + (row->end == End::Bang && end < line.size() ? 1 : 0);
    }
    flush();
    return entries;
}

std::vector<std::pair<std::string, std::string>> argumentsOf(const std::string& text)
{
    std::vector<std::pair<std::string, std::string>> arguments;
    std::vector<std::pair<std::size_t, std::string>> begins;
    std::size_t from = 0;
    for (const char* const name : kArguments) {
        const std::string label = (from == 0 ? "" : ",") + std::string(name) + ":";
        const std::size_t at = text.find(label, from);
        if (at != std::string::npos) {
            begins.emplace_back(at, label);
            from = at + label.size();
        }
    }
    for (std::size_t i = 0; i < begins.size(); ++i) {
        const std::size_t at = begins[i].first + begins[i].second.size();
        const std::size_t end = i + 1 < begins.size() ? begins[i + 1].first : text.size();
        std::string name = begins[i].second.substr(begins[i].second[0] == ',' ? 1 : 0);
        name.pop_back();
        arguments.emplace_back(name, text.substr(at, end - at));
    }
    return arguments;
}

bool looksLikeServiceLog(const std::string& text)
{
    if (text.find("data----------------------") != std::string::npos) {
        return true;
    }
    return std::any_of(std::begin(kRows), std::end(kRows),
                       [&](const Row& row) {
                           return row.kind == EntryKind::Call && text.find(row.begins) != std::string::npos &&
                                  row.name[0] == 'I';
                       }) &&
           !looksLikeTraceFile(text);
}

bool looksLikeTraceFile(const std::string& text)
{
    return text.compare(0, 10, "----------") == 0 && text.find("Actual input is:") != std::string::npos;
}

} // namespace vorn::tool
