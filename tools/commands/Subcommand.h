#pragma once

#include "tools/program/Errors.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <sstream>
#include <string>

namespace vrx::tool {

/// A range check that adds nothing to the help text.
template <class Number>
CLI::Validator InRange(Number low, Number high) {
    return CLI::Range(low, high).description("");
}

/// A choice among words that adds nothing to the help text.
inline CLI::Validator OneOf(std::initializer_list<const char*> words) {
    return CLI::IsMember(std::vector<std::string>(words.begin(), words.end())).description("");
}

inline CLI::Validator IsPort() {
    return InRange(1, 65535);
}

/// "vrx check plugin" for that subcommand of a subcommand.
inline std::string FullName(const CLI::App& command) {
    const CLI::App* parent = command.get_parent();
    return parent == nullptr ? command.get_name() : FullName(*parent) + " " + command.get_name();
}

/// One subcommand while it is declared: its options, and what runs when the command line selects it. The options live as
/// long as `app`; this object may go as soon as they are declared.
template <class Options>
class Subcommand {
public:
    /// run      gets the options as the command line set them and returns the exit code; may throw Failure, which
    ///          becomes the line "vrx NAME: ..." on standard error and its exit code
    /// footer   what follows the options in the help text
    Subcommand(CLI::App& app, int& exitCode, const std::string& name, const char* summary,
               int (*run)(const Options&), const char* footer)
        : m_options(std::make_shared<Options>()), m_command(app.add_subcommand(name, summary)) {
        m_command->footer(footer);
        m_command->callback([options = m_options, run, who = FullName(*m_command), &exitCode] {
            exitCode = RunCommand(who.c_str(), [&] { return run(*options); });
        });
    }

    Options& Values() { return *m_options; }
    CLI::App& Command() { return *m_command; }

    /// An option, or an argument where `name` has no dashes; `type` stands behind its name in the help text.
    template <class Value>
    CLI::Option* Add(const char* name, Value& value, const char* type, const std::string& help) {
        return m_command->add_option(name, value, help)->type_name(type);
    }

    /// An option whose value here and now is its default, which the help text says.
    template <class Value>
    CLI::Option* AddWithDefault(const char* name, Value& value, const char* type, const std::string& help) {
        std::ostringstream text;
        text << help << " [" << value << "]";
        return Add(name, value, type, text.str());
    }

    void AddFlag(const char* name, bool& value, const char* help) { m_command->add_flag(name, value, help); }

    void AddJson(bool& json) { AddFlag("--json", json, "Print one JSON object"); }

private:
    std::shared_ptr<Options> m_options;
    CLI::App* m_command;
};

} // namespace vrx::tool
