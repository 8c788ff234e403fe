// A small server of another make: a thread for each client, a gain of a half, its own words. It is right; with the
// name of one of the switches below as its argument it is wrong in that one way. Prints its port.

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <bit>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using std::chrono::milliseconds;

constexpr std::uint32_t kTag = 0x07FF0003;
constexpr std::size_t kLargest = 1 << 20;

std::string chosen;
float shared = 0;
std::atomic<unsigned> asked = 0;
std::atomic<int> clients = 0;

bool Is(const char* name) {
    return chosen == name;
}

std::uint32_t WordAt(std::string_view bytes, std::size_t at) {
    std::uint32_t word = 0;
    if (at + 4 <= bytes.size()) std::memcpy(&word, bytes.data() + at, 4);
    return word;
}

void PutWord(std::string& bytes, std::uint32_t word) {
    bytes.append(reinterpret_cast<const char*>(&word), 4);
}

std::string Packet(std::uint32_t status, const std::vector<std::uint32_t>& data) {
    std::string bytes;
    PutWord(bytes, Is("wrong-marker") ? kTag + 1 : kTag);
    PutWord(bytes, static_cast<std::uint32_t>(28 + 4 * data.size() + (Is("length-counts-more") ? 4 : 0)));
    PutWord(bytes, 0);
    PutWord(bytes, 0);
    PutWord(bytes, status);
    PutWord(bytes, 0x100);
    PutWord(bytes, 0x100);
    for (const std::uint32_t word : data) PutWord(bytes, word);
    return bytes;
}

class Client {
public:
    explicit Client(int socket) : m_socket(socket) {}
    ~Client() {
        if (!Is("keeps-sockets")) ::close(m_socket);
    }

    void Serve() {
        if (Is("greets")) Send("welcome\n");
        while (Fill(1)) {
            const std::string_view tag("\x03\x00\xFF\x07", 4);
            const bool packet = m_bytes[0] == tag[0] && Fill(8) && m_bytes.starts_with(tag);
            if (packet ? !AnswerPacket() : !AnswerLine()) return;
            if (Is("forgets-the-rest")) m_bytes.clear();
        }
    }

private:
    /// Waits until so many bytes are there.
    bool Fill(std::size_t count) {
        while (m_bytes.size() < count) {
            char piece[65536];
            const ssize_t got = ::recv(m_socket, piece, sizeof piece, 0);
            if (got <= 0) return false;
            m_bytes.append(piece, static_cast<std::size_t>(got));
            if (Is("drops-carriage-returns")) std::erase(m_bytes, '\r');
            if (Is("needs-whole-requests") && m_bytes.size() < count) m_bytes.clear();
        }
        return true;
    }

    void Send(const std::string& bytes) const {
        const std::size_t cut = Is("two-pieces") ? 28 : Is("pieces-of-1024") ? 1024 : bytes.size();
        const std::size_t first = std::min(cut, bytes.size());
        if (::send(m_socket, bytes.data(), first, MSG_NOSIGNAL) <= 0 || first == bytes.size()) return;
        std::this_thread::sleep_for(milliseconds(1));
        (void)::send(m_socket, bytes.data() + first, bytes.size() - first, MSG_NOSIGNAL);
    }

    bool AnswerLine() {
        static std::mutex lines;
        const std::unique_lock lock =
            Is("lines-hold-up") ? std::unique_lock(lines) : std::unique_lock<std::mutex>();
        const std::size_t most = Is("lines-hold-up") ? std::string::npos : kLargest;
        std::size_t feed = 0;
        while ((feed = m_bytes.find('\n')) == m_bytes.npos) {
            if (Is("lines-of-4096") && m_bytes.size() >= 4096) m_bytes.insert(4096, "\n");
            if (Is("lines-of-4096") && m_bytes.size() > 4096) continue;
            if (m_bytes.size() > most || !Fill(m_bytes.size() + 1)) return false;
        }
        const std::string line = m_bytes.substr(0, feed);
        m_bytes.erase(0, feed + 1);
        const bool connect = line.starts_with("connect,");
        if (connect && Is("silent-connect")) return true;
        if (connect && Is("connects-once") && m_connected) return true;
        m_connected = m_connected || connect;
        if (!connect && Is("ignores-text")) return true;
        if (!connect && Is("closes-on-text")) return false;
        if (!connect && Is("text-answers-twice")) Send("what?\n");
        if (Is("status-in-two-lines") && line == "status") Send("fine\n");
        Send(Is("no-line-feed")           ? "hello"
             : Is("zero-in-line")         ? std::string("hel\0lo\n", 7)
             : connect && Is("two-lines") ? "hello\nthere\n"
             : connect                    ? "hello\n"
                                          : "what?\n");
        return true;
    }

    bool Refuse(const char* why) const {
        Send(std::string("no: ") + why + "\n");
        return true;
    }

    bool AnswerPacket() {
        const std::size_t length = WordAt(m_bytes, 4);
        if (Is("dies-on-long-lengths") && length > kLargest) std::abort();
        if (Is("trusts-lengths") && length < 20) std::abort();
        if (Is("waits-for-short-lengths") && length < 20) return Fill(kLargest);
        if (length < 24 || length > kLargest) {
            Send("no: length\n");
            return false;
        }
        if (!Fill(length)) {
            if (Is("dies-on-cut")) std::abort();
            return false;
        }
        const std::string packet = m_bytes.substr(0, length);
        m_bytes.erase(0, length);
        if (Is("ignores-strangers") && !m_connected) return true;
        if (Is("refuses-strangers") && !m_connected) return Refuse("who are you?");
        return Answer(packet);
    }

