// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/log_calls.h"

#include <utility>

namespace vorn::tool {

LogCalls::LogCalls(bool show, Sink sink)
    : sink_(std::move(sink)),
      reader_({[this](const LoggedExchange& logged) { exchange(logged); },
               [this](const std::string& line, std::size_t) { text(line); }}),
      view_(show),
      call_(view_, 1)
{}

void LogCalls::end()
{
    reader_.end();
    finish();
}

void LogCalls::exchange(const LoggedExchange& logged)
{
    ++number_;
    if (exchanges_ >= kMostExchanges) {
        ++call_.left;
        return;
    }
    ++exchanges_;
    if (const ByteSpan apdu = logged.apdu(); !apdu.empty()) {
        view_.follow(apdu, logged.answer);
    } else if (logged.powersOn()) {
        view_.powerOn();
    }
    call_.parts.emplace_back(logged);
}

void LogCalls::text(const std::string& line)
{
    for (LogEntry& entry : entriesOf(line)) {
        if (entry.kind == EntryKind::Call) {
            finish();
        }
        call_.parts.emplace_back(std::move(entry));
    }
}

void LogCalls::finish()
{
    if (!call_.parts.empty()) {
        sink_(std::move(call_));
    }
    constexpr std::size_t usual = 32;
    call_ = LoggedCall(view_, number_ + 1);
    call_.parts.reserve(usual);
    exchanges_ = 0;
}

} // namespace vorn::tool
