// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/errors.h"

#include "tools/explain/status_words.h"
#include "tools/session/port_name.h"

#include "vorn/result.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace vorn::tool {

namespace {

struct Row {
    Call call;
    int result;
    Exit exitCode;
    const char* message;
    const char* hint;
};

// The rows of a certain call stand before those of any call.
const Row kRows[] = {
    {Call::FirstHalf, VORN_NO_CARD_IN_TIME, Exit::CardRefused,
     "the card gave no ARQC, or has no list of data for it (8C, 8D)",
     "the steps above show what the card answered; a card that answers with an AAC has refused the transaction"},
    {Call::FirstHalf, VORN_BAD_ARGUMENT, Exit::DataMissing,
     "the card's list of data for the ARQC (8C) cannot be filled",
     "the card is personalised wrongly; read it with 'vorn apdu'"},
    {Call::SecondHalf, VORN_NO_CARD_IN_TIME, Exit::CardRefused, "the card gave no TC, or the issuer's answer was empty",
     "the steps above show what the card answered to the second GENERATE AC"},
    {Call::SecondHalf, VORN_BAD_ARGUMENT, Exit::DataMissing, "the state of the transaction cannot be used",
     "begin a new transaction"},
    {Call::SecondHalf, VORN_READER_NO_CARD, Exit::NoCard, "the card was taken away",
     "leave the card in the reader until the transaction is done"},
    {Call::Wallet, VORN_SELECT_FAILED, Exit::CardRefused, "the wallet refused its information command",
     "see what it answers: vorn apdu 00A4040006A00000087250 8022000300"},
    {Call::Wallet, VORN_NO_APPLICATION, Exit::NoApplication, "no wallet application on this card",
     "is it a hard wallet? 'vorn info' reads debit and credit cards"},
    {Call::Memory, VORN_READER_NO_CARD, Exit::NoCard, "no memory card in the field",
     "hold the card still on the reader's antenna"},
    {Call::Memory, VORN_READER_REFUSED, Exit::NoAccess, "the reader refused the memory card command",
     "the key may be wrong, or the sector's access conditions do not allow this"},
    {Call::Device, VORN_NO_REPLY, Exit::ReaderSilent, "the reader did not tell its version",
     "over USB the version cannot be asked for; on a tty check cable, power and that the right tty is named"},

    {Call::Any, VORN_BAD_ARGUMENT, Exit::Internal, "the library refused an argument", "please report this"},
    {Call::Any, VORN_NO_CARD_IN_TIME, Exit::NoCard, "no card in time",
     "insert the card chip first, or hold it on the antenna; --wait gives more time"},
    {Call::Any, VORN_READER_NO_CARD, Exit::NoCard, "no card in the reader",
     "insert the card chip first, or hold it on the antenna; --wait gives more time"},
    {Call::Any, VORN_READER_REFUSED, Exit::ReaderRefused, "the reader refused the command",
     "take the card out, put it back and try again"},
    {Call::Any, VORN_NO_REPLY, Exit::ReaderSilent, "the reader does not answer",
     "check cable and power, and that the right tty is named; 'vorn device' asks the reader alone"},
    {Call::Any, VORN_STATE_MISSING, Exit::Internal, "no room was given for the transaction's state",
     "please report this"},
    {Call::Any, VORN_NO_ISSUER_AUTH, Exit::DataMissing, "the issuer's answer lacks the authentication data (91)",
     "the answer must hold 91 with ten bytes: eight of the ARPC and two characters of the response code"},
    {Call::Any, VORN_POWER_ON_REFUSED, Exit::CardMute, "there is a card, but it does not answer",
     "is it the right way round? Clean the chip, or try another card"},
    {Call::Any, VORN_NO_APPLICATION, Exit::NoApplication, "no application found on the card",
     "the card has no directory 1PAY.SYS.DDF01; name an application with --aid"},
    {Call::Any, VORN_SELECT_FAILED, Exit::NoApplication, "the card's application could not be selected",
     "the application may be blocked; name another one with --aid"},
    {Call::Any, VORN_GPO_FAILED, Exit::CardRefused, "the card refused to begin (GET PROCESSING OPTIONS)",
     "the application may be blocked, or not made for this use"},
    {Call::Any, VORN_FIRST_AC_FAILED, Exit::CardRefused, "the card refused the first GENERATE AC",
     "the steps above show the status word"},
    {Call::Any, VORN_SECOND_AC_FAILED, Exit::CardRefused,
     "the card refused to complete the transaction (second GENERATE AC)",
     "as a rule the issuer's answer was not accepted"},
    {Call::Any, VORN_SCRIPT_FAILED, Exit::ScriptFailed, "a command of the issuer script failed",
     "the transaction itself is complete; the script result names the command"},
    {Call::Any, VORN_OBJECT_MISSING, Exit::DataMissing, "the card lacks a data object that is needed",
     "this card does not support it"},
};

} // namespace

