#include "tools/checks/Probe.h"

#include "host/Plugin.h"
#include "tools/checks/CheckRunner.h"
#include "tools/checks/Expect.h"
#include "tools/checks/ServerBench.h"

#include <cstring>
#include <strings.h>

namespace vrx::tool {

namespace {

void LoadPlugin(Trial& trial) {
    std::string error;
    const bool loaded = host::Plugin::Load(trial.Target().file, error) != nullptr;
    Expect(loaded, "", error, "");
}

bool IsWeb(const std::string& answer) {
    const auto begins = [&answer](const char* text) {
        return ::strncasecmp(answer.c_str(), text, std::strlen(text)) == 0;
    };
    return begins("HTTP/") || begins("<html") || begins("<!doctype html");
}

void FindServer(Trial& trial) {
    const CheckTarget& target = trial.Target();
    const std::string place = target.Name();
    RawConnection connection(kServerPatience);
    const asio::error_code error = connection.Connect(ServerEndpoint(target));
    Expect(!error, "", "cannot connect to " + place + ": " + error.message() + "; is the server started?",
           "");
    std::string answer;
    asio::error_code ended = connection.Send(ServerConnectText(target));
    if (!ended) ended = connection.Receive(answer);
    Expect(!IsWeb(answer), "", place + " is a web server; name the port of the audio server", "");
    if (!answer.empty()) return;
    Expect(ended == asio::error::timed_out, "",
           place + " ends the connection without an answer; is it really this server that listens there?",
           "");
    RawConnection another(kServerPatience);
    if (!another.Connect(ServerEndpoint(target)) && !another.Send(ServerPinRequest(target)) &&
        !another.Receive(answer))
        return;
    Expect(false, "", place + " does not answer; is it really this server that listens there?", "");
}

} // namespace

std::string WhyNothingToCheck(const CheckTarget& target) {
    const bool plugin = target.kind == CheckTarget::kPlugin;
    const Check probe = {"probe", target.kind, 1, "", "", 40, plugin ? LoadPlugin : FindServer};
    const std::vector<CheckResult> results = RunChecks({&probe}, target, {});
    const bool failed = !results.empty() && results.front().state == CheckState::kFailed;
    return failed ? results.front().what.got : "";
}

} // namespace vrx::tool