    bool Answer(const std::string& packet) {
        const std::size_t arguments = WordAt(packet, 8);
        const std::size_t wanted = WordAt(packet, 16);
        if (WordAt(packet, 12) != 0x3A) return Is("closes-on-command") ? false : Refuse("command");
        if (Is("trusts-counts") && wanted > kLargest) std::abort();
        if (arguments == 0 || arguments > packet.size() / 4 || wanted < 3 || wanted > kLargest / 4)
            return Refuse("counts");
        const std::string path = packet.c_str() + 16 + 4 * arguments;
        if (Is("dies-on-unended-paths") && packet.back() != '\0') std::abort();
        if (path.find(".info1") != path.npos) return AnswerPins(path, wanted - 3);
        if (path != "Main,In.samples[0],Out.samples[0]")
            return Is("ignores-unknown-names") ? true : Is("closes-on-names") ? false : Refuse("names");
        std::vector<std::uint32_t> data(wanted - 3);
        for (std::size_t i = 0; i < data.size() && i + 1 < arguments; ++i)
            data[i] = Half(WordAt(packet, 20 + 4 * i));
        if (Is("one-word-short") && !data.empty()) data.pop_back();
        if (Is("input-count")) data.resize(arguments - 1);
        if (Is("whole-vectors")) data.resize(data.size() / 4 * 4);
        if (Is("one-buffer")) data = ThroughOneBuffer(data);
        if (Is("thousand-words") && data.size() > 1000) data.resize(1000);
        if (Is("nan") && !data.empty()) data.back() = 0x7FC00000;
        if (Is("short-at-2040") && data.size() > 2000) data.resize(2000);
        if (Is("mixes-clients") && !data.empty()) {
            data[0] = std::bit_cast<std::uint32_t>(shared);
            shared = std::bit_cast<float>(WordAt(packet, 20 + 4 * (arguments - 2)));
        }
        if (Is("block-stalls")) std::this_thread::sleep_for(milliseconds(40));
        if (Is("slower-and-slower")) std::this_thread::sleep_for(std::chrono::microseconds(20 * m_blocks));
        const bool negative = Is("negative-status") || (Is("refuses-some") && m_blocks % 15 == 14);
        Send(Packet(negative ? 0xFFFFFFFF : 0, data));
        if (Is("replies-twice") && ++asked % 5 == 0) Send(Packet(0, data));
        if (Is("fails-in-time") && ++asked > 3000) return false;
        if (Is("tells-the-time")) std::thread(TellTheTime, ::dup(m_socket)).detach();
        ++m_blocks;
        return true;
    }

    bool AnswerPins(const std::string& path, std::size_t words) {
        if (path != "-1,In.info1,Out.info1") return Is("ignores-unknown-names") ? true : Refuse("pins");
        std::vector<std::uint32_t> pins(words, 64U << 10 | 2 | 1U << 27);
        if (Is("pins-differ")) pins[0] += ++asked << 10;
        if (Is("pins-tell-blocks")) pins[0] += m_blocks << 10;
        if (Is("pins-too-long")) pins.push_back(0);
        Send(Packet(0, pins));
        return true;
    }

    static std::uint32_t Half(std::uint32_t word) {
        return std::bit_cast<std::uint32_t>(std::bit_cast<float>(word) * 0.5F);
    }

    /// All clients' samples go through the same memory, and no lock.
    static std::vector<std::uint32_t> ThroughOneBuffer(const std::vector<std::uint32_t>& data) {
        static std::atomic<std::uint32_t> buffer[kLargest / 4];
        for (std::size_t i = 0; i < data.size(); ++i) buffer[i] = data[i];
        std::this_thread::sleep_for(milliseconds(1));
        return {buffer, buffer + data.size()};
    }

    static void TellTheTime(int socket) {
        std::this_thread::sleep_for(milliseconds(1500));
        (void)::send(socket, "later\n", 6, MSG_NOSIGNAL);
        ::close(socket);
    }

    int m_socket;
    bool m_connected = false;
    unsigned m_blocks = 0;
    std::string m_bytes;
};

void ServeClient(int socket) {
    if (Is("twenty-clients") && clients >= 20) std::this_thread::sleep_for(std::chrono::hours(1));
    ++clients;
    Client(socket).Serve();
    --clients;
}

} // namespace

int main(int argc, char** argv) {
    chosen = argc > 1 ? argv[1] : "";
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, 100) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return 1;
    std::printf("%d\n", ntohs(address.sin_port));
    (void)std::fflush(stdout);
    for (int served = 1;; ++served) {
        const int socket = ::accept(listener, nullptr, nullptr);
        if (socket < 0) return 1;
        const int yes = 1;
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        if ((Is("ten-connections") && served > 10) || (Is("three-hundred-connections") && served > 300)) {
            ::close(socket);
            continue;
        }
        if (Is("one-client-at-a-time"))
            ServeClient(socket);
        else
            std::thread(ServeClient, socket).detach();
    }
}
