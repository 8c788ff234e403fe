// Prints the table of docs/checking.md: each check, the wrong talkers or servers of this folder that it finds by itself,
// and how long it takes on the right ones.
//
//     check_matrix VRX PLUGIN OTHER_PLUGIN OTHER_SERVER

#include "tests/checks/WrongOnes.h"
#include "tests/support/Subprocess.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

namespace {

using nlohmann::json;
using Command = std::vector<std::string>;

constexpr std::chrono::seconds kPatience{600};
constexpr int kLevels = 10;
constexpr int kUsualLevel = 5;

json Run(const Command& command) {
    const auto end = RunProgram(command, kPatience);
    return json::parse(end.out, nullptr, false);
}

/// The right ones, the wrong ones, and how they are checked.
struct Kind {
    std::string name;
    std::vector<WrongOne> wrongOnes;
    std::function<json(const std::string& wrong, const Command& options)> check;
    std::function<json()> right;
};

struct Row {
    int level = 0;
    double seconds = 0;
    std::set<std::string> found;
};

void PrintTable(const Kind& kind) {
    std::vector<std::string> order;
    std::map<std::string, Row> rows;
    double levels[kLevels + 1] = {};
    const json right = kind.right();
    for (const json& check : right.at("checks")) {
        const std::string name = check.at("name");
        order.push_back(name);
        rows[name] = {check.at("level"), check.at("seconds"), {}};
        levels[rows[name].level] += rows[name].seconds;
    }
    std::set<std::string> all;
    std::set<std::string> found;
    std::set<std::string> early; // up to level 5
    for (const WrongOne& one : kind.wrongOnes) {
        all.insert(one.name);
        const json report =
            kind.check(one.name, {"--only", std::string("^") + one.check + "$", "--level", "10"});
        const bool told = report.is_object() && report.at("checks").at(0).at("state") == one.state;
        if (!told) continue;
        found.insert(one.name);
        if (rows[one.check].level <= kUsualLevel) early.insert(one.name);
        const std::string name = *one.name == '\0' ? "the right one, which differs" : one.name;
        const bool warned = std::strcmp(one.state, "warned") == 0;
        rows[one.check].found.insert(name + (warned ? " (warning)" : ""));
    }
    std::printf("%zu of %zu wrong %ss are found, %zu of them at level 5.\n\n", found.size(), all.size(),
                kind.name.c_str(), early.size());
    std::printf("| level | check of a %s | s | wrong ones that it finds |\n|---|---|---|---|\n",
                kind.name.c_str());
    for (const std::string& name : order) {
        const Row& row = rows[name];
        std::string list;
        for (const std::string& one : row.found) list += (list.empty() ? "" : ", ") + one;
        std::printf("| %d | %s | %.1f | %s |\n", row.level, name.c_str(), row.seconds, list.c_str());
    }
    std::printf("\n| level |");
    for (int level = 1; level <= kLevels; ++level) std::printf(" %d |", level);
    std::printf("\n|---|");
    for (int level = 1; level <= kLevels; ++level) std::printf("---|");
    std::printf("\n| seconds of its checks |");
    for (int level = 1; level <= kLevels; ++level) std::printf(" %.1f |", levels[level]);
    std::printf("\n\n");
}

json CheckServer(const std::string& vrx, const Command& server, const Command& options) {
    Subprocess running(server);
    const std::string first = running.ReadLine();
    Command command = {vrx, "check", "server", "127.0.0.1", first.substr(first.rfind(':') + 1), "--json"};
    command.insert(command.end(), options.begin(), options.end());
    return Run(command);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 5) return 1;
    const std::string vrx = argv[1];
    const std::string plugin = argv[2];
    const std::string otherPlugin = argv[3];
    const std::string otherServer = argv[4];
    const auto checkPlugin = [&](const std::string& file, const Command& options) {
        Command command = {vrx, "check", "plugin", file, "--json"};
        command.insert(command.end(), options.begin(), options.end());
        return Run(command);
    };
    std::vector<WrongOne> wrongPlugins(std::begin(kWrongPlugins), std::end(kWrongPlugins));
    wrongPlugins.insert(wrongPlugins.end(), std::begin(kSlowWrongPlugins), std::end(kSlowWrongPlugins));
    PrintTable({"plug-in", wrongPlugins,
                [&](const std::string& wrong, const Command& options) {
                    ::setenv("VRX_WRONG", wrong.c_str(), 1);
                    json report = checkPlugin(otherPlugin, options);
                    ::unsetenv("VRX_WRONG");
                    return report;
                },
                [&] {
                    return checkPlugin(plugin, {"--level", "10"});
                }});
    std::vector<WrongOne> wrongServers(std::begin(kWrongServers), std::end(kWrongServers));
    wrongServers.insert(wrongServers.end(), std::begin(kSlowWrongServers), std::end(kSlowWrongServers));
    PrintTable({"server", wrongServers,
                [&](const std::string& wrong, const Command& options) {
                    return CheckServer(vrx, {otherServer, wrong}, options);
                },
                [&] {
                    return CheckServer(vrx, {vrx, "serve", "--quiet"}, {"--level", "10"});
                }});
    return 0;
}
