// SPDX-License-Identifier: Apache-2.0
// vorn doctor: why a reader does not work on this terminal, step by step, each finding with what to do.
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"
#include "tools/cli/version.h"
#include "tools/commands/command.h"
#include "tools/commands/link_options.h"
#include "tools/explain/frame_view.h"
#include "tools/explain/present.h"
#include "tools/session/library_version.h"
#include "tools/session/port_list.h"
#include "tools/session/port_name.h"
#include "tools/session/reader_version.h"
#include "tools/session/session.h"
#include "tools/session/slots.h"

#include "vorn/log.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <memory>

namespace vorn::tool {

namespace {

constexpr const char* kLibraryVersion = "1.0.0.8"; // that this tool is made for

struct Options {
    LinkOptions link;
    bool json = false;
};

enum class Kind { Good, Note, Bad };

struct Finding {
    Kind kind;
    std::string subject;
    std::string text;
    std::string advice; // for what is bad
};

const char* nameOf(Kind kind) { return kind == Kind::Good ? "ok" : kind == Kind::Note ? "note" : "BAD"; }

class Examination {
public:
    explicit Examination(const Options& options) : options_(options) {}

    Exit run()
    {
        examineSoftware();
        examineText();
        examineLogFiles();
        if (options_.link.profile.empty()) {
            examinePorts();
        } else {
            examineReader(options_.link);
        }
        return finish();
    }

private:
    void add(Kind kind, const std::string& subject, const std::string& text, const std::string& advice = {})
    {
        findings_.push_back({kind, subject, text, advice});
        if (options_.json) {
            return;
        }
        printLine(std::string(nameOf(kind)) +
                  (kind == Kind::Good   ? "    "
                   : kind == Kind::Note ? "  "
                                        : "   ") +
                  subject + ": " + text);
        if (!advice.empty()) {
            printLine("      " + advice);
        }
    }
    void add(const std::string& subject, const Failure& failure)
    {
        add(Kind::Bad, subject, failure.what(), failure.hint());
    }

    void examineSoftware();
    void examineText();
    void examineLogFiles();
    void examinePorts();
    bool examineAccess(const PortInfo& port);
    void examineReader(LinkOptions link);
    void examineSlots(Session& session);
    Exit finish();

    const Options& options_;
    std::vector<Finding> findings_;
};

void Examination::examineSoftware()
{
    const std::string version = libraryVersion();
    add(Kind::Note, "tool", toolVersion());
    if (version == kLibraryVersion) {
        add(Kind::Good, "library", version + ", " + libraryPath());
    } else {
        add(Kind::Bad, "library",
            "version " + version + ", this tool is made for " + kLibraryVersion + ": " + libraryPath(),
            "install tool and library of one release; LD_LIBRARY_PATH may lead to another library");
    }
}

// The library hands out cards' Chinese text through the C library's conversion, which small systems leave out.
void Examination::examineText()
{
    if (gbkConverts()) {
        add(Kind::Good, "Chinese text", "the C library converts it from and to GBK");
    } else {
        add(Kind::Bad, "Chinese text",
            std::string(kNoGbk) + ": names in Chinese are lost, merchants in the card's log among them",
            "install the C library's modules: gconv/GBK.so, and gconv/gconv-modules, which names it");
    }
}

// Where a host is started the library writes its log files.
void Examination::examineLogFiles()
{
    for (const char* const file : {VORN_TRACE_FILE, VORN_SERVICE_FILE}) {
        if (::access(file, F_OK) == 0 && ::access(file, W_OK) != 0) {
            add(Kind::Bad, "log files", std::string(file) + " in this directory may not be written",
                "a host that is started here loses its log: make the file its user's, or remove it");
            return;
        }
    }
    if (::access(".", W_OK) != 0) {
        add(Kind::Bad, "log files", "this directory may not be written",
            "a host that is started here loses its log: start it in a directory of its own, mode 0700");
    } else {
        add(Kind::Good, "log files", "a host that is started in this directory can write them");
    }
}

void Examination::examinePorts()
{
    std::vector<PortInfo> ports;
    if (options_.link.port.empty()) {
        ports = listPorts();
    } else {
        ports.push_back(portInfo(portName(options_.link.port)));
    }
    if (ports.empty()) {
        add(Kind::Bad, "ports", "no serial port, and no reader on USB",
            "plug the reader in; 'dmesg' tells whether the system saw it");
    }
    for (const PortInfo& port : ports) {
        throwIfInterrupted();
        if (examineAccess(port)) {
            LinkOptions link = options_.link;
            link.port = port.name;
            examineReader(link);
        }
    }
}

bool Examination::examineAccess(const PortInfo& port)
{
    if (!port.there || (port.name != "USB" && !port.tty)) {
        add(port.name, portFailure(port.name));
        return false;
    }
    if (!port.allowed) {
        add(Kind::Bad, port.name, "you may not open it; it belongs to the group " + port.group, port.advice);
        return false;
    }
    if (!port.holder.empty()) {
        add(Kind::Bad, port.name, "it is used by " + port.holder, "end that program");
        return false;
    }
    add(Kind::Good, port.name, "it may be opened" + (port.device.empty() ? "" : ", driver " + port.device));
    return true;
}

// At 9600 baud the reader tells its version, at 38400 it takes commands.
void Examination::examineReader(LinkOptions link)
{
    const std::string subject = link.port.empty() ? "simulated reader" : link.port;
    link.wait = 0;
    try {
        Session session(link);
        if (link.port != "USB") {
            try {
                add(Kind::Good, subject, "at 9600 baud a reader answers: " + readerVersion(session));
            } catch (const Failure& failure) {
                add(subject + " at 9600 baud", failure);
                if (failure.exitCode() == Exit::WrongDevice) {
                    return;
                }
            }
            if (!session.line().strayBytes().empty() && session.verdict().trouble != Trouble::None) {
                add(Kind::Bad, subject, "there is noise on the line", "check cable, plugs and earthing");
            }
        }
        examineSlots(session);
    } catch (const Failure& failure) {
        add(link.port == "USB" ? subject : subject + " at 38400 baud", failure);
    }
}

void Examination::examineSlots(Session& session)
{
    const std::vector<SlotState> states = lookIntoSlots(session, Slots::All);
    add(Kind::Good, session.port(), "the reader takes commands");
    for (const SlotState& state : states) {
        if (state.mute) {
            add(Kind::Bad, state.name, "there is a card, but it does not answer",
                "is it the right way round? Clean the chip, or try another card");
        } else {
            add(Kind::Note, state.name,
                state.kind.empty() ? "empty" : state.kind + ", answer " + resetHex(state.answer, false));
        }
    }
}

Exit Examination::finish()
{
    bool bad = false;
    Json list = Json::array();
    for (const Finding& finding : findings_) {
        bad = bad || finding.kind == Kind::Bad;
        list.push_back({{"result", nameOf(finding.kind)},
                        {"subject", finding.subject},
                        {"finding", finding.text},
                        {"advice", finding.advice}});
    }
    if (options_.json) {
        printJson({{"findings", list}});
    } else {
        printLine(bad ? "Something is to be mended, see above." : "All is well.");
    }
    return bad ? Exit::Findings : Exit::Ok;
}

} // namespace

void addDoctor(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command =
        root.add_subcommand("doctor", "Find out why a reader does not work here (all ports, unless one is named)");
    command->add_flag("--json", options->json, "Print JSON");
    addLinkOptions(*command, options->link);
    command->callback([options, &action] { action = [options] { return Examination(*options).run(); }; });
}

} // namespace vorn::tool
