// SPDX-License-Identifier: Apache-2.0
// vorn issuer: a profile's issuer answers an ARQC, for counter applications that are tried out without a host.
#include "tools/commands/issuer.h"

#include "tools/cli/arguments.h"
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/explain/hex.h"
#include "tools/session/session.h"

#include <nlohmann/json.hpp>

#include <memory>

namespace vorn::tool {

sim::Issuer simulatedIssuer(const sim::Profile& profile)
{
    try {
        if (auto issuer = sim::issuerOf(profile)) {
            return *issuer;
        }
    } catch (const sim::ProfileError& error) {
        throw Failure(Exit::Profile, error.what());
    }
    throw Failure(Exit::Profile, "profile '" + profile.name + "' has no issuer",
                  "debit, credit and multi have one; in a sale --arpc or --ask take the host's answer");
}

void giveWrongKey(sim::Issuer& issuer)
{
    sim::crypto::Key wrong = issuer.rules().keys.ac;
    wrong[0] ^= 0xFE;
    issuer.useKey(wrong);
    issuer.trustUnverified(true); // with a wrong key no ARQC is right
}

namespace {

struct Options {
    std::string profile;
    std::string arqc;
    bool wrongKey = false;
    bool json = false;
};

Exit run(const Options& options)
{
    sim::Issuer issuer = simulatedIssuer(profileOf(options.profile));
    if (options.wrongKey) {
        giveWrongKey(issuer);
    }
    const std::string text = options.arqc == "-" ? readLine() : options.arqc;
    const sim::Authorisation decision = issuer.authorise(toHex(bytesOfArgument(text)));
    if (decision.text.empty()) {
        throw Failure(Exit::Usage, "no text of an ARQC: " + decision.request.why,
                      "it is what IC_GenARQC leaves in pszARQC; 'vorn decode --arqc' takes it apart");
    }
    if (options.json) {
        printJson({{"arqcVerified", decision.request.verified},
                   {"verification", decision.request.why},
                   {"decision", sim::nameOf(decision.decision)},
                   {"why", decision.why},
                   {"responseCode", decision.responseCode},
                   {"scripts", decision.scripts},
                   {"answer", decision.text}});
    } else {
        printLine(decision.text);
        note(decision.request.why);
        note(std::string(sim::nameOf(decision.decision)) + " (" + decision.why + "), code " + decision.responseCode);
    }
    return Exit::Ok;
}

} // namespace

void addIssuer(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = root.add_subcommand("issuer", "Answer an ARQC as a profile's issuer");
    command->add_option("profile", options->profile, "Name of a profile, or the path of a file")
        ->type_name("PROFILE")
        ->required();
    command->add_option("arqc", options->arqc, "The text of IC_GenARQC in hex; - reads it from standard input")
        ->type_name("HEX")
        ->required();
    command->add_flag("--wrong-key", options->wrongKey, "With a wrong key: the card does not accept the answer");
    command->add_flag("--json", options->json, "Print JSON");
    command->callback([options, &action] { action = [options] { return run(*options); }; });
}

} // namespace vorn::tool
