#include "tools/checks/CheckReport.h"
#include "tools/checks/CheckRunner.h"
#include "tools/checks/Probe.h"
#include "tools/commands/Commands.h"
#include "tools/commands/RecordOption.h"
#include "tools/commands/RecordingProcess.h"
#include "tools/commands/Subcommand.h"
#include "tools/program/Interrupt.h"
#include "tools/program/OutputFile.h"
#include "tools/program/StandardOutput.h"
#include "tools/program/Terminal.h"
#include "tools/report/RunSummary.h"

#include <cstdio>
#include <optional>
#include <regex>
#include <unistd.h>

namespace vrx::tool {

namespace {

constexpr int kDefaultLevel = 5;

struct CheckOptions {
    CheckTarget target;
    int level = kDefaultLevel;
    std::string only;
    std::string junit;
    std::string record;
    bool json = false;
};

struct CheckListOptions {
    bool json = false;
};

/// The checks that the options ask for, by level.
std::vector<const Check*> Chosen(const CheckOptions& options) {
    std::regex only;
    try {
        only = std::regex(options.only);
    } catch (const std::regex_error&) {
        throw Failure{kWrongUsage, "--only '" + options.only + "' is no regular expression"};
    }
    std::vector<const Check*> chosen;
    for (const Check& check : ChecksOf(options.target.kind))
        if (check.level <= options.level && std::regex_search(check.name, only)) chosen.push_back(&check);
    if (chosen.empty())
        throw Failure{kWrongUsage, "no check up to level " + std::to_string(options.level) + " matches '" +
                                       options.only + "'; vrx check list shows them all"};
    return chosen;
}

/// A word as a shell takes it.
std::string Quoted(const std::string& word) {
    const bool plain =
        !word.empty() && word.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                                "0123456789_-./:=") == word.npos;
    if (plain) return word;
    std::string quoted = "'";
    for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

/// The command that runs one check again.
std::string Again(const CheckOptions& options, const Check& check) {
    const CheckTarget& target = options.target;
    const CheckTarget usual;
    std::string command = std::string("vrx check ") + KindName(target.kind);
    if (target.kind == CheckTarget::kPlugin) {
        command += " " + Quoted(target.file);
    } else {
        command += " " + Quoted(target.host) + " " + std::to_string(target.port);
        if (target.input != usual.input) command += " --input " + Quoted(target.input);
        if (target.output != usual.output) command += " --output " + Quoted(target.output);
        if (target.layout != usual.layout) command += " --layout " + Quoted(target.layout);
        if (target.block != 0) command += " --block " + std::to_string(target.block);
        if (target.channels != 0) command += " --channels " + std::to_string(target.channels);
    }
    return command + " --level " + std::to_string(check.level) + " --only '^" + check.name + "$' --seed " +
           std::to_string(target.seed);
}

int RunCheck(const CheckOptions& options) {
    CatchInterrupts();
    CheckTarget target = options.target;
    const bool plugin = target.kind == CheckTarget::kPlugin;
    const std::vector<const Check*> checks = Chosen(options);
    const std::string missing = WhyNothingToCheck(target);
    if (!missing.empty()) throw Failure{plugin ? kFileFailed : kCannotConnect, missing};
    std::optional<RecordingProcess> recorder;
    if (!options.record.empty() && plugin)
        target.recorderTap = recorder.emplace(options.record).Tap();
    else if (!options.record.empty())
        target.recorderPort = recorder.emplace(options.record, target.host, target.port).Port();

    const bool colors = ColorsWanted(STDOUT_FILENO);
    RunOptions run;
    // A server may take one client at a time; several are what some checks are about.
    if (!plugin) run.atOnce = 1;
    run.stopped = Interrupted;
    if (!options.json)
        run.ended = [&](const CheckResult& result) {
            Print(ResultText(result, Again(options, *result.check), colors));
        };
    std::vector<CheckResult> results = RunChecks(checks, target, run);
    if (results.size() < checks.size()) throw Failure{kInterrupted, "interrupted"};

    const CheckReport report(target, options.level, std::move(results));
#ifdef VRX_JUNIT
    if (!options.junit.empty()) {
        OutputFile file(options.junit, true);
        file.Write(report.JUnit());
        file.Finish();
    }
#endif
    Print(options.json ? JsonLine(report.Json()) : "vrx check: " + report.Summary() + "\n");
    if (report.Ok()) return kDone;
    throw Failure{kRunFailed, target.Name() + " is wrong: " + report.WrongNames()};
}

int RunCheckList(const CheckListOptions& options) {
    Print(options.json ? JsonLine(ListJson()) : ListText());
    return kDone;
}

constexpr char kCheckFooter[] =
    "Level 5 is what any host or any server has to rely on; 10 takes up to four "
    "minutes. Each check runs in a\n"
    "process of its own. Warnings are about what merely costs and never fail.\n"
    "Exit codes: 0 nothing is wrong, 2 FILE is no plug-in, 3 no server, 4 a check "
    "failed, crashed or timed out.\n";

void AddCommon(Subcommand<CheckOptions>& command) {
    CheckOptions& options = command.Values();
    command.AddWithDefault("--level", options.level, "N", "All checks up to this level, 1 to 10")
        ->check(InRange(1, 10));
    command.Add("--only", options.only, "REGEX", "Only checks whose name matches");
    command.AddWithDefault("--seed", options.target.seed, "N", "The same seed gives the same states");
#ifdef VRX_JUNIT
    command.Add("--junit", options.junit, "FILE", "Also write a JUnit report");
#endif
    command.AddJson(options.json);
}

} // namespace

void AddCheck(CLI::App& app, int& exitCode) {
    CLI::App* check = app.add_subcommand("check", "Find out whether a plug-in or a server is right");
    check->require_subcommand(1);
    check->footer(kCheckFooter + std::string("\nExamples:\n"
                                             "  vrx check plugin ./VRX_talker_norvo.so --level 10\n"
                                             "  vrx check server 127.0.0.1 7000 --json\n"
                                             "  vrx check list"));

    Subcommand<CheckOptions> plugin(*check, exitCode, "plugin", "Check a talker plug-in", RunCheck,
                                    kCheckFooter);
    plugin.Values().target.kind = CheckTarget::kPlugin;
    plugin.Add("FILE", plugin.Values().target.file, "", "The plug-in")->required();
    AddCommon(plugin);
    AddRecordOption(plugin.Command(), plugin.Values().record);

    Subcommand<CheckOptions> server(*check, exitCode, "server", "Check an audio server", RunCheck,
                                    kCheckFooter);
    CheckTarget& target = server.Values().target;
    target.kind = CheckTarget::kServer;
    server.Add("HOST", target.host, "", "Host name or IPv4 address")->required();
    server.Add("PORT", target.port, "", "TCP port of the server")->required()->check(IsPort());
    AddCommon(server);
    server.AddWithDefault("--input", target.input, "NAME", "The server's input object");
    server.AddWithDefault("--output", target.output, "NAME", "The server's output object");
    server.AddWithDefault("--layout", target.layout, "NAME", "The server's layout");
    server.Add("--block", target.block, "FRAMES", "Frames per block [as the pins say, else one segment]")
        ->check(InRange(1, 262137));
    server.Add("--channels", target.channels, "N", "Channels of a block [as the pins say, else 2]")
        ->check(InRange(1, 1023));
    AddRecordOption(server.Command(), server.Values().record);

    Subcommand<CheckListOptions> list(*check, exitCode, "list", "List all checks", RunCheckList, "");
    list.AddJson(list.Values().json);
}

} // namespace vrx::tool