Failure::Failure(Exit exitCode, std::string message, std::string hint)
    : exitCode_(exitCode), message_(std::move(message)), hint_(std::move(hint))
{}

const std::vector<ExitMeaning>& exitMeanings()
{
    static const std::vector<ExitMeaning> meanings = {
        {Exit::Ok, "done"},
        {Exit::Internal, "something that should not happen"},
        {Exit::Usage, "wrong options or arguments"},
        {Exit::Port, "no such port, not a tty, or not opened"},
        {Exit::Permission, "no permission for the port"},
        {Exit::NoCard, "no card in time"},
        {Exit::ReaderSilent, "the reader does not answer"},
        {Exit::ReaderRefused, "the reader refused a command"},
        {Exit::CardMute, "the card does not answer to power"},
        {Exit::NoApplication, "no application on the card"},
        {Exit::CardRefused, "the card refused a command or the transaction"},
        {Exit::DataMissing, "the card, the host's answer or the pasted text lacks something"},
        {Exit::Declined, "the issuer declined"},
        {Exit::Unverified, "a cryptogram, or a certificate, is not right"},
        {Exit::ScriptFailed, "a command of the issuer's script failed"},
        {Exit::NoAccess, "memory card: key or access refused, or a part not readable"},
        {Exit::Unconfirmed, "a dangerous request was not confirmed"},
        {Exit::Profile, "a profile could not be used"},
        {Exit::Output, "the result or the log directory could not be written"},
        {Exit::CardGone, "the card was taken away"},
        {Exit::WrongDevice, "what answers at the port is no reader"},
        {Exit::Unknown, "it is not known whether the card completed the transaction"},
        {Exit::Referral, "the issuer wants to be called before it approves"},
        {Exit::PortBusy, "another program uses the port"},
        {Exit::TooLong, "a call did not come to its end in time"},
        {Exit::LineDisturbed, "replies of the reader came damaged"},
        {Exit::Findings, "a check found something to mend"},
        {Exit::Differs, "the reader differs from the simulated one"},
        {Exit::Interrupted, "ended by Ctrl-C or another signal"},
    };
    return meanings;
}

nlohmann::ordered_json errorDocument(const Failure& failure)
{
    const auto library = failure.library();
    return {{"code", static_cast<int>(failure.exitCode())},
            {"library", library ? nlohmann::ordered_json(*library) : nlohmann::ordered_json()},
            {"message", failure.what()},
            {"hint", failure.hint()}};
}

namespace {

Failure meaningOf(int result, Call call, const std::string& port)
{
    if (result == VORN_OPEN_FAILED) {
        return portFailure(port);
    }
    if (result > 0) {
        return {Exit::CardRefused, "the card answered " + statusText(static_cast<unsigned>(result))};
    }
    for (const Row& row : kRows) {
        if (row.result == result && (row.call == call || row.call == Call::Any)) {
            return {row.exitCode, row.message, row.hint};
        }
    }
    return {Exit::Internal, "unexpected result " + std::to_string(result), "please report this"};
}

} // namespace

Failure failureOf(int result, Call call, const std::string& port)
{
    return meaningOf(result, call, port).fromLibrary(result);
}

} // namespace vorn::tool
