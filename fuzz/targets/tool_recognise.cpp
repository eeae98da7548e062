// SPDX-License-Identifier: Apache-2.0
// Whatever a person pastes: told what it is, explained as that and as something else, and put on a page.
#include "support/tool_output.h"
#include "tools/explain/log_story.h"
#include "tools/explain/page.h"
#include "tools/explain/recognise.h"
#include "tools/explain/text_view.h"

using namespace vorn;
using namespace vorn::fuzz;

namespace {

std::size_t count(const std::string& text, const std::string& part)
{
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++found;
    }
    return found;
}

void look(const tool::Explanation& explained)
{
    requirePrintable(explained.problem);
    std::string written;
    tool::Page page("an input", [&written](const std::string& text) { written += text; });
    const std::size_t head = written.size();
    for (const tool::Item& item : explained.items) {
        requireShowable(item);
        page.add(item);
    }
    const std::string body = written.substr(head);
    const std::size_t opened = count(body, "<details") + count(body, "<div") + count(body, "<summary") +
                               count(body, "<span") + count(body, "<p>");
    require(count(body, "<") == 2 * opened, "on a page all tags are the page's own, and closed");
    page.end(explained.problem);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::uint8_t head = input.byte();
    const bool show = (head & 1U) != 0;
    const std::string text = stringOf(input.rest());
    constexpr unsigned kinds = static_cast<unsigned>(tool::InputKind::State) + 1;

    const tool::InputKind kind = tool::recognise(text);
    require(kind == tool::recognise(text), "the same text is the same thing");
    look(tool::explain(kind, text, show));
    look(tool::explain(static_cast<tool::InputKind>((head >> 1) % kinds), text, show));
    look(tool::explainRecord(text, show));
    look(tool::explainTransactions(text));
    look(tool::explainTransactionData(text, show));
    tool::kindOf(text);
    return 0;
}
