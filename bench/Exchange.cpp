#include "bench/Exchange.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {
namespace {

constexpr size_t kBufferBytes = 1 << 20;
constexpr uint32_t kPacketMarker = 0x07FF0003;
constexpr uint32_t kObjectCommand = 0x3A;
constexpr size_t kRequestHead = 20;
constexpr const char* kPath = "Main,In.samples[0],Out.samples[0]";

uint32_t WordAt(const char* bytes, size_t word) {
    uint32_t value;
    std::memcpy(&value, bytes + 4 * word, sizeof value);
    return value;
}

/// For what must not fail here: ends the process and names the call.
template <class Number>
Number Must(const char* call, Number result) {
    if (result >= 0) return result;
    std::perror(call);
    std::exit(1);
}

sockaddr_in Loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void SendAtOnce(int socket) {
    const int on = 1;
    Must("setsockopt", ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on));
}

int Accept(const Listener& listener) {
    const int connection = Must("accept", ::accept(listener.Socket(), nullptr, nullptr));
    SendAtOnce(connection);
    return connection;
}

bool IsComplete(const char* request, size_t bytes) {
    if (bytes < 8) return bytes > 0 && request[bytes - 1] == '\n';
    return WordAt(request, 0) == kPacketMarker ? bytes >= WordAt(request, 1) : request[bytes - 1] == '\n';
}

/// Answers one request: a packet with its reply, a line with a line. False at the end of the connection.
bool AnswerOne(int connection) {
    static char request[kBufferBytes];
    static char reply[kBufferBytes];
    size_t bytes = 0;
    do {
        const ssize_t got = ::recv(connection, request + bytes, kBufferBytes - bytes, 0);
        if (got <= 0) return false;
        bytes += static_cast<size_t>(got);
    } while (!IsComplete(request, bytes));

    if (WordAt(request, 0) != kPacketMarker) return ::send(connection, "ready\n", 6, MSG_NOSIGNAL) > 0;
    return ::send(connection, reply, WriteReply(request, reply), MSG_NOSIGNAL) > 0;
}

} // namespace

Descriptor::~Descriptor() {
    if (m_descriptor >= 0) ::close(m_descriptor);
}

Listener::Listener() : m_socket(Must("socket", ::socket(AF_INET, SOCK_STREAM, 0))) {
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    Must("bind", ::bind(m_socket, any, size));
    Must("listen", ::listen(m_socket, SOMAXCONN));
    Must("getsockname", ::getsockname(m_socket, any, &size));
    m_port = ntohs(address.sin_port);
}

ChildProcess::ChildProcess(const std::function<void()>& run) : m_pid(Must("fork", ::fork())) {
    if (m_pid != 0) return;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL); // never outlives the benchmark
    PinTo(kServerCore);
    run();
    ::_exit(0);
}

ChildProcess::~ChildProcess() {
    ::kill(m_pid, SIGKILL);
    ::waitpid(m_pid, nullptr, 0);
}

void PinTo(int core) {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(static_cast<size_t>(core), &cores);
    (void)::sched_setaffinity(0, sizeof cores, &cores); // a machine of one core has no choice
}

std::vector<char> Request(const std::vector<uint32_t>& words) {
    const size_t textBytes = (std::strlen(kPath) | 3) + 1;
    std::vector<char> packet(kRequestHead + 4 * words.size() + textBytes);
    const auto count = static_cast<uint32_t>(words.size());
    const uint32_t head[] = {kPacketMarker, static_cast<uint32_t>(packet.size()), count + 1, kObjectCommand,
                             count + 3};
    std::memcpy(packet.data(), head, sizeof head);
    std::memcpy(packet.data() + kRequestHead, words.data(), 4 * words.size());
    std::memcpy(packet.data() + kRequestHead + 4 * words.size(), kPath, std::strlen(kPath));
    return packet;
}

size_t WriteReply(const char* request, char* reply) {
    const uint32_t words = WordAt(request, 2) - 1;
    const uint32_t bytes = static_cast<uint32_t>(kReplyHead) + 4 * words;
    const uint32_t head[] = {kPacketMarker, bytes, words + 3, kObjectCommand, 0, 256, 256};
    std::memcpy(reply, head, sizeof head);
    std::memcpy(reply + kReplyHead, request + kRequestHead, 4 * words);
    return bytes;
}

void ServeInTurns(const Listener& listener, int connections, int turn) {
    std::vector<int> open;
    while (static_cast<int>(open.size()) < connections) {
        open.push_back(Accept(listener));
        AnswerOne(open.back());
    }
    for (;;) {
        for (const int connection : open) {
            for (int i = 0; i < turn; ++i) {
                if (!AnswerOne(connection)) return;
            }
        }
    }
}

void ServeAnyone(const Listener& listener) {
    std::vector<pollfd> sockets{{listener.Socket(), POLLIN, 0}};
    for (;;) {
        Must("poll", ::poll(sockets.data(), sockets.size(), -1));
        for (size_t i = sockets.size(); i-- > 1;) {
            if (sockets[i].revents == 0 || AnswerOne(sockets[i].fd)) continue;
            ::close(sockets[i].fd);
            sockets.erase(sockets.begin() + static_cast<std::ptrdiff_t>(i));
        }
        if (sockets[0].revents != 0) sockets.push_back({Accept(listener), POLLIN, 0});
    }
}

BareConnection::BareConnection(int port)
    : m_socket(Must("socket", ::socket(AF_INET, SOCK_STREAM, 0))),
      m_buffer(std::make_unique_for_overwrite<char[]>(kBufferBytes)) {
    const sockaddr_in address = Loopback(port);
    SendAtOnce(m_socket);
    Must("connect", ::connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    Send("connect,127.0.0.1,1\n", 20);
    Must("recv", Receive());
}

void BareConnection::Send(const char* bytes, size_t count) const {
    Must("send", ::send(m_socket, bytes, count, MSG_NOSIGNAL));
}

ssize_t BareConnection::Receive() {
    return ::recv(m_socket, m_buffer.get(), kBufferBytes, 0);
}

std::string TalkerSettings(int port) {
    return "server=127.0.0.1, servport=" + std::to_string(port) +
           ", clport=1, input=In, output=Out, layout=Main";
}

} // namespace bench
