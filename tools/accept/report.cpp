// SPDX-License-Identifier: Apache-2.0
#include "tools/accept/report.h"

namespace vorn::tool::accept {

namespace {

const char* nameOf(StepResult::End end)
{
    switch (end) {
    case StepResult::End::Done:
        return "done";
    case StepResult::End::Skipped:
        return "skipped";
    case StepResult::End::Failed:
        break;
    }
    return "failed";
}

const char* nameOf(sim::ObservationKind kind)
{
    switch (kind) {
    case sim::ObservationKind::Word:
        return "word";
    case sim::ObservationKind::Reply:
        return "reply";
    case sim::ObservationKind::Number:
        return "number";
    case sim::ObservationKind::Time:
        return "milliseconds";
    case sim::ObservationKind::Hex:
        return "hex";
    case sim::ObservationKind::Text:
        break;
    }
    return "text";
}

} // namespace

std::string valueText(const sim::ObservationName& about, const Json& value)
{
    if (!value.is_string()) {
        return value.dump() + (about.kind == sim::ObservationKind::Time ? " ms" : "");
    }
    const std::string text = value.get<std::string>();
    const bool status = about.kind == sim::ObservationKind::Reply && text.size() == 2;
    return status ? "status " + text : text.empty() ? "(empty)" : text;
}

Json reportOf(const Acceptance& acceptance, const Circumstances& circumstances)
{
    Json steps = Json::array();
    for (const StepResult& result : acceptance.results()) {
        steps.push_back({{"name", result.step->name},
                         {"end", nameOf(result.end)},
                         {"why", result.why},
                         {"milliseconds", result.took.count()}});
    }
    Json observations = Json::object();
    for (const Finding& finding : acceptance.unit().all()) {
        const Json* const plain = acceptance.plain(*finding.about);
        observations[finding.about->name] = {{"title", finding.about->title},
                                             {"kind", nameOf(finding.about->kind)},
                                             {"value", finding.value},
                                             {"simulator", plain == nullptr || finding.about->told ? Json() : *plain},
                                             {"differs", acceptance.differs(*finding.about)}};
    }
    return {
        {"format", sim::kReportFormat},     {"version", sim::kReportVersion},          {"reader", circumstances.reader},
        {"tool", circumstances.tool},       {"library", circumstances.library},        {"date", circumstances.date},
        {"problem", circumstances.problem}, {"differences", acceptance.differences()}, {"steps", steps},
        {"observations", observations}};
}

} // namespace vorn::tool::accept
