// SPDX-License-Identifier: Apache-2.0
// The page of a run: one file that needs nothing else.
#include "tools/explain/page.h"

#include "tools/accept/report.h"

#include <algorithm>

namespace vorn::tool::accept {

namespace {

const char* const kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; img-src data:">
<meta name="viewport" content="width=device-width">
<link rel="icon" href="data:,">
<style>
body { margin: 0 auto; padding: 1em 1.5em; max-width: 68em; background: #fff; color: #1c2328; font: 15px/1.4 sans-serif; }
h1 { margin: 0 0 .3em; font-size: 1.35em; }
h2 { margin: 1.2em 0 .3em; font-size: 1.05em; }
h2 small { color: #42525c; font-weight: normal; }
.about { color: #42525c; }
#verdict { padding: .5em .8em; border-radius: .4em; background: #e3f1e7; }
#verdict.differs, .problem { background: #fdecec; color: #a4161a; }
#verdict ul { margin: .3em 0 0; padding-left: 1.2em; }
table { border-collapse: collapse; width: 100%; }
td, th { padding: .15em .6em .15em 0; border-bottom: 1px solid #e1e6ea; text-align: left; vertical-align: top; }
th { color: #42525c; font-weight: normal; }
td:first-child { width: 46%; }
.value { font: 13px/1.5 monospace; overflow-wrap: anywhere; width: 27%; }
.differs .value:nth-child(2) { color: #a4161a; font-weight: bold; }
.differs td:first-child::before { content: "\2260\00a0"; color: #a4161a; font-weight: bold; }
svg text { font: 12px sans-serif; fill: #1c2328; }
.unit { fill: #5b8fb0; }
.unit.other { fill: #a4161a; }
.plain { stroke: #1c2328; stroke-width: 2; }
.axis { stroke: #c4ccd2; }
</style>
)";

std::string cell(const std::string& text) { return "<td class=\"value\">" + escaped(text) + "</td>"; }

std::string plainText(const Acceptance& run, const sim::ObservationName& about)
{
    const Json* const plain = run.plain(about);
    return about.told || plain == nullptr ? "" : valueText(about, *plain);
}

void writeVerdict(const Acceptance& run, const Write& write)
{
    const std::size_t count = run.differences();
    if (count == 0) {
        write("<p id=\"verdict\">Nothing differs from what the simulator does.</p>\n");
        return;
    }
    write("<div id=\"verdict\" class=\"differs\">" + std::to_string(count) +
          (count == 1 ? " observation differs" : " observations differ") + " from what the simulator does:<ul>\n");
    for (const Finding& finding : run.unit().all()) {
        if (run.differs(*finding.about)) {
            write("<li>" +
                  escaped(std::string(finding.about->title) + ": " + valueText(*finding.about, finding.value) +
                          " (simulator: " + plainText(run, *finding.about) + ")") +
                  "</li>\n");
        }
    }
    write("</ul></div>\n");
}

void writeStep(const Acceptance& run, const StepResult& result, const Write& write)
{
    write("<h2 id=\"" + escaped(result.step->name) + "\">" + escaped(result.step->name) + " <small>" +
          escaped(result.step->announces) + "</small></h2>\n");
    if (result.end == StepResult::End::Failed) {
        write("<p class=\"problem\">failed: " + escaped(result.why) + "</p>\n");
    }
    if (result.seen.empty()) {
        return;
    }
    write("<table><tr><th></th><th>this reader</th><th>simulator</th></tr>\n");
    for (const sim::ObservationName* const about : result.seen) {
        write(std::string("<tr") + (run.differs(*about) ? " class=\"differs\"" : "") + "><td>" + escaped(about->title) +
              "</td>" + cell(valueText(*about, *run.unit().find(about->name))) + cell(plainText(run, *about)) +
              "</tr>\n");
    }
    write("</table>\n");
}

// A bar for each time, with a mark where the simulator's lies.
void writeTimes(const Acceptance& run, const Write& write)
{
    constexpr int kRow = 22, kLeft = 330, kWidth = 520;
    std::vector<const Finding*> times;
    long most = 100; // a few milliseconds are to look like a few
    for (const Finding& finding : run.unit().all()) {
        if (finding.about->kind == sim::ObservationKind::Time) {
            times.push_back(&finding);
            const Json* const plain = run.plain(*finding.about);
            most = std::max({most, finding.value.get<long>(), plain == nullptr ? 0 : plain->get<long>()});
        }
    }
    if (times.empty()) {
        return;
    }
    const auto at = [most](long time) { return std::to_string(kLeft + time * kWidth / most); };
    const std::string height = std::to_string(kRow * static_cast<int>(times.size() + 1));
    write("<h2>Times <small>bars: this reader; line: the simulator</small></h2>\n<svg width=\"960\" height=\"" +
          height + "\" role=\"img\">\n<line class=\"axis\" x1=\"" + at(0) + "\" y1=\"0\" x2=\"" + at(0) + "\" y2=\"" +
          height + "\"/>\n");
    int y = 4;
    for (const Finding* const one : times) {
        const long time = one->value.get<long>();
        const std::string top = std::to_string(y), base = std::to_string(y + 12), end = std::to_string(y + 14);
        write("<text x=\"0\" y=\"" + base + "\">" + escaped(one->about->title) + "</text><rect class=\"unit" +
              (run.differs(*one->about) ? " other" : "") + "\" x=\"" + at(0) + "\" y=\"" + top + "\" width=\"" +
              std::to_string(std::max(1L, time * kWidth / most)) + "\" height=\"14\"/>");
        if (const Json* const plain = run.plain(*one->about)) {
            const std::string x = at(plain->get<long>());
            write("<line class=\"plain\" x1=\"" + x + "\" y1=\"" + top + "\" x2=\"" + x + "\" y2=\"" + end + "\"/>");
        }
        write("<text x=\"" + std::to_string(kLeft + time * kWidth / most + 8) + "\" y=\"" + base + "\">" +
              std::to_string(time) + " ms</text>\n");
        y += kRow;
    }
    write("</svg>\n");
}

} // namespace

void writePage(const Acceptance& acceptance, const Circumstances& circumstances, const Write& write)
{
    const std::string title = "Acceptance of the " + circumstances.reader;
    write(kHead + ("<title>" + escaped(title)) + "</title>\n</head>\n<body>\n<h1>" + escaped(title) + "</h1>\n");
    write("<p class=\"about\">" +
          escaped(circumstances.date + ", vorn " + circumstances.tool + ", library " + circumstances.library) +
          "</p>\n");
    if (!circumstances.problem.empty()) {
        write("<p class=\"problem\">The run ended early: " + escaped(circumstances.problem) + "</p>\n");
    }
    writeVerdict(acceptance, write);
    writeTimes(acceptance, write);
    std::string skipped;
    for (const StepResult& result : acceptance.results()) {
        if (result.end == StepResult::End::Skipped) {
            skipped += (skipped.empty() ? "" : ", ") + std::string(result.step->name) + " (" + result.why + ")";
        } else {
            writeStep(acceptance, result, write);
        }
    }
    if (!skipped.empty()) {
        write("<p class=\"about\">Skipped: " + escaped(skipped) + "</p>\n");
    }
    write("</body>\n</html>\n");
}

} // namespace vorn::tool::accept
