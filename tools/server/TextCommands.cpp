#include "tools/server/TextCommands.h"

#include "tools/wire/ServerProtocol.h"

#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

namespace vrx::tool {

namespace {

bool IsDecimal(std::string_view text) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

std::string AnswerConnect(std::string_view arguments) {
    const size_t comma = arguments.rfind(',');
    if (comma == arguments.npos || !IsDecimal(arguments.substr(comma + 1))) {
        return "error: connect is written connect,HOST,PORT";
    }
    return "connected";
}

std::string AnswerStatus(const ServerFigures& figures) {
    char line[160];
    (void)std::snprintf(line, sizeof line, "clients=%zu packets=%llu errors=%llu uptime=%.1fs",
                        figures.clients, static_cast<unsigned long long>(figures.packets),
                        static_cast<unsigned long long>(figures.errors), figures.uptimeSeconds);
    return line;
}

double Thousandths(double value) {
    return std::round(value * 1000) / 1000;
}

std::string AnswerStatusJson(const ServerFigures& figures) {
    return nlohmann::ordered_json{
        {"clients", figures.clients},      {"packets", figures.packets},
        {"errors", figures.errors},        {"uptime", Thousandths(figures.uptimeSeconds)},
        {"blocks", figures.blocks},        {"busy", Thousandths(figures.busy)},
        {"latency", figures.latencyFrames}}
        .dump();
}

} // namespace

std::string AnswerLine(std::string_view line, const ServerFigures& figures) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.starts_with(kConnectCommand)) return AnswerConnect(line.substr(kConnectCommand.size()));
    if (line == "help") {
        return "commands: connect,HOST,PORT; help; status. Packets: command 0x3A on .samples[0] and .info1";
    }
    if (line == "status") return AnswerStatus(figures);
    if (line == "status json") return AnswerStatusJson(figures);
    return "error: unknown command '" + Printable(line) + "'; try help";
}

} // namespace vrx::tool
