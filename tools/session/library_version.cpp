// SPDX-License-Identifier: Apache-2.0
// The library tells its version only together with a reader's. It is asked for a port that is not there.
#include "tools/session/library_version.h"

#include "tools/session/call_runner.h"
#include "tools/session/log_directory.h"

#include "ICC_COMM_VORN.h"

#include <nlohmann/json.hpp>

namespace vorn::tool {

namespace {

struct DescribeCall {
    char text[ICC_DEVICE_JSON_CAPACITY] = {};
    int length = 0;
};

int describe(DescribeCall& call) { return DEV_CommCall(R"({"RequestPort": "254"})", nullptr, call.text, &call.length); }

} // namespace

std::string libraryVersion()
{
    const LogDirectory logs("", false);
    CallRunner runner(logs.path());
    DescribeCall call;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    const auto late = [end] { return std::chrono::steady_clock::now() > end; };
    if (runner.run(describe, call, late) != CallRunner::End::Returned) {
        return "unknown";
    }
    const auto document = nlohmann::json::parse(call.text, nullptr, false);
    const auto version = document.find("DllVersion");
    return version != document.end() && version->is_string() ? version->get<std::string>() : "unknown";
}

} // namespace vorn::tool
