// SPDX-License-Identifier: Apache-2.0
// vorn decode: says what pasted text means, and tells a log file as a story.
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/commands/issuer.h"
#include "tools/commands/new_file.h"
#include "tools/explain/log_story.h"
#include "tools/explain/mask.h"
#include "tools/explain/page.h"
#include "tools/explain/recognise.h"
#include "tools/explain/recording_redaction.h"
#include "tools/explain/recording_story.h"
#include "tools/explain/redact.h"
#include "tools/explain/render.h"
#include "tools/session/session.h"

#include <nlohmann/json.hpp>

#include <malloc.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>

namespace vorn::tool {

namespace {

struct Options {
    std::vector<std::string> texts;
    std::string as;
    bool list = false;
    bool arqc = false;
    bool tc = false;
    bool atr = false;
    bool json = false;
    bool show = false;
    bool force = false;
    std::string html;
    std::string redact;
    std::string issuer;
};

// ---------------------------------------------------------------- input

// A file, standard input, or what stood on the command line; read piece by piece.
class Input {
public:
    explicit Input(const std::vector<std::string>& texts)
    {
        if (texts.empty() || (texts.size() == 1 && texts[0] == "-")) {
            file_.reset(stdin, [](std::FILE*) {});
            return;
        }
        if (texts.size() == 1 && isFile(texts[0])) {
            file_.reset(std::fopen(texts[0].c_str(), "rb"), [](std::FILE* file) {
                if (file != nullptr) {
                    std::fclose(file);
                }
            });
            if (!file_) {
                throw Failure(Exit::Usage, texts[0] + ": " + std::strerror(errno));
            }
            return;
        }
        for (const std::string& text : texts) {
            text_ += (text_.empty() ? "" : " ") + text;
        }
    }

    bool fromFile() const { return file_ && file_.get() != stdin; }
    void rewind() { ::lseek(fileno(file_.get()), 0, SEEK_SET); }

    // What is there, as far as it fits one piece; empty at the end.
    std::string next()
    {
        if (!file_) {
            return std::exchange(text_, "");
        }
        constexpr std::size_t size = 262144;
        std::string piece(size, '\0');
        std::size_t filled = 0;
        for (std::size_t count = 1; count > 0 && filled < size && (filled == 0 || !hasToWait()); filled += count) {
            count = read(piece.data() + filled, size - filled);
        }
        piece.resize(filled);
        return piece;
    }

    // Whether the next piece is not there yet.
    bool hasToWait() const { return file_ && !ready(0); }

    // At most so much, and a little more when there is more.
    std::string upTo(std::size_t most)
    {
        std::string text;
        for (std::string piece = next(); !piece.empty(); piece = next()) {
            text += piece;
            if (text.size() > most) {
                break;
            }
        }
        return text;
    }

private:
    bool ready(int timeoutMs) const
    {
        pollfd input{fileno(file_.get()), POLLIN, 0};
        return ::poll(&input, 1, timeoutMs) != 0;
    }

    std::size_t read(char* to, std::size_t size)
    {
        for (;;) {
            throwIfInterrupted();
            const ssize_t count = ::read(fileno(file_.get()), to, size);
            if (count >= 0) {
                return static_cast<std::size_t>(count);
            }
            if (errno == EAGAIN) { // of a writer that wants not to wait, and shares the descriptor
                ready(-1);
            } else if (errno != EINTR) {
                throw Failure(Exit::Usage, std::string("the input cannot be read: ") + std::strerror(errno));
            }
        }
    }

    static bool isFile(const std::string& text)
    {
        std::error_code error;
        return text.size() < 4096 && std::filesystem::exists(text, error) &&
               !std::filesystem::is_directory(text, error);
    }

    std::shared_ptr<std::FILE> file_;
    std::string text_;
};

// ---------------------------------------------------------------- output

class Output {
public:
    explicit Output(const Options& options) : json_(options.json)
    {
        if (!options.html.empty()) {
            file_ = std::make_unique<NewFile>(options.html, options.force);
            page_.emplace("Card reader log", [this](const std::string& text) { file_->write(text); });
        }
    }

    void begin(const std::string& kind)
    {
        if (json_ && !page_) {
            text_ += "{\"kind\": " + Json(kind).dump() + ", \"objects\": [\n";
        }
    }

    // Puts an item into its form; what is returned then adds it to the output. The first may be done beside others.
    InOrder prepared(Item item)
    {
        if (page_) {
            return [this, item = std::move(item)] { page_->add(item); };
        }
        std::string text = json_ ? jsonText(jsonOf(item)) : textOf(item);
        return [this, text = std::move(text)] { add(text); };
    }

    void item(const Item& item) { prepared(item)(); }

    void flush()
    {
        print(text_);
        text_.clear();
    }

