#include "tools/commands/Commands.h"
#include "tools/commands/Subcommand.h"
#include "tools/program/StandardOutput.h"
#include "tools/report/Comparison.h"
#include "tools/report/RunSummary.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

namespace vrx::tool {

namespace {

struct CompareOptions {
    std::string a;
    std::string b;
    bool json = false;
};

RunFigures ReadRun(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw Failure{kFileFailed, path + ": cannot be read: " + std::strerror(errno)};
    try {
        return ReadFigures(nlohmann::json::parse(file));
    } catch (const nlohmann::json::exception& error) {
        throw Failure{kFileFailed, path + ": is no summary that vrx pump --json printed: " + error.what()};
    }
}

int RunCompare(const CompareOptions& options) {
    const RunFigures a = ReadRun(options.a);
    const RunFigures b = ReadRun(options.b);
    const Verdict verdict = Compare(a, b);
    const std::string better(verdict.better != 0 ? 1 : 0, verdict.better);
    if (options.json) {
        Print(JsonLine({{"better", better.empty() ? nlohmann::json() : nlohmann::json(better)},
                        {"why", verdict.why},
                        {"p99_ratio", a.p99 > 0 ? nlohmann::json(b.p99 / a.p99) : nlohmann::json()}}));
        return kDone;
    }
    Print("A  " + WithoutControls(options.a + ": " + a.what) + "\n" + "B  " +
          WithoutControls(options.b + ": " + b.what) + "\n\n" + ComparisonTable(a, b) + "\n" +
          (better.empty() ? "Neither was better: " : better + " was better: ") + verdict.why + "\n");
    return kDone;
}

constexpr char kCompareFooter[] =
    "A and B are what vrx pump --json printed. What counts first: reaching the end, then failed blocks, "
    "missed\n"
    "deadlines, blocks sent again, and then p99. The times of paced runs count from when a block was due.\n"
    "\n"
    "Examples:\n"
    "  vrx compare monday.json tuesday.json\n"
    "  vrx compare --json before.json after.json";

} // namespace

void AddCompare(CLI::App& app, int& exitCode) {
    Subcommand<CompareOptions> command(app, exitCode, "compare", "Say which of two runs was better",
                                       RunCompare, kCompareFooter);
    CompareOptions& options = command.Values();
    command.Add("A", options.a, "", "Summary of a run: what vrx pump --json printed")->required();
    command.Add("B", options.b, "", "Summary of another run")->required();
    command.AddJson(options.json);
}

} // namespace vrx::tool
