// SPDX-License-Identifier: Apache-2.0
#include "tools/session/exchange_text.h"

#include "tools/explain/apdu_words.h"
#include "tools/explain/frame_view.h"
#include "tools/explain/hex.h"
#include "tools/explain/mask.h"
#include "tools/explain/status_words.h"
#include "tools/session/memory_layout.h"
#include "tools/session/verdict.h"

#include <algorithm>

namespace vorn::tool {

namespace {

struct ReplyWords {
    LineExchange::Reply reply;
    const char* words;
};
constexpr ReplyWords kReplyWords[] = {
    {LineExchange::Reply::Damaged, "a damaged frame"},
    {LineExchange::Reply::None, "no answer"},
    {LineExchange::Reply::Echo, "an echo of the command"},
    {LineExchange::Reply::Foreign, "bytes that are no frame"},
};

constexpr std::size_t kBlockAt = 2;
constexpr std::size_t kAuthenticateKeyAt = 4;
constexpr std::size_t kWriteDataAt = 3;

std::string hiddenFrom(const Bytes& command, std::size_t at)
{
    std::string text = toHex(command);
    text.replace(std::min(text.size(), 2 * at), std::string::npos, 2 * (command.size() - std::min(command.size(), at)),
                 '*');
    return text;
}

// Keys are in the commands that present and that write them.
std::string commandText(const LineExchange& exchange, bool show)
{
    const Bytes& command = exchange.command;
    if (const Bytes apdu = exchange.apdu(); !apdu.empty()) {
        return commandHex(apdu, show);
    }
    if (!show && exchange.of(Operation::Authenticate)) {
        return hiddenFrom(command, kAuthenticateKeyAt);
    }
    if (!show && exchange.of(Operation::WriteBlock) && command.size() > kBlockAt && isTrailer(command[kBlockAt])) {
        return hiddenFrom(command, kWriteDataAt);
    }
    return toHex(command);
}

std::string payloadText(const LineExchange& exchange, bool show)
{
    if (const Bytes apdu = exchange.apdu(); !apdu.empty()) {
        const ByteSpan data = dataOf(exchange.payload);
        const std::string hex = dataHex(apdu, data, show);
        return (data.empty() ? "" : hex + "  ") + statusText(statusOf(exchange.payload));
    }
    if (exchange.of(Operation::ReadBlock) && exchange.command.size() > kBlockAt) {
        return blockText(exchange.command[kBlockAt], exchange.payload, show);
    }
    return payloadHex(exchange.command, exchange.payload, show);
}

} // namespace

std::string exchangeText(const LineExchange& exchange, bool show)
{
    std::string answer;
    for (const ReplyWords& row : kReplyWords) {
        answer += row.reply == exchange.reply ? row.words : "";
    }
    if (exchange.reply == LineExchange::Reply::Whole) {
        answer = exchange.status == 0 ? payloadText(exchange, show)
                                      : "reader status " + toHex({static_cast<std::uint8_t>(exchange.status)});
    }
    return "> " + commandText(exchange, show) + "  " + exchangeName(exchange) + "\n< " +
           (answer.empty() ? "ok" : answer);
}

} // namespace vorn::tool
