#pragma once

#include "tests/support/Subprocess.h"

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <unistd.h>

/// A JACK server with a dummy driver, for this process and the programs that it starts; it waits for its clients in every
/// period, so that a busy machine disturbs no recording. Ends by SIGTERM: a killed one
/// would leave its place among the machine's few servers taken. Its lines go nowhere: an unread pipe would hold
/// it up.
class JackServer {
public:
    explicit JackServer(const std::string& name, int period = 256)
        : m_name(name), m_process({"sh", "-c",
                                   "exec jackd -r -S -n " + name + " -d dummy -r 48000 -p " +
                                       std::to_string(period) + " >/dev/null 2>&1"}) {
        Use();
        const Subprocess::Outcome up = RunProgram({"jack_wait", "-w", "-t", "20"});
        m_up = up.exitCode == 0;
    }
    ~JackServer() { Stop(); }

    /// Makes this the server that clients look for.
    void Use() const { ::setenv("JACK_DEFAULT_SERVER", m_name.c_str(), 1); }
    bool Up() const { return m_up; }
    void Stop() {
        if (!m_running) return;
        m_running = false;
        m_process.Signal(SIGTERM);
        m_process.Wait();
    }

    /// Whether the programs are there that a server and its tests need.
    static bool Installed() {
        return std::system("command -v jackd jack_wait jack_freewheel jack_bufsize jack_lsp >/dev/null") == 0;
    }

private:
    std::string m_name;
    Subprocess m_process;
    bool m_up = false;
    bool m_running = true;
};
