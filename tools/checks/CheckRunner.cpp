#include "tools/checks/CheckRunner.h"

#include "tools/checks/ProcessState.h"
#include "tools/checks/StubServer.h"
#include "tools/program/Errors.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace vrx::tool {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kBetweenLooks{5};
constexpr std::size_t kNoteBytes = 256;
constexpr std::size_t kOutputKept = 2000;
constexpr char kNoTimeLeft[] = "the time for all checks was over";

/// A file in memory that a child writes and its parent reads.
class SharedFile {
public:
    explicit SharedFile(const char* name) : m_file(::memfd_create(name, MFD_CLOEXEC)) {
        if (m_file < 0) throw Failure{kRunFailed, std::string("cannot make a file: ") + std::strerror(errno)};
    }
    ~SharedFile() { ::close(m_file); }
    SharedFile(const SharedFile&) = delete;
    SharedFile& operator=(const SharedFile&) = delete;

    int Descriptor() const { return m_file; }

    std::string Read() const {
        std::string text;
        char piece[4096];
        for (ssize_t n; (n = ::pread(m_file, piece, sizeof piece, static_cast<off_t>(text.size()))) > 0;)
            text.append(piece, static_cast<std::size_t>(n));
        return text;
    }

private:
    int m_file;
};

/// Memory that a child writes and its parent reads, even when the child crashes.
class SharedNote {
public:
    SharedNote()
        : m_memory(::mmap(nullptr, kNoteBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        if (m_memory == MAP_FAILED) throw Failure{kRunFailed, "no memory for a check"};
    }
    ~SharedNote() { ::munmap(m_memory, kNoteBytes); }
    SharedNote(const SharedNote&) = delete;
    SharedNote& operator=(const SharedNote&) = delete;

    std::span<char> Room() const { return {static_cast<char*>(m_memory), kNoteBytes}; }
    std::string Text() const { return static_cast<const char*>(m_memory); }

private:
    void* m_memory;
};

/// FNV-1a: the same in every build, unlike std::hash.
std::uint64_t SeedOf(const Check& check, std::uint64_t seed) {
    std::uint64_t hash = 14695981039346656037U ^ seed;
    for (const char* c = check.name; *c != '\0'; ++c)
        hash = (hash ^ static_cast<unsigned char>(*c)) * 1099511628211U;
    return hash;
}

nlohmann::json Report(CheckState state, const Observation& what) {
    return {{"state", static_cast<int>(state)},
            {"expected", what.expected},
            {"got", what.got},
            {"means", what.means}};
}

/// In the child: runs the check and says what came of it.
nlohmann::json Outcome(const Check& check, Trial& trial) {
    try {
        check.run(trial);
    } catch (const Mismatch& mismatch) {
        return Report(CheckState::kFailed, mismatch.what);
    } catch (const Untried& untried) {
        return Report(CheckState::kSkipped, {"", untried.why, ""});
    } catch (const Failure& failure) { // of the check itself
        return Report(CheckState::kSkipped, {"", failure.message, ""});
    } catch (const std::exception& error) {
        return Report(CheckState::kFailed, {"no exception", std::string("an exception: ") + error.what(),
                                            "a host that does not catch it ends"});
    } catch (...) {
        return Report(CheckState::kFailed, {"no exception", "an exception of an unknown type",
                                            "a host that does not catch it ends"});
    }
    const bool warned = !trial.Warning().got.empty();
    return Report(warned ? CheckState::kWarned : CheckState::kPassed, trial.Warning());
}

/// One check in its process.
class Child {
public:
    Child(const Check& check, const CheckTarget& target)
        : m_check(check), m_report("report"), m_output("output"), m_began(Clock::now()) {
        const pid_t parent = ::getpid();
        m_pid = ::fork();
        if (m_pid < 0)
            throw Failure{kRunFailed, std::string("cannot start a check: ") + std::strerror(errno)};
        if (m_pid == 0) RunAsChild(target, parent);
        ::setpgid(m_pid, m_pid); // also here: whoever comes first
    }
    ~Child() {
        if (!m_ended) {
            ::kill(-m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /// The result once the process has ended, or has been ended because its time was up.
    std::optional<CheckResult> Look(Clock::time_point noLongerThan) {
        siginfo_t ended{};
        if (::waitid(P_PID, static_cast<id_t>(m_pid), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            ended.si_pid == m_pid)
            return Finish(kEnded);
        if (TimeIsUp()) return Finish(kTimeIsUp);
        if (Clock::now() < noLongerThan) return std::nullopt;
        return Finish(kAllTimeIsUp);
    }

private:
    enum Why { kEnded, kTimeIsUp, kAllTimeIsUp };

    /// On a busy machine the time spent waiting for a processor is not the check's own; but nobody waits for ever.
    bool TimeIsUp() const {
        constexpr int kMostTimes = 10;
        const std::chrono::seconds own(m_check.seconds);
        const auto taken = Clock::now() - m_began;
        return taken >= own &&
               taken >= own + std::min<Clock::duration>(kMostTimes * own, WaitedForProcessor(m_pid));
    }

    [[noreturn]] void RunAsChild(const CheckTarget& target, pid_t parent) {
        ::setpgid(0, 0);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) ::_exit(kRunFailed);
        for (const int number : {SIGINT, SIGTERM, SIGPIPE}) (void)std::signal(number, SIG_DFL);
        const rlimit noCore{0, 0};
        ::setrlimit(RLIMIT_CORE, &noCore);
        const int nothing = ::open("/dev/null", O_RDWR | O_CLOEXEC);
        ::dup2(nothing, STDIN_FILENO);
        ::dup2(nothing, STDOUT_FILENO);
        ::dup2(m_output.Descriptor(), STDERR_FILENO);
        ::close(nothing);
        StubServer::RecordTo(WireTap(target.recorderTap));
        Trial trial(target, SeedOf(m_check, target.seed), m_note.Room());
        const std::string text =
            Outcome(m_check, trial).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
        const bool written =
            ::write(m_report.Descriptor(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
        ::_exit(written ? kDone : kRunFailed);
    }

    /// Ends what is left of the group before the process is reaped, while its number is still its own.
    CheckResult Finish(Why why) {
        int status = 0;
        ::kill(-m_pid, SIGKILL);
        ::waitpid(m_pid, &status, 0);
        m_ended = true;
        CheckResult result;
        result.check = &m_check;
        result.seconds = std::chrono::duration<double>(Clock::now() - m_began).count();
        result.output = m_output.Read();
        if (result.output.size() > kOutputKept) result.output.erase(0, result.output.size() - kOutputKept);
        const auto report = nlohmann::json::parse(m_report.Read(), nullptr, false);
        if (report.is_object()) {
            result.state = static_cast<CheckState>(report.at("state").get<int>());
            result.what = {report.at("expected"), report.at("got"), report.at("means")};
        } else if (why == kAllTimeIsUp) {
            result.what.got = kNoTimeLeft;
        } else if (why == kTimeIsUp) {
            result.state = CheckState::kTimedOut;
            result.what = {"an end within " + std::to_string(m_check.seconds) + " s",
                           "still busy: " + Doing(), "whoever does the same waits without end"};
        } else {
            result.state = CheckState::kCrashed;
            result.what = {"the process lives on", How(status) + ": " + Doing(),
                           "the program around it ends with it"};
        }
        return result;
    }

    std::string Doing() const {
        const std::string note = m_note.Text();
        return note.empty() ? "at the start" : note;
    }

    static std::string How(int status) {
        if (!WIFSIGNALED(status))
            return "the process was ended with exit code " + std::to_string(WEXITSTATUS(status));
        const char* name = ::sigabbrev_np(WTERMSIG(status));
        return std::string("ended by SIG") + (name != nullptr ? name : std::to_string(WTERMSIG(status)));
    }

    const Check& m_check;
    SharedFile m_report;
    SharedFile m_output;
    SharedNote m_note;
    Clock::time_point m_began;
    pid_t m_pid = -1;
    bool m_ended = false;
};

CheckResult Skipped(const Check& check, std::string why) {
    CheckResult result;
    result.check = &check;
    result.what.got = std::move(why);
    return result;
}

/// Starts checks while there is room, and collects their results.
class Run {
public:
    Run(const std::vector<const Check*>& checks, const CheckTarget& target, const RunOptions& options)
        : m_checks(checks), m_target(target), m_options(options), m_results(checks.size()),
          m_children(checks.size()), m_end(Clock::now() + options.limit) {}

    std::vector<CheckResult> Finish() {
        while (m_reported < m_checks.size() && !(m_options.stopped && m_options.stopped())) {
            Collect();
            Start();
            ReportInOrder();
            if (m_reported < m_checks.size()) std::this_thread::sleep_for(kBetweenLooks);
        }
        std::vector<CheckResult> results;
        for (std::size_t i = 0; i < m_reported; ++i) results.push_back(*m_results[i]);
        return results;
    }

private:
    void Collect() {
        for (std::size_t i = 0; i < m_checks.size(); ++i) {
            if (!m_children[i]) continue;
            m_results[i] = m_children[i]->Look(m_end);
            if (!m_results[i]) continue;
            m_children[i].reset();
            --m_running;
        }
    }

    void Start() {
        for (std::size_t i = 0; i < m_checks.size() && m_running < m_options.atOnce; ++i) {
            if (m_results[i] || m_children[i]) continue;
            if (Clock::now() >= m_end) {
                m_results[i] = Skipped(*m_checks[i], kNoTimeLeft);
                continue;
            }
            const auto [pending, failed] = Needed(*m_checks[i]);
            if (pending) continue;
            if (failed) {
                m_results[i] = Skipped(*m_checks[i], std::string("it needs '") + m_checks[i]->needs + "'");
                continue;
            }
            m_children[i] = std::make_unique<Child>(*m_checks[i], m_target);
            ++m_running;
        }
    }

    struct Need {
        bool pending = false;
        bool failed = false;
    };
    Need Needed(const Check& check) const {
        for (std::size_t i = 0; i < m_checks.size(); ++i) {
            if (std::strcmp(m_checks[i]->name, check.needs) != 0) continue;
            if (!m_results[i]) return {true, false};
            return {false, IsWrong(m_results[i]->state) || m_results[i]->state == CheckState::kSkipped};
        }
        return {};
    }

    void ReportInOrder() {
        for (; m_reported < m_checks.size() && m_results[m_reported]; ++m_reported)
            if (m_options.ended) m_options.ended(*m_results[m_reported]);
    }

    const std::vector<const Check*>& m_checks;
    const CheckTarget& m_target;
    const RunOptions& m_options;
    std::vector<std::optional<CheckResult>> m_results;
    std::vector<std::unique_ptr<Child>> m_children;
    std::size_t m_running = 0;
    std::size_t m_reported = 0;
    Clock::time_point m_end;
};

} // namespace

void Trial::Doing(std::string_view what) {
    const std::size_t length = std::min(what.size(), m_doing.size() - 1);
    std::memcpy(m_doing.data(), what.data(), length);
    m_doing[length] = '\0';
}

void Trial::Warn(Observation what) {
    if (m_warning.got.empty()) m_warning = std::move(what);
}

const char* StateName(CheckState state) {
    constexpr std::array<const char*, kCheckStates> kNames = {"passed",    "failed", "crashed",
                                                              "timed_out", "warned", "skipped"};
    return kNames.at(static_cast<std::size_t>(state));
}

std::vector<CheckResult> RunChecks(const std::vector<const Check*>& checks, const CheckTarget& target,
                                   const RunOptions& options) {
    return Run(checks, target, options).Finish();
}

} // namespace vrx::tool