    void end(const std::string& problem)
    {
        if (page_) {
            page_->end(problem);
            file_->close();
        } else if (json_) {
            text_ += "\n], \"problem\": " + Json(problem).dump() + "}\n";
        }
        flush();
    }

private:
    void add(const std::string& text)
    {
        constexpr std::size_t enough = 65536;
        text_ += json_ && !first_ ? ",\n" : "";
        text_ += text;
        first_ = false;
        if (text_.size() > enough) {
            flush();
        }
    }

    bool json_;
    bool first_ = true;
    std::string text_;
    std::unique_ptr<NewFile> file_;
    std::optional<Page> page_;
};

// ---------------------------------------------------------------- decoding

InputKind wanted(const Options& options)
{
    if (!options.as.empty()) {
        return kindOf(options.as).value_or(InputKind::Unknown);
    }
    return options.list   ? InputKind::List
           : options.arqc ? InputKind::Arqc
           : options.tc   ? InputKind::Tc
           : options.atr  ? InputKind::AnswerToReset
                          : InputKind::Unknown;
}

// What is told may be looked at while the next piece is waited for.
template <class Story, class Settle>
void tellPieces(Story& story, Input& input, const std::string& head, Output& output, Settle settle)
{
    for (std::string piece = head; !piece.empty(); piece = input.next()) {
        story.add(piece.data(), piece.size());
        if (input.hasToWait()) {
            settle();
        }
        output.flush();
    }
    story.end();
}

// What a told call gives back is wanted for the next one.
void keepFreedMemory()
{
    constexpr int megabyte = 1 << 20;
    mallopt(M_TRIM_THRESHOLD, 32 * megabyte);
    mallopt(M_MMAP_THRESHOLD, 4 * megabyte);
}

Exit tellLog(Input& input, const std::string& head, const Options& options)
{
    keepFreedMemory();
    Output output(options);
    output.begin("log");
    LogStory story(options.show, [&output](Item item) { return output.prepared(std::move(item)); });
    tellPieces(story, input, head, output, [&story] { story.settle(); });
    output.end("");
    return Exit::Ok;
}

CryptogramChecks checksOf(const Options& options)
{
    if (options.issuer.empty()) {
        return {};
    }
    const sim::Profile profile = profileOf(options.issuer);
    return {simulatedIssuer(profile), "profile " + profile.name};
}

Exit tellRecording(Input& input, const std::string& head, const Options& options)
{
    Output output(options);
    output.begin("recording");
    RecordingStory story(
        options.show, [&output](const Item& item) { output.item(item); }, checksOf(options));
    tellPieces(story, input, head, output, [] {});
    output.end(story.problem());
    if (!story.problem().empty()) {
        throw Failure(Exit::DataMissing, "not decoded to its end: " + story.problem());
    }
    return Exit::Ok;
}

Exit tell(const std::string& text, InputKind kind, const Options& options)
{
    const InputKind found = kind == InputKind::Unknown ? recognise(text) : kind;
    if (found == InputKind::Unknown) {
        throw Failure(Exit::Usage,
                      text.find_first_not_of(" \t\r\n") == std::string::npos
                          ? "nothing to decode"
                          : "not understood: '" + excerpt(text) + "' is no hex, no file, and no text of the library",
                      "vorn decode 6F0A8408A000000333010101; --as KIND names what it is: " + kindNames());
    }
    const Explanation explained = explain(found, text, options.show);
    if (explained.items.empty() && !explained.problem.empty()) {
        throw Failure(Exit::Usage, explained.problem + ": '" + excerpt(text) + "'");
    }
    Output output(options);
    output.begin(explained.kind);
    for (const Item& item : explained.items) {
        output.item(item);
    }
    output.end(explained.problem);
    if (!explained.problem.empty()) {
        throw Failure(Exit::DataMissing, "not decoded to its end: " + explained.problem);
    }
    return Exit::Ok;
}

// ---------------------------------------------------------------- a copy for others

template <class Use>
void eachLine(Input& input, Use use)
{
    constexpr std::size_t longest = 65536; // a longer one is taken in pieces
    std::string rest;
    for (std::string piece = input.next(); !piece.empty(); piece = input.next()) {
        rest += piece;
        std::size_t at = 0;
        for (std::size_t end = rest.find('\n'); end != std::string::npos; end = rest.find('\n', at)) {
            use(rest.substr(at, end + 1 - at));
            at = end + 1;
        }
        rest.erase(0, at);
        if (rest.size() > longest) {
            use(rest);
            rest.clear();
        }
    }
    if (!rest.empty()) {
        use(rest);
    }
}

Exit redactRecording(Input& input, const Options& options)
{
    const std::string text = input.upTo(sim::Recording::kSizeMax);
    if (text.size() > sim::Recording::kSizeMax) {
        throw Failure(Exit::Usage, "the recording has more than 64 megabytes", "cut it where the line is not in use");
    }
    const sim::Recording recording = sim::readRecording(text);
    const RecordingRedaction redaction(recording, checksOf(options));
    NewFile file(options.redact, options.force);
    file.write(redaction.text("a copy for others"));
    file.close();
    if (!recording.problem.empty()) {
        note("left out: " + recording.problem);
    }
    note(std::to_string(redaction.count()) +
         " frames and other things changed. Check digits of account numbers, cryptograms, MACs and certificates do not "
         "fit "
         "the changed values any more; lengths, times and the frames' own checks do. What was found about cryptograms "
         "before stands in the copy.");
    return Exit::Ok;
}

Exit redact(Input& input, const Options& options)
{
    if (!input.fromFile()) {
        throw Failure(Exit::Usage, "--redact reads its log twice, so it wants a file",
                      "vorn decode ICC_COMM_VORN.log --redact copy.log");
    }
    const std::string head = input.next();
    input.rewind();
    if (sim::looksLikeRecording(head)) {
        return redactRecording(input, options);
    }
    Redaction redaction;
    eachLine(input, [&](const std::string& line) { redaction.learn(line); });
    redaction.learnEnd();
    input.rewind();
    NewFile file(options.redact, options.force);
    const auto write = [&file](const std::string& text) { file.write(text); };
    eachLine(input, [&](const std::string& line) { redaction.write(line, write); });
    redaction.writeEnd(write);
    file.close();
    for (const Redaction::Change& change : redaction.changes()) {
        note("line " + std::to_string(change.line) + ": " + change.what + " was changed");
    }
    note(std::to_string(redaction.count()) + " places changed. Check digits of account numbers, cryptograms, MACs and "
                                             "certificates do not fit the changed values any more; lengths do.");
    return Exit::Ok;
}

constexpr std::size_t kHead = 65536; // enough to know what it is

InputKind kindOfHead(const std::string& head, InputKind wanted)
{
    return wanted == InputKind::Unknown ? recognise(head.substr(0, kHead)) : wanted;
}

// Whoever writes a log may do so for hours: nobody waits for more of it than what shows that it is one.
std::string headOf(Input& input, InputKind wanted)
{
    std::string head;
    for (std::string piece = input.next(); !piece.empty(); piece = input.next()) {
        head += piece;
        if (head.size() >= kHead || (input.hasToWait() && kindOfHead(head, wanted) == InputKind::Log)) {
            break;
        }
    }
    return head;
}

Exit run(const Options& options)
{
    Input input(options.texts);
    if (!options.redact.empty()) {
        return redact(input, options);
    }
    constexpr std::size_t most = 1048576;
    const InputKind kind = wanted(options);
    std::string text = headOf(input, kind);
    const InputKind whole = kindOfHead(text, kind);
    if (whole == InputKind::Log) {
        return tellLog(input, text, options);
    }
    if (whole == InputKind::Recording) {
        return tellRecording(input, text, options);
    }
    text += text.size() < kHead ? "" : input.upTo(most);
    if (text.size() > most) {
        throw Failure(Exit::Usage, "more than one megabyte, and no log of the library: '" + excerpt(text) + "'");
    }
    return tell(text, kind, options);
}

std::string checkKind(const std::string& name) { return kindOf(name) ? "" : "one of " + kindNames(); }

} // namespace

void addDecode(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = root.add_subcommand("decode", "Say what pasted text or a log file means");
    command->add_option("text", options->texts, "A file, or hex or other text; - or nothing reads standard input")
        ->type_name("FILE");
    std::vector<CLI::Option*> kinds = {
        command->add_option("--as", options->as, "What it is, when that cannot be told")
            ->check(CLI::Validator(checkKind, "{" + kindNames(",") + "}")),
        command->add_flag("--list", options->list, "A list of tags and lengths (PDOL, CDOL, log format)"),
        command->add_flag("--arqc", options->arqc, "The text of an ARQC"),
        command->add_flag("--tc", options->tc, "The text of a TC, whose items have shortened tags"),
        command->add_flag("--atr", options->atr, "An answer to reset")};
    for (std::size_t i = 0; i < kinds.size(); ++i) {
        for (std::size_t j = i + 1; j < kinds.size(); ++j) {
            kinds[i]->excludes(kinds[j]);
        }
    }
    CLI::Option* const json = command->add_flag("--json", options->json, "Print JSON");
    command->add_option("--html", options->html, "Write a page to this file, which needs nothing else to be looked at")
        ->type_name("FILE")
        ->excludes(json);
    command
        ->add_option("--redact", options->redact,
                     "Write a copy of a log or a recording to this file that may be sent to others")
        ->type_name("FILE");
    command
        ->add_option("--issuer", options->issuer, "Check the cryptograms in a recording with the keys of this profile")
        ->type_name("PROFILE");
    command->add_flag("--force", options->force, "Replace the file of --html or --redact");
    command->add_flag("--show", options->show, "Do not mask what identifies a card or its holder");
    command->callback([options, &action] { action = [options] { return run(*options); }; });
}

} // namespace vorn::tool
