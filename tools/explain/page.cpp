// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/page.h"

#include "tools/explain/present.h"

#include <algorithm>

namespace vorn::tool {

namespace {

// The line of exchanges is written last, when they are known, and shown first.
const char* const kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'; img-src data:">
<meta name="viewport" content="width=device-width">
<link rel="icon" href="data:,">
<style>
body { display: flex; flex-direction: column; margin: 0 auto; padding: 1em 1.5em; max-width: 72em; background: #fff;
  color: #1c2328; font: 15px/1.45 sans-serif; }
h1 { order: 1; margin: 0 0 .3em; font-size: 1.35em; }
#problem { order: 2; color: #a4161a; }
#line { order: 3; position: sticky; top: 0; padding: .5em 0; background: #fff; border-bottom: 1px solid #d5dade; }
#line a { display: inline-block; min-width: 1.6em; margin: 0 .15em .2em 0; padding: .1em .25em; border-radius: .25em;
  background: #d8e6ee; color: #123; text-align: center; text-decoration: none; font-size: .85em; }
#line a.failed { background: #a4161a; color: #fff; font-weight: bold; }
#line button { float: right; }
main { order: 4; }
details, .leaf { margin: .15em 0 .15em .4em; padding-left: .7em; border-left: 2px solid #e1e6ea; }
summary { cursor: pointer; margin-left: -.3em; }
.call { margin: 1em 0; padding: .4em .8em; border: 1px solid #c4ccd2; border-radius: .4em; }
.call > summary { font-size: 1.1em; }
.failed { border-left-color: #a4161a; }
.call.failed { border-color: #a4161a; }
.failed > summary, .leaf.failed { background: #fdecec; }
.name { font-weight: bold; }
.title { color: #42525c; }
.hex { font: 13px/1.4 monospace; overflow-wrap: anywhere; }
.words { color: #0b5345; }
.failed > summary .words, .leaf.failed .words { color: #a4161a; }
</style>
)";

const char* const kScript = R"(<script>
function openTo(element) {
  for (var e = element; e; e = e.parentElement) { if (e.tagName === 'DETAILS') { e.open = true; } }
  if (element) { element.scrollIntoView({block: 'center'}); }
}
document.getElementById('all').onclick = function () {
  var list = document.querySelectorAll('details');
  var open = !Array.prototype.every.call(list, function (e) { return e.open; });
  list.forEach(function (e) { e.open = open; });
};
window.addEventListener('hashchange', function () { openTo(document.getElementById(location.hash.slice(1))); });
openTo(document.getElementById(location.hash.slice(1)));
</script>
)";

std::string span(const char* name, std::string_view text)
{
    return text.empty() ? "" : std::string("<span class=\"") + name + "\">" + escaped(text) + "</span> ";
}

std::string classOf(const Item& item)
{
    const char* const kind = item.kind == ItemKind::Call ? "call" : item.kind == ItemKind::Exchange ? "exchange" : "";
    return std::string(kind) + (item.below.empty() ? " leaf" : "") + (item.failed ? " failed" : "");
}

std::string headOf(const Item& item)
{
    const std::string number = item.number > 0 ? std::to_string(item.number) + "." : "";
    return span("number", number) + span("name", item.name) + span("title", item.title) + span("hex", item.hex) +
           (item.words == item.hex ? "" : span("words", item.words));
}

std::size_t exchangesIn(const Item& item)
{
    std::size_t count = item.number > 0 ? 1 : 0;
    for (const Item& below : item.below) {
        count += exchangesIn(below);
    }
    return count;
}

} // namespace

std::string escaped(std::string_view text)
{
    std::string safe;
    for (const char c : printable(std::string(text))) {
        switch (c) {
        case '<':
            safe += "&lt;";
            break;
        case '>':
            safe += "&gt;";
            break;
        case '&':
            safe += "&amp;";
            break;
        case '"':
            safe += "&quot;";
            break;
        case '\'':
            safe += "&#39;";
            break;
        default:
            safe += c;
        }
    }
    return safe;
}

Page::Page(const std::string& title, Write write) : write_(std::move(write))
{
    write_(kHead + ("<title>" + escaped(title)) + "</title>\n</head>\n<body>\n<h1>" + escaped(title) +
           "</h1>\n<main>\n");
}

void Page::item(const Item& one, bool open)
{
    const std::string place = one.number > 0 ? " id=\"x" + std::to_string(one.number) + "\"" : "";
    if (one.number > 0) {
        exchanges_.emplace_back(one.number, one.failed);
    }
    if (one.below.empty()) {
        write_("<div class=\"" + classOf(one) + "\"" + place + ">" + headOf(one) + "</div>\n");
        return;
    }
    write_("<details class=\"" + classOf(one) + "\"" + place + (open || one.failed ? " open" : "") + "><summary>" +
           headOf(one) + "</summary>\n");
    for (const Item& below : one.below) {
        item(below, one.number > 0 || (one.kind == ItemKind::Object && open));
    }
    write_("</details>\n");
}

void Page::add(const Item& one)
{
    const std::size_t more = exchangesIn(one);
    if (exchanges_.size() + more > kMostExchanges) {
        left_ += more;
        return;
    }
    item(one, one.kind != ItemKind::Call || one.failed);
}

void Page::end(const std::string& problem)
{
    if (left_ > 0) {
        write_("<p>" + std::to_string(left_) + " more exchanges are not on this page.</p>\n");
    }
    write_(
        "</main>\n<nav id=\"line\"><button id=\"all\">open or fold all</button>Exchanges in their order (the log has "
        "no times): ");
    for (const auto& [number, failed] : exchanges_) {
        const std::string digits = std::to_string(number);
        write_("<a href=\"#x" + digits + "\"" + (failed ? " class=\"failed\" title=\"failed\"" : "") + ">" + digits +
               "</a>");
    }
    write_("</nav>\n");
    if (!problem.empty()) {
        write_("<p id=\"problem\">" + escaped(problem) + "</p>\n");
    }
    write_(std::string(kScript) + "</body>\n</html>\n");
}

} // namespace vorn::tool
