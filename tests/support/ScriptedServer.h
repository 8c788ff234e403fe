#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

/// One accepted connection of a ScriptedServer, seen from the server. Every wait ends after ten seconds, or
/// when the server is being destroyed.
class Peer {
public:
    Peer(int socket, const std::atomic<bool>& stop) : m_socket(socket), m_stop(stop) {}
    ~Peer() { Close(); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// Reads up to and including a line feed; what came before a close otherwise.
    std::string ReadLine();
    /// Reads exactly so many bytes; fewer when the client closes.
    std::string Read(size_t count);
    /// Reads a whole command packet by its length word.
    std::string ReadPacket();
    /// Reads until the client closes; false when it does not.
    bool WaitForClose();

    void Send(std::string_view bytes);
    void Close();
    /// Closes with a reset instead of an end of stream.
    void Reset();

private:
    bool Readable();

    int m_socket;
    const std::atomic<bool>& m_stop;
};

/// A server on 127.0.0.1 at a port that the system picks. Its connections run the given scripts one after the
/// other, each closed when its script ends; later connections wait for an accept that never comes.
class ScriptedServer {
public:
    using Script = std::function<void(Peer&)>;

    explicit ScriptedServer(std::vector<Script> scripts);
    ~ScriptedServer();

    int Port() const { return m_port; }
    /// Waits for all scripts to end.
    void Join();

private:
    void Run(const std::vector<Script>& scripts);

    int m_listener = -1;
    int m_port = 0;
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
};

/// A port of 127.0.0.1 that refuses connections.
int RefusedPort();

/// The bytes of 32-bit little-endian words.
std::string Words(std::initializer_list<unsigned> words);
