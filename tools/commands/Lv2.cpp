#include "host/InstalledFile.h"
#include "host/Plugin.h"
#include "tools/bundles/BundleFolder.h"
#include "tools/commands/Commands.h"
#include "tools/commands/ConnectionOptions.h"
#include "tools/commands/Subcommand.h"
#include "tools/program/Interrupt.h"
#include "tools/program/Numbers.h"
#include "tools/program/StandardOutput.h"
#include "tools/report/RunSummary.h"

namespace vrx::tool {

namespace {

struct AddOptions {
    ConnectionOptions server;
    std::string name;
    std::size_t channels = 2;
    std::size_t block = 0;
    std::size_t latency = 0;
    std::string late = "dry";
    std::string folder;
    bool force = false;
};

struct BundleListOptions {
    std::string folder;
    bool json = false;
};

struct RemoveOptions {
    std::string name;
    std::string folder;
};

/// The binary that all bundles link to. Throws Failure when it is not installed.
std::string FindBinary() {
    std::string binary = host::FindInstalled(std::string("vrx-lv2/") + lv2::kBinaryFile);
    if (!binary.empty()) return binary;
    throw Failure{kFileFailed, std::string("no vrx-lv2/") + lv2::kBinaryFile + " beside this program (" +
                                   host::ProgramFolder() + ") or in ../lib: install the package vrx-lv2"};
}

/// Where the talker lies. Throws Failure when it is not there, or no talker.
std::string FindTalker(const std::string& path) {
    std::string error;
    std::string file = host::Plugin::Locate(path, error);
    if (file.empty() || !host::Plugin::Load(file, error)) throw Failure{kFileFailed, error};
    return file;
}

int RunAdd(const AddOptions& options) {
    CatchInterrupts(); // whatever happens, the folder stays clean
    if (options.latency > 0 && options.latency < options.block)
        throw Failure{kWrongUsage, "--latency " + std::to_string(options.latency) +
                                       " is shorter than a block: it needs at least " +
                                       Counted(options.block, "frame")};
    lv2::BundleSettings settings;
    settings.name = options.name;
    settings.server = ResolveServer(options.server);
    settings.talker = FindTalker(options.server.plugin);
    settings.channels = options.channels;
    settings.blockFrames = options.block;
    settings.latencyFrames = options.latency;
    settings.silenceWhenLate = options.late == "silence";
    BundleFolder(options.folder).Add(settings, FindBinary(), options.force);
    Print(lv2::PluginUri(options.name) + "\n");
    return kDone;
}

int RunBundleList(const BundleListOptions& options) {
    const BundleFolder folder(options.folder);
    nlohmann::json plugins = nlohmann::json::array();
    std::string lines;
    for (const lv2::BundleSettings& settings : folder.List()) {
        const std::string uri = lv2::PluginUri(settings.name);
        lines += settings.name + "  " + uri + "  " + WithoutControls(settings.server.Place()) + "  " +
                 Counted(settings.channels, "channel") + "\n";
        plugins.push_back({{"name", settings.name},
                           {"uri", uri},
                           {"server", settings.server.host},
                           {"port", settings.server.port},
                           {"channels", settings.channels},
                           {"bundle", folder.PathOf(settings.name).string()}});
    }
    Print(options.json ? JsonLine({{"plugins", plugins}}) : lines);
    return kDone;
}

int RunRemove(const RemoveOptions& options) {
    CatchInterrupts();
    BundleFolder(options.folder).Remove(options.name);
    return kDone;
}

constexpr char kAddFooter[] =
    "Prints the plug-in's URI. The server need not be there yet: hosts load the plug-in\n"
    "at once, and it connects while they play. For another server add another name,\n"
    "or add the same one with --force and reload it in the host.\n"
    "\n"
    "Examples:\n"
    "  vrx lv2 add studio --server 192.168.1.20 --servport 7000\n"
    "  vrx lv2 add voice --servport 7000 --channels 1 --latency 1024";

template <class Options>
void AddFolder(Subcommand<Options>& command) {
    command.Add("--dir", command.Values().folder, "FOLDER", "The folder of the bundles [~/.lv2]");
}

void AddAdd(CLI::App& lv2, int& exitCode) {
    Subcommand<AddOptions> command(lv2, exitCode, "add", "Make a plug-in for a server", RunAdd, kAddFooter);
    AddOptions& options = command.Values();
    command.Add("NAME", options.name, "", "What the plug-in is called")->required();
    AddConnectionOptions(command.Command(), options.server);
    command.AddWithDefault("--channels", options.channels, "N", "Audio inputs and outputs, 1 to 64")
        ->check(InRange<std::size_t>(1, lv2::kMostChannels));
    command.Add("--block", options.block, "FRAMES", "Frames sent at a time [what suits the host]")
        ->check(InRange<std::size_t>(1, lv2::kMostLatency));
    command.Add("--latency", options.latency, "FRAMES", "The delay, at least a block [what suits the host]")
        ->check(InRange<std::size_t>(1, lv2::kMostLatency));
    command
        .AddWithDefault("--late", options.late, "dry|silence",
                        "What takes the place of a block that is too late")
        ->check(OneOf({"dry", "silence"}));
    AddFolder(command);
    command.AddFlag("--force", options.force, "Replace a plug-in of the same name");
}

} // namespace

void AddLv2(CLI::App& app, int& exitCode) {
    CLI::App* lv2 = app.add_subcommand("lv2", "Make, list and remove LV2 plug-ins, one a server");
    lv2->require_subcommand(1);
    lv2->footer("More on each: vrx lv2 COMMAND --help");
    AddAdd(*lv2, exitCode);

    Subcommand<BundleListOptions> list(*lv2, exitCode, "list", "List the plug-ins", RunBundleList,
                                       "One line each: name, URI, server, channels.");
    AddFolder(list);
    list.AddJson(list.Values().json);

    Subcommand<RemoveOptions> remove(*lv2, exitCode, "remove", "Remove a plug-in", RunRemove,
                                     "Exit code 2 when there is no plug-in of that name.");
    remove.Add("NAME", remove.Values().name, "", "What the plug-in is called")->required();
    AddFolder(remove);
}

} // namespace vrx::tool
