// Compares what commands print with what a Markdown file shows.
//
//   console_blocks FILE                     runs the commands of FILE's ```console blocks
//   console_blocks FILE COMMAND < PRINTED   runs nothing: PRINTED is what COMMAND, shown in any block, has
//   printed
//
// In a block, a line that begins with "$ " is a command, and the lines up to the next one are all that it
// prints on both outputs; "..." stands for any number of lines. Numbers that differ from run to run are not
// compared (see Masked), nor is how many blanks stand in a row. Every command has to succeed.
//
// All commands of a file run in one temporary folder that is empty at first. A command that ends in "&" runs
// until the end of the file; it has to print the lines shown first, and the port that it names there takes
// the place of the shown one in the commands that follow.

#include "tests/support/Subprocess.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <list>
#include <map>
#include <regex>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

constexpr std::string_view kPrompt = "$ ";
constexpr std::string_view kFence = "```";
constexpr std::string_view kAnyLines = "...";
constexpr Subprocess::Milliseconds kLongest{120000};

struct Step {
    size_t line = 0; ///< where the command stands in the file, from 1
    std::string command;
    Lines shown;
};

Lines ReadLines(std::istream& in) {
    Lines lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

/// The commands of all blocks whose fence names `kind`; of every block for "".
std::vector<Step> ReadSteps(const std::string& file, std::string_view kind) {
    std::ifstream in(file);
    if (!in) throw std::runtime_error(file + ": cannot be read");
    std::vector<Step> steps;
    bool inBlock = false;
    bool wanted = false;
    bool afterCommand = false;
    size_t number = 0;
    for (const std::string& line : ReadLines(in)) {
        ++number;
        if (line.starts_with(kFence)) {
            inBlock = !inBlock;
            wanted = inBlock && (kind.empty() || line.substr(kFence.size()) == kind);
            afterCommand = false;
        } else if (wanted && line.starts_with(kPrompt)) {
            steps.push_back({number, line.substr(kPrompt.size()), {}});
            afterCommand = true;
        } else if (wanted && afterCommand) {
            steps.back().shown.push_back(line);
        }
    }
    return steps;
}

/// The line without what differs from run to run: numbers with a decimal point, times, percentages, cycle
/// figures, ports of 127.0.0.1, and the width of gaps.
std::string Masked(std::string line) {
    static const std::regex decimal(R"((^|[^\d.])\d+\.\d+(?!\d|\.\d))");
    static const std::regex measured(R"((^|[^\d.])\d+(?= ?(ns|us|ms|s)\b|%| (average|pump)\b))");
    static const std::regex port(R"((127\.0\.0\.1[: ])\d+)");
    static const std::regex gap(" +");
    static const std::regex end(" $");
    line = std::regex_replace(line, port, "$1N");
    line = std::regex_replace(line, decimal, "$1N");
    line = std::regex_replace(line, measured, "$1N");
    line = std::regex_replace(line, gap, " ");
    return std::regex_replace(line, end, "");
}

bool SameLine(const std::string& shown, const std::string& printed) {
    return Masked(shown) == Masked(printed);
}

bool SameLines(std::span<const std::string> shown, std::span<const std::string> printed) {
    if (shown.empty()) return printed.empty();
    if (shown.front() != kAnyLines) {
        return !printed.empty() && SameLine(shown.front(), printed.front()) &&
               SameLines(shown.subspan(1), printed.subspan(1));
    }
    for (size_t skipped = 0; skipped <= printed.size(); ++skipped) {
        if (SameLines(shown.subspan(1), printed.subspan(skipped))) return true;
    }
    return false;
}

/// Says on standard error what is not as shown. Returns false, which then is the step's result.
bool Differs(const std::string& file, const Step& step, const Lines& printed, const std::string& why = {}) {
    std::cerr << file << ':' << step.line << ": $ " << step.command << "\n  " << why << "shown:\n";
    for (const std::string& line : step.shown) std::cerr << "    " << line << '\n';
    std::cerr << "  printed:\n";
    for (const std::string& line : printed) std::cerr << "    " << line << '\n';
    return false;
}

/// A folder that is the current one while this object lives, and then is gone.
class TemporaryFolder {
public:
    TemporaryFolder() : m_before(std::filesystem::current_path()) {
        std::string name = std::filesystem::temp_directory_path() / "console_blocks.XXXXXX";
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error(name + ": cannot be made");
        m_path = name;
        std::filesystem::current_path(m_path);
    }
    ~TemporaryFolder() {
        std::error_code ignored; // a folder left behind is no reason to fail
        std::filesystem::current_path(m_before, ignored);
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

private:
    std::filesystem::path m_before;
    std::filesystem::path m_path;
};

/// Runs the commands of one file.
class Session {
public:
    explicit Session(const std::string& file) : m_file(file) {}

    /// Whether the command did what is shown.
    bool Run(const Step& step) {
        std::string command = step.command;
        for (const auto& [shown, real] : m_ports) {
            command = std::regex_replace(command, std::regex("\\b" + shown + "\\b"), real);
        }
        if (!command.ends_with('&')) return RunToEnd(step, command);
        command.pop_back();
        return Start(step, command);
    }

private:
    bool RunToEnd(const Step& step, const std::string& command) const {
        const Subprocess::Outcome end = RunProgram({"sh", "-c", "exec 2>&1\n" + command}, kLongest);
        std::istringstream out(end.out);
        const Lines printed = ReadLines(out);
        if (end.timedOut) return Differs(m_file, step, printed, "did not end; ");
        if (end.exitCode != 0) {
            return Differs(m_file, step, printed, "ended with " + std::to_string(end.exitCode) + "; ");
        }
        return SameLines(step.shown, printed) || Differs(m_file, step, printed);
    }

    bool Start(const Step& step, const std::string& command) {
        if (step.shown.empty()) return Differs(m_file, step, {}, "shows no line to wait for; ");
        Subprocess& program = m_background.emplace_back(Lines{"sh", "-c", "exec 2>&1\nexec " + command});
        Lines printed;
        for (const std::string& shown : step.shown) {
            printed.push_back(program.ReadLine(kLongest));
            NotePort(shown, printed.back());
        }
        return SameLines(step.shown, printed) || Differs(m_file, step, printed);
    }

    void NotePort(const std::string& shown, const std::string& printed) {
        static const std::regex port(R"(127\.0\.0\.1:(\d+))");
        std::smatch inShown;
        std::smatch inPrinted;
        if (!std::regex_search(shown, inShown, port) || !std::regex_search(printed, inPrinted, port)) return;
        m_ports[inShown[1]] = inPrinted[1];
    }

    std::string m_file;
    std::list<Subprocess> m_background;
    std::map<std::string, std::string> m_ports; // shown, real
};

bool RunFile(const std::string& file) {
    const std::vector<Step> steps = ReadSteps(file, "console");
    if (steps.empty()) throw std::runtime_error(file + ": shows no command in a ```console block");
    const TemporaryFolder folder;
    Session session(file);
    const auto failed =
        std::count_if(steps.begin(), steps.end(), [&](const Step& s) { return !session.Run(s); });
    std::cout << file << ": " << steps.size() << " commands run, " << failed << " differ\n";
    return failed == 0;
}

bool ComparePrinted(const std::string& file, const std::string& command) {
    const std::vector<Step> steps = ReadSteps(file, "");
    const auto step =
        std::find_if(steps.begin(), steps.end(), [&](const Step& s) { return s.command == command; });
    if (step == steps.end()) throw std::runtime_error(file + ": does not show the command " + command);
    const Lines printed = ReadLines(std::cin);
    return SameLines(step->shown, printed) || Differs(file, *step, printed);
}

} // namespace

int main(int argc, char** argv) try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() == 1) return RunFile(arguments[0]) ? 0 : 1;
    if (arguments.size() == 2) return ComparePrinted(arguments[0], arguments[1]) ? 0 : 1;
    std::cerr << "usage: console_blocks FILE [COMMAND]\n";
    return 2;
} catch (const std::exception& error) {
    std::cerr << "console_blocks: " << error.what() << '\n';
    return 1;
}
