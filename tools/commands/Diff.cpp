#include "tools/capture/DifferenceSummary.h"
#include "tools/capture/Recording.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Subcommand.h"

#include <cstdio>
#include <optional>
#include <string>

namespace vrx::tool {

namespace {

struct DiffOptions {
    std::string a;
    std::string b;
    std::optional<double> tolerance;
    bool json = false;
};

int RunDiff(const DiffOptions& options) {
    Recording a(options.a);
    Recording b(options.b);
    Alignment alignment([&](Exchange& next) { return a.Next(next); },
                        [&](Exchange& next) { return b.Next(next); });
    DifferenceSummary summary(options.tolerance);
    for (ExchangePair pair; alignment.Next(pair);) summary.Add(pair);

    const std::string text = options.json ? summary.Json().dump() + "\n" : summary.Table();
    if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
        throw Failure{kFileFailed, "cannot write to standard output"};
    for (const Recording* recording : {&a, &b})
        for (const std::string& note : recording->Notes()) PrintError("vrx diff", note);
    if (summary.Same()) return kDone;
    throw Failure{kRunFailed, summary.FirstInWords(options.a, options.b)};
}

constexpr char kFooter[] =
    "A and B are captures (pcap, pcapng) of vrx record or of any other program. Exchanges are put side by "
    "side also\n"
    "when one of the two has more. Times, ports, cycle figures, and how replies were cut into pieces are no\n"
    "differences. Exit code 4 and the first difference on standard error when they differ.\n"
    "\n"
    "Example:\n"
    "  vrx diff monday.pcap tuesday.pcap --tolerance -90";

} // namespace

void AddDiff(CLI::App& app, int& exitCode) {
    Subcommand<DiffOptions> command(app, exitCode, "diff", "Say where two recordings differ", RunDiff,
                                    kFooter);
    DiffOptions& options = command.Values();
    command.Add("A", options.a, "", "A capture file")->required();
    command.Add("B", options.b, "", "Another one")->required();
    command.Add("--tolerance", options.tolerance, "DB", "Samples this close are the same, below full scale")
        ->check(InRange(-1000.0, 1000.0));
    command.AddJson(options.json);
}

} // namespace vrx::tool
