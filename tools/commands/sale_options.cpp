// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/sale_options.h"

#include "sim/data/digits.h"
#include "tools/cli/arguments.h"
#include "tools/cli/quote.h"
#include "tools/commands/link_options.h"
#include "tools/explain/hex.h"
#include "tools/explain/present.h"

#include "vorn/convert.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

namespace vorn::tool {

namespace {

constexpr std::size_t kAmountDigits = 12;
constexpr std::size_t kMerchantSize = 20;

std::string item(char key, const std::string& hex)
{
    if (hex.empty()) {
        return {};
    }
    char header[8];
    std::snprintf(header, sizeof header, "%c%03u", key, static_cast<unsigned>(hex.size() % 1000));
    return header + hex;
}

// "12.34" in a currency's main unit as twelve digits of its smallest one.
std::string amountDigits(const std::string& text, std::size_t decimals)
{
    const std::size_t point = std::min(text.find('.'), text.size());
    const std::string whole = text.substr(0, point);
    std::string part = point == text.size() ? "" : text.substr(point + 1);
    const bool good = sim::isDigits(whole) && (point == text.size() || sim::isDigits(part)) && part.size() <= decimals;
    part.append(decimals - std::min(decimals, part.size()), '0');
    const std::string all = whole + part;
    const std::string value = all.substr(std::min(all.find_first_not_of('0'), all.size()));
    if (!good || value.size() > kAmountDigits) {
        throw Failure(Exit::Usage, inQuotes(text) + " is not an amount",
                      "for example 12.34, with at most " + std::to_string(decimals) + " decimals in this currency");
    }
    return std::string(kAmountDigits - value.size(), '0') + value;
}

std::string withoutSeparators(std::string text)
{
    text.erase(std::remove_if(text.begin(), text.end(), [](char c) { return c == '-' || c == ':'; }), text.end());
    return text;
}

struct Now {
    std::string date; // YYYYMMDD
    std::string time; // HHMMSS
};

Now now()
{
    const std::time_t seconds = std::time(nullptr);
    std::tm local{};
    localtime_r(&seconds, &local);
    std::array<char, 16> date{};
    std::array<char, 16> time{};
    std::strftime(date.data(), date.size(), "%Y%m%d", &local);
    std::strftime(time.data(), time.size(), "%H%M%S", &local);
    return {date.data(), time.data()};
}

std::string dateDigits(const std::string& text)
{
    std::string date = text.empty() ? now().date : withoutSeparators(text);
    if (date.size() == 8) {
        date.erase(0, 2);
    }
    if (dateText(date) == date) {
        throw Failure(Exit::Usage, inQuotes(text) + " is not a date", "for example 2026-03-15");
    }
    return date;
}

std::string timeDigits(const std::string& text)
{
    const std::string time = text.empty() ? now().time : withoutSeparators(text);
    if (time.size() != 6 || !sim::isDigits(time) || time.substr(0, 2) > "23" || time.substr(2, 2) > "59" ||
        time.substr(4) > "59") {
        throw Failure(Exit::Usage, inQuotes(text) + " is not a time", "for example 14:30:00");
    }
    return time;
}

// Three or four digits, or the letters of a currency that is known.
std::string codeDigits(const std::string& text)
{
    std::string code = currencyCode(text);
    if (code.size() == 3) {
        code.insert(0, "0");
    }
    if (code.size() != 4 || !sim::isDigits(code)) {
        throw Failure(Exit::Usage, inQuotes(text) + " is not a currency or country code", "for example 0156 or CNY");
    }
    return code;
}

// Padded with blanks, as cards and terminals do.
std::string merchantHex(const std::string& utf8)
{
    if (utf8.empty()) {
        return {};
    }
    const bool ascii = plainAscii(utf8);
    std::vector<char> gbk(utf8.begin(), utf8.end());
    gbk.resize(utf8.size() + 8);
    if (!ascii && !gbkConverts()) {
        throw Failure(Exit::Usage, "the merchant's name cannot be written in GBK: this system has no conversion to it",
                      "give the name in ASCII, or install the C library's module GBK (vorn doctor)");
    }
    if (!ascii && Utf8ToGbk(utf8.data(), utf8.size(), gbk.data(), gbk.size()) != 0) {
        throw Failure(Exit::Usage, "the merchant's name cannot be written in GBK");
    }
    std::string name = gbk.data();
    if (name.size() > kMerchantSize) {
        throw Failure(Exit::Usage, "the merchant's name is longer than 20 bytes in GBK");
    }
    name.resize(kMerchantSize, ' ');
    return toHex(Bytes(name.begin(), name.end()));
}

} // namespace

void addSaleOptions(CLI::App& command, SaleOptions& options)
{
    const char* const group = "Transaction";
    command.add_option("--amount", options.amount, "Amount, for example 12.34 (1.00 with --sim)")->group(group);
    command.add_option("--other", options.other, "Cash part of the amount")->capture_default_str()->group(group);
    command.add_option("--date", options.date, "Date, for example 2026-03-15 (today)")->group(group);
    command.add_option("--time", options.time, "Time, for example 14:30:00 (now)")->group(group);
    command.add_option("--currency", options.currency, "Currency")->capture_default_str()->group(group);
    command.add_option("--country", options.country, "Terminal's country")->capture_default_str()->group(group);
    command.add_option("--type", options.type, "Transaction type")
        ->check(hexArgumentOf(1))
        ->capture_default_str()
        ->group(group);
    command.add_option("--unpredictable", options.unpredictable, "Unpredictable number (random)")
        ->check(hexArgumentOf(4))
        ->group(group);
    command.add_option("--ttq", options.qualifiers, "Terminal transaction qualifiers")
        ->check(hexArgumentOf(4))
        ->group(group);
    command.add_option("--ec-limit", options.cashLimit, "Electronic cash limit of the terminal")->group(group);
    command.add_option("--merchant", options.merchant, "Merchant's name, in GBK at most 20 bytes")->group(group);
    command.add_option("--tx-data", options.more, "More of the library's lettered text, taken as it stands")
        ->group(group);
    command.add_option("--aid", options.aid, "Application identifier, or the beginning of one, in hex")
        ->check(hexArgument(127));
    addInterfaceOptions(command, options.cardInterface);

    const char* const host = "Issuer";
    CLI::Option* const answer =
        command.add_option("--arpc", options.answer, "The host's answer in hex: 91, and 71 or 72")
            ->check(hexArgument(2000))
            ->group(host);
    CLI::Option* const ask =
        command.add_flag("--ask", options.ask, "Read the host's answer from standard input (default with --port)")
            ->group(host);
    CLI::Option* const wrong =
        command.add_flag("--wrong-issuer-key", options.wrongIssuerKey, "The simulated issuer uses a wrong key")
            ->group(host);
    CLI::Option* const profile = command
                                     .add_option("--simulated-issuer-on-real-card", options.issuerProfile,
                                                 "This profile's issuer answers to the card at --port: the answer and "
                                                 "its scripts are made up")
                                     ->type_name("PROFILE")
                                     ->group(host);
    answer->excludes(ask)->excludes(wrong)->excludes(profile);
    ask->excludes(wrong)->excludes(profile);
    command.add_flag("--json", options.json, "Print JSON");
    command.add_flag("--show", options.link.show, "Do not mask account numbers");
}

namespace {

// Somebody's own card must not be asked for an amount that nobody named.
std::string amountOf(const SaleOptions& options)
{
    if (options.amount.empty() && !options.link.port.empty()) {
        throw Failure(Exit::Usage, "no amount named", "a sale on a real reader needs --amount, for example 12.34");
    }
    return options.amount.empty() ? "1.00" : options.amount;
}

std::string randomNumber()
{
    Bytes number(4);
    if (::getrandom(number.data(), number.size(), 0) != static_cast<ssize_t>(number.size())) {
        throw Failure(Exit::Internal, "the system gives no random numbers", "name one with --unpredictable");
    }
    return toHex(number);
}

} // namespace

std::string transactionText(const SaleOptions& options)
{
    const std::string currency = codeDigits(options.currency);
    const std::size_t decimals = currencyDecimals(currency);
    return item('P', amountDigits(amountOf(options), decimals)) + item('Q', amountDigits(options.other, decimals)) +
           item('R', currency) + item('J', codeDigits(options.country)) + item('S', dateDigits(options.date)) +
           item('U', timeDigits(options.time)) + item('T', options.type) +
           item('K', options.unpredictable.empty() ? randomNumber() : options.unpredictable) +
           item('M', options.qualifiers) +
           item('O', options.cashLimit.empty() ? "" : amountDigits(options.cashLimit, decimals)) +
           item('V', merchantHex(options.merchant)) + options.more;
}

} // namespace vorn::tool
