// SPDX-License-Identifier: Apache-2.0
#include "sim/data/json_text.h"

#include "sim/data/profile_error.h"

#include <nlohmann/json.hpp>

#include <functional>

namespace vorn::sim {
namespace {

using nlohmann::json;

constexpr std::size_t kComplaintMax = 300; // characters of what the parser has to say

// Counts along while the text is read, and stops it at a bound.
class Bounds {
public:
    explicit Bounds(const std::string& path) : path_(path) {}

    bool operator()(int depth, json::parse_event_t event, const json& value)
    {
        using Event = json::parse_event_t;
        const bool begins = event == Event::object_start || event == Event::array_start;
        if (begins && depth >= kJsonDepthMax) {
            throw ProfileError(path_ + ": nested deeper than " + std::to_string(kJsonDepthMax) + " levels");
        }
        if (event == Event::key && value.get_ref<const std::string&>().size() > kJsonNameMax) {
            throw ProfileError(path_ + ": a member's name of more than " + std::to_string(kJsonNameMax) + " bytes");
        }
        if ((begins || event == Event::value) && ++values_ > kJsonValuesMax) {
            throw ProfileError(path_ + ": more than " + std::to_string(kJsonValuesMax) + " values");
        }
        return true;
    }

private:
    const std::string& path_;
    std::size_t values_ = 0;
};

// The parser's text stands behind its own name for the mistake.
std::string said(const json::exception& error)
{
    const std::string text = error.what();
    const std::size_t name = text.find("] ");
    return printable(name == std::string::npos ? text : text.substr(name + 2), kComplaintMax);
}

} // namespace

json parseJson(const std::string& text, const std::string& path)
{
    if (text.size() > kJsonSizeMax) {
        throw ProfileError(path + ": longer than " + std::to_string(kJsonSizeMax) + " bytes");
    }
    try {
        Bounds bounds(path);
        return json::parse(text, std::ref(bounds));
    } catch (const json::parse_error& error) {
        throw ProfileError(path + ": no JSON: " + said(error)); // with line and column
    } catch (const json::out_of_range& error) {
        throw ProfileError(path + ": a number that is too large: " + said(error));
    }
}

} // namespace vorn::sim
