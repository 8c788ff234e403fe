#include "tools/commands/ConnectionOptions.h"

#include "base/StringMap.h"
#include "tools/commands/RecordOption.h"
#include "tools/commands/Subcommand.h"
#include "tools/program/Errors.h"

#include <cstdlib>
#include <vector>

namespace vrx::tool {

namespace {

constexpr const char* kKeys[] = {"server", "servport", "clport", "input", "output", "layout"};

string_map Parse(const std::string& args) {
    string_map values;
    values.Split(args.c_str(), 0);
    return values;
}

/// As the talker reads it.
int ReadNumber(const std::string& text) {
    return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

/// Joins the options to an argument line that the talker reads back as the same values.
std::string ArgumentLine(const ConnectionOptions& options) {
    if (options.servport == 0)
        throw Failure{kWrongUsage, "no server port given: add --servport PORT (vrx serve prints its port)"};
    const std::string values[] = {options.server,
                                  std::to_string(options.servport),
                                  std::to_string(options.clport),
                                  options.input,
                                  options.output,
                                  options.layout};
    std::string line;
    for (size_t i = 0; i < std::size(kKeys); ++i)
        line += (i > 0 ? "," : "") + std::string(kKeys[i]) + "=" + values[i];

    const string_map parsed = Parse(line);
    for (size_t i = 0; i < std::size(kKeys); ++i) {
        const auto found = parsed.find(kKeys[i]);
        if (found != parsed.end() && found->second == values[i]) continue;
        throw Failure{kWrongUsage,
                      std::string("--") + kKeys[i] + " '" + values[i] +
                          "' cannot be passed to the talker: use a value that is not empty and has no "
                          "commas and no blanks at its ends"};
    }
    return line;
}

template <class Value>
CLI::Option* Add(CLI::App& command, const char* name, Value& value, const char* type, const char* help) {
    return command.add_option(name, value, help)->type_name(type);
}

std::vector<CLI::Option*> AddObjects(CLI::App& command, ConnectionOptions& options) {
    return {
        Add(command, "--clport", options.clport, "PORT", "Client port number told to the server [0]"),
        Add(command, "--input", options.input, "NAME", "The server's input object [In]"),
        Add(command, "--output", options.output, "NAME", "The server's output object [Out]"),
        Add(command, "--layout", options.layout, "NAME", "The server's layout [Main]"),
    };
}

void AddPlugin(CLI::App& command, ConnectionOptions& options) {
    Add(command, "--plugin", options.plugin, "PATH",
        "The talker's shared library [beside vrx, or in ../lib]");
}

} // namespace

void AddObjectOptions(CLI::App& command, ConnectionOptions& options) {
    AddObjects(command, options);
    AddPlugin(command, options);
}

void AddConnectionOptions(CLI::App& command, ConnectionOptions& options) {
    std::vector<CLI::Option*> single = {
        Add(command, "--server", options.server, "HOST", "Host name or IPv4 address [127.0.0.1]"),
        Add(command, "--servport", options.servport, "PORT", "TCP port of the server")->check(IsPort()),
    };
    const std::vector<CLI::Option*> objects = AddObjects(command, options);
    single.insert(single.end(), objects.begin(), objects.end());
    const CLI::Option* whole =
        Add(command, "--args", options.args, "LIST", "These six as one \"server=...,servport=...,...\"");
    AddPlugin(command, options);
    AddRecordOption(command, options.record);
    command.parse_complete_callback([single, whole] {
        for (const CLI::Option* option : single)
            if (whole->count() > 0 && option->count() > 0)
                throw CLI::ExcludesError("--args", option->get_name());
    });
}

host::ServerSettings ResolveServer(const ConnectionOptions& options) {
    host::ServerSettings server;
    server.args = options.args.empty() ? ArgumentLine(options) : options.args;
    const string_map values = Parse(server.args);
    for (const char* key : kKeys)
        if (!values.contains(key))
            throw Failure{kWrongUsage,
                          std::string("--args lacks '") + key +
                              "': it needs all six keys, as in "
                              "\"server=127.0.0.1,servport=7000,clport=0,input=In,output=Out,layout=Main\""};
    server.host = values.at("server");
    server.port = ReadNumber(values.at("servport"));
    server.clientPort = ReadNumber(values.at("clport"));
    server.input = values.at("input");
    server.output = values.at("output");
    server.layout = values.at("layout");
    return server;
}

} // namespace vrx::tool
