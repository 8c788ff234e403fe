#include "tools/commands/Commands.h"
#include "tools/commands/Differences.h"

#include <string>

namespace vrx::tool {

namespace {

struct DiffOptions {
    std::string a;
    std::string b;
    DifferenceOptions differences;
};

int RunDiff(const DiffOptions& options) {
    Recording a(options.a);
    Recording b(options.b);
    DifferenceReport report(options.differences, {options.a, options.b});
    Alignment alignment([&](Exchange& next) { return a.Next(next); },
                        [&](Exchange& next) { return b.Next(next); });
    for (ExchangePair pair; alignment.Next(pair);) report.Summary().Add(pair);
    return report.Tell("vrx diff", options.a, options.b, {&a, &b});
}

constexpr char kDiffFooter[] =
    "A and B are captures (pcap, pcapng) of vrx record or of any other program. Exchanges are put side by "
    "side also\n"
    "when one of the two has more. Times, ports, cycle figures, and how replies were cut into pieces are no\n"
    "differences. Exit code 4 and the first difference on standard error when they differ.\n"
    "\n"
    "Examples:\n"
    "  vrx diff monday.pcap tuesday.pcap --tolerance -90\n"
    "  vrx diff monday.pcap tuesday.pcap --report differences.html";

} // namespace

void AddDiff(CLI::App& app, int& exitCode) {
    Subcommand<DiffOptions> command(app, exitCode, "diff", "Say where two recordings differ", RunDiff,
                                    kDiffFooter);
    DiffOptions& options = command.Values();
    command.Add("A", options.a, "", "A capture file")->required();
    command.Add("B", options.b, "", "Another one")->required();
    AddDifferenceOptions(command, options.differences);
}

} // namespace vrx::tool
