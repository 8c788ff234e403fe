// A small talker of another make: no watchdog thread, packets in two sends, its own parser. It is right; with the
// environment variable VRX_WRONG set to one of the switches below it is wrong in that one way.

#include "talker/CVRXTalker.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cfenv>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/select.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::uint32_t kTag = 0x07FF0003;
constexpr std::size_t kBuffer = 1 << 20;

bool Is(const char* name) {
    static const char* chosen = std::getenv("VRX_WRONG");
    return chosen != nullptr && std::strcmp(chosen, name) == 0;
}

std::string Trimmed(std::string text) {
    text.erase(0, std::min(text.find_first_not_of(" \t"), text.size()));
    return text.erase(text.find_last_not_of(" \t") + 1);
}

using Settings = std::map<std::string, std::string>;

/// "key = value" or "key value"; a value of several words is what stands after the equals sign, untrimmed.
void TakeItem(const std::string& item, Settings& settings) {
    std::vector<std::string> words;
    for (std::size_t at = 0; (at = item.find_first_not_of(" \t=", at)) != item.npos;) {
        const std::size_t end = std::min(item.find_first_of(" \t=", at), item.size());
        words.push_back(item.substr(at, end - at));
        at = end;
    }
    if (words.size() == 1 && Is("empty-values-count")) words.emplace_back();
    if (words.size() < 2 || (Is("needs-equals") && item.find('=') == item.npos)) return;
    std::string value = words[1];
    if (words.size() > 2) {
        const std::size_t equals = item.find('=');
        if (equals == item.npos) return;
        value = item.substr(equals + 1);
        if (Is("trims-values")) value = Trimmed(value);
    }
    if (Is("key-case"))
        for (char& c : words[0]) c = static_cast<char>(c | 0x20);
    if (Is("last-key-counts")) settings.erase(words[0]);
    settings.emplace(words[0], value);
}

Settings Parse(const std::string& text) {
    Settings settings;
    for (std::size_t at = 0; at <= text.size();) {
        const char* separators = Is("semicolons-separate") ? ",;" : ",";
        const std::size_t comma = std::min(text.find_first_of(separators, at), text.size());
        TakeItem(text.substr(at, comma - at), settings);
        at = comma + 1;
    }
    return settings;
}

int Number(const std::string& text) {
    return static_cast<int>(std::strtol(text.c_str(), nullptr, Is("hexadecimal-ports") ? 0 : 10));
}

void Line(const std::string& text) {
    const char* end = Is("lines-without-end") ? "" : "\n";
    (void)std::fprintf(Is("lines-to-stderr") ? stderr : stdout, "%s%s", text.c_str(), end);
}

std::uint32_t WordAt(const std::string& bytes, std::size_t at) {
    std::uint32_t word = 0;
    if (at + 4 <= bytes.size()) std::memcpy(&word, bytes.data() + at, 4);
    return word;
}

void PutWord(std::string& bytes, std::uint32_t word) {
    bytes.append(reinterpret_cast<const char*>(&word), 4);
}

std::uint32_t Shifted(std::uint32_t word) {
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(word) >> (Is("no-fraction") ? 0 : 8));
}

/// One TCP connection.
class Channel {
public:
    ~Channel() { Close(); }

    bool Open() const { return m_socket >= 0; }

    void Close() {
        if (!Open() && m_last >= 0 && Is("closes-twice")) ::close(m_last);
        m_last = m_socket;
        if (Open()) ::close(m_socket);
        m_socket = -1;
    }

    bool Connect(const std::string& host, int port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = ::inet_addr(host.c_str());
        if (host[0] < '0' || host[0] > '9') {
            const hostent* found = ::gethostbyname(host.c_str());
            if (found == nullptr && Is("unknown-host-prints")) Line("unknown host");
            if (found == nullptr || found->h_addrtype != AF_INET) return false;
            std::memcpy(&address.sin_addr, found->h_addr_list[0], 4);
        }
        m_socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int yes = 1;
        ::setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        if (::connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return true;
        if (Is("refused-leaks")) m_socket = -1;
        Close();
        return false;
    }

    bool Send(const char* bytes, std::size_t count) const {
        const std::size_t most = Is("many-calls") ? 16 : count;
        while (count > 0) {
            const ssize_t sent =
                ::send(m_socket, bytes, std::min(count, most), Is("raises-sigpipe") ? 0 : MSG_NOSIGNAL);
            if (sent <= 0) return false;
            bytes += sent;
            count -= static_cast<std::size_t>(sent);
        }
        return true;
    }

    /// Appends what one receive delivers; negative: why nothing came.
    int Receive(std::string& bytes, int limit) {
        if (Is("selects")) Select();
        pollfd waiting{m_socket, POLLIN, 0};
        const int ready = ::poll(&waiting, 1, limit);
        if (ready < 0 && Is("fails-on-signals")) return CVRXTalker::kReceiveFailed;
        if (ready == 0) {
            if (!Is("time-out-keeps-connection")) Close();
            return CVRXTalker::kTimedOut;
        }
        const std::size_t before = bytes.size();
        bytes.resize(std::max(before + 1, kBuffer));
        const ssize_t count = ::recv(m_socket, bytes.data() + before, bytes.size() - before, 0);
        bytes.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (count > 0 && bytes.size() <= kBuffer) return 1;
        const bool closed = count >= 0;
        if (Is("failures-leak")) m_socket = -1;
        Close();
        if (closed) return Is("closed-is-9996") ? CVRXTalker::kReceiveFailed : CVRXTalker::kPeerClosed;
        return Is("reset-is-9995") ? CVRXTalker::kPeerClosed : CVRXTalker::kReceiveFailed;
    }

private:
    void Select() const {
        if (m_socket >= FD_SETSIZE) std::abort(); // as the C library's own guard does
        fd_set sockets;
        FD_ZERO(&sockets);
        FD_SET(m_socket, &sockets);
        (void)::select(m_socket + 1, &sockets, nullptr, nullptr, nullptr);
    }

    int m_socket = -1;
    int m_last = -1;
};

std::uint32_t sharedAverage = 0;
std::string sharedReply;
std::mutex sharedMutex;
thread_local bool configuredHere = false;

/// Writes a byte that is there already, which no compiler leaves out.
void WriteBack(const void* at) {
    volatile char* byte = const_cast<char*>(static_cast<const char*>(at));
    *byte = *byte;
}

/// Runs code of this library for so long, whoever unloads it in between.
void RunOn(std::chrono::milliseconds time) {
    for (const auto end = std::chrono::steady_clock::now() + time; std::chrono::steady_clock::now() < end;)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

class OtherTalker final : public CVRXTalker {
public:
    OtherTalker() {
        if (Is("early-socket")) m_early = ::socket(AF_INET, SOCK_STREAM, 0);
        if (Is("figures-not-zero")) m_average = 1;
    }

    ~OtherTalker() override {
        if (m_early >= 0) ::close(m_early);
        if (Is("leaks-memory")) std::memset(std::malloc(100000), 1, 100000);
        if (Is("leaks-thread"))
            std::thread([] { std::this_thread::sleep_for(std::chrono::hours(1)); }).detach();
        if (Is("says-goodbye")) Line("goodbye");
        if (Is("tells-its-end") && m_channel.Open()) (void)m_channel.Send("bye\n", 4);
        if (Is("slow-delete")) std::this_thread::sleep_for(std::chrono::milliseconds(1200));
        if (Is("thread-lives-on")) std::thread([] { RunOn(std::chrono::milliseconds(150)); }).detach();
        m_stop = true;
        if (m_heartbeat.joinable()) m_heartbeat.join();
    }

    float GetAverageCycles() const override {
        const Guard lock(m_mutex, Is("locks-figures"));
        if (Is("shares-figures")) return static_cast<float>(sharedAverage);
        if (Is("signed-figures")) return static_cast<float>(static_cast<std::int32_t>(m_average));
        return static_cast<float>(m_average);
    }

    float GetPumpCycles() const override { return static_cast<float>(m_pump); }

    bool Configure(const char* args) override {
        if (args == nullptr || *args == '\0') {
            if (Is("empty-args-print")) Line("CVRXTalker::Configure: no arguments");
            return false;
        }
        if (Is("writes-args")) WriteBack(args);
        if (Is("thread-each-configure"))
            std::thread([] { std::this_thread::sleep_for(std::chrono::hours(1)); }).detach();
        if (Is("changes-folder")) (void)::chdir("/");
        if (Is("sets-traps")) (void)::feenableexcept(FE_DIVBYZERO);
        if (Is("changes-environment")) (void)::setenv("VRX_TALKER", "1", 1);
        Settings settings = Parse(args);
        const char* const keys[] = {"server", "servport", "clport", "input", "output", "layout"};
        if (Is("stores-before-checking") && settings.contains("input")) m_input = settings["input"];
        for (std::size_t i = 0; i < 6; ++i) {
            const char* key = keys[Is("checks-backwards") ? 5 - i : i];
            if (settings.contains(key)) continue;
            Line(std::string("CVRXTalker::Configure: '") + key + "' argument missing");
            return Is("missing-is-fine");
        }
        m_server = settings["server"];
        m_clientPort = Number(settings["clport"]);
        m_input = settings["input"].substr(0, Is("names-to-63") ? 63 : std::string::npos);
        m_output = settings["output"];
        m_layout = settings["layout"];
        const bool moved = Is("follows-configure") && m_port != Number(settings["servport"]);
        if (Is("new-connection-each-time") || moved) m_channel.Close();
        m_port = Number(settings["servport"]);
        configuredHere = Connect();
        if (configuredHere && Is("heartbeat")) m_heartbeat = std::thread([this] { Beat(); });
        return configuredHere && !Is("configure-false");
    }

    int PumpAudio(const void* in, void* out, unsigned inCount, unsigned outCount) override {
        if (!m_configured) return NoChannel("PumpAudio");
        if (Is("per-thread") && !configuredHere) return NoChannel("PumpAudio");
        if (Is("skips-silence") && IsSilent(in, inCount)) {
            std::memset(out, 0, 4 * std::size_t{outCount});
            return 0;
        }
        if (Is("allocates"))
            for (std::size_t i = 1; i < 50; ++i) std::vector<char>(i).swap(m_scratch);
        if (Is("leaks-per-block")) std::memset(std::malloc(64), 1, 64);
        if (Is("sleeps")) std::this_thread::sleep_for(std::chrono::milliseconds(40));
        if (Is("needs-alignment"))
            in = reinterpret_cast<const void*>(reinterpret_cast<std::uintptr_t>(in) & ~std::uintptr_t{15});
        if (Is("restores-in") && inCount > 0) WriteBack(in);
        if (Is("logs-to-stderr")) (void)std::fputs("block sent\n", stderr);
        const std::unique_lock lock =
            Is("one-for-all") ? std::unique_lock(sharedMutex) : std::unique_lock<std::mutex>();
        if (Is("empty-block-is-nothing") && inCount == 0 && outCount == 0) return 0;
        if (Is("clears-out-first")) std::memset(out, 0, 4 * std::size_t{outCount});
        if (Is("cuts-large-blocks")) inCount = std::min(inCount, 65535U);
        const std::string path = m_layout + "," + m_input + ".samples[0]," + m_output + ".samples[0]";
        std::string reply;
        int result = Exchange(Packet(in, inCount, outCount, path), reply);
        if (result < 0) return Failed("PumpAudio", result, out, outCount);
        if (Is("shares-replies")) {
            sharedReply = reply;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            reply = sharedReply;
        }
        if (Is("dies-on-short") && reply.size() < 28) std::abort();
        if (Is("checks-length") && WordAt(reply, 4) != reply.size()) return NoPacket("PumpAudio", reply);
        if (WordAt(reply, 0) != kTag) return NoPacket("PumpAudio", reply);
        Deliver(reply, out, Is("delivers-by-input") ? std::min(inCount, outCount) : outCount);
        if (Is("scribbles-on-in") && inCount > 100) const_cast<char*>(static_cast<const char*>(in))[4] ^= 1;
        if (!Is("figures-of-successes") || static_cast<int>(WordAt(reply, 16)) >= 0) TakeFigures(reply);
        result = static_cast<int>(WordAt(reply, 16));
        if (Is("chatters")) Line("CVRXTalker::PumpAudio: block sent");
        if (Is("prints-status") && result < 0)
            Line("CVRXTalker::PumpAudio: status " + std::to_string(result));
        return Is("hides-status") ? std::max(result, 0) : result;
    }

    int PinProps(unsigned& in1, unsigned& in2, unsigned& in3, unsigned& out1, unsigned& out2,
                 unsigned& out3) override {
        if (!m_configured) return NoChannel("PinProps");
        const char nothing[16] = {};
        const std::string layout = Is("pins-name-layout") ? m_layout : "-1";
        std::string reply;
        const int result =
            Exchange(Packet(nothing, 4, 2, layout + "," + m_input + ".info1," + m_output + ".info1"), reply);
        if (result < 0) return Failed("PinProps", result, nullptr, 0);
        if (WordAt(reply, 0) != kTag) return NoPacket("PinProps", reply);
        const std::uint32_t mask = Is("sixteen-pin-bits") ? 0xFFFF : 0x1FFFF;
        const std::uint32_t in = WordAt(reply, 28);
        const std::uint32_t out = WordAt(reply, 32);
        in1 = in >> 10 & mask;
        in2 = in & 0x3FF;
        in3 = Is("keeps-upper-bits") ? in >> 27 : in >> 27 & 1;
        out1 = out >> 10 & mask;
        out2 = out & 0x3FF;
        out3 = out >> 27 & 1;
        if (Is("pins-set-figures")) TakeFigures(reply);
        return static_cast<int>(WordAt(reply, 16));
    }

    int SendMessage(const char* text, std::string& reply) override {
        if (!m_configured) return NoChannel("SendMessage");
        const Guard lock(m_mutex);
        if (Is("connection-per-text")) m_channel.Close();
        const int result =
            ExchangeText(text != nullptr ? text : "", reply, Is("messages-give-up") ? 10000 : -1);
        if (result < 0 && Is("message-failure-prints")) Line("CVRXTalker::SendMessage: failed");
        return result;
    }

private:
    struct Guard {
        explicit Guard(std::recursive_mutex& mutex, bool locks = !Is("no-lock"))
            : m_mutex(mutex), m_locks(locks) {
            if (m_locks) m_mutex.lock();
        }
        ~Guard() {
            if (m_locks) m_mutex.unlock();
        }
        std::recursive_mutex& m_mutex;
        bool m_locks;
    };

    /// Says that it is there, again and again, as no server expects it.
    void Beat() {
        for (int i = 1; !m_stop; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            if (i % 100 == 0) (void)m_channel.Send("ping\n", 5);
        }
    }

    static bool IsSilent(const void* words, unsigned count) {
        const auto* word = static_cast<const std::uint32_t*>(words);
        return count > 0 && std::all_of(word, word + count, [](std::uint32_t w) { return w == 0; });
    }

    static std::string Told(const std::string& server) {
        return Is("sends-address") && server == "localhost" ? "127.0.0.1" : server;
    }

    static int Limit() { return Is("fifteen-seconds") ? 15000 : Is("five-seconds") ? 5000 : 10000; }

    bool Connect() {
        if (Is("ignores-signals")) (void)std::signal(SIGPIPE, SIG_IGN);
        const std::string command = std::string("connect,") + (Is("connect-blank") ? " " : "") +
                                    Told(m_server) + "," + std::to_string(m_clientPort);
        std::string reply;
        int result = ExchangeText(command, reply, Limit());
        if (Is("wants-ok") && reply.starts_with("error")) result = kNotAPacket;
        m_configured = result >= 0 || Is("stays-configured") || (m_configured && Is("keeps-old-connection"));
        if (result >= 0) return true;
        char code[16];
        (void)std::snprintf(code, sizeof code, Is("decimal-code") ? "%u" : "0x%08x",
                            static_cast<unsigned>(result));
        Line("CVRXTalker::Connect: SendTcpMessage() of '" + command + "' failed with hr=" + code);
        m_channel.Close();
        return false;
    }

    static std::string Packet(const void* words, unsigned inCount, unsigned outCount,
                              const std::string& path) {
        const std::size_t padded = Is("pads-to-multiple") ? (path.size() + 3) / 4 * 4 : (path.size() | 3) + 1;
        std::string packet;
        PutWord(packet, Is("wrong-tag") ? kTag + 1 : kTag);
        PutWord(packet, static_cast<std::uint32_t>(20 + 4 * std::size_t{inCount} + padded));
        PutWord(packet, Is("counts-short-at-large") && inCount > 4000 ? inCount : inCount + 1);
        PutWord(packet, 0x3A);
        if (Is("counts-to-65535")) outCount &= 0xFFFF;
        PutWord(packet, Is("counts-by-input") ? inCount + 3 : outCount + 3);
        if (inCount > 0) packet.append(static_cast<const char*>(words), 4 * std::size_t{inCount});
        if (Is("reads-one-more") && inCount > 0) {
            packet.append(static_cast<const char*>(words) + 4 * std::size_t{inCount}, 4);
            packet.resize(packet.size() - 4);
        }
        packet += path;
        packet.resize(20 + 4 * std::size_t{inCount} + padded, '\0');
        return packet;
    }

    static void Deliver(const std::string& reply, void* out, unsigned outCount) {
        if (reply.size() <= 28) return;
        const std::size_t came = (reply.size() - 28) / 4;
        const std::size_t words = Is("copies-all") ? came : std::min<std::size_t>(outCount, came);
        if (words > 0) std::memcpy(out, reply.data() + 28, 4 * words);
        if (Is("reads-beyond")) std::memcpy(out, reply.data() + 28, 4 * std::size_t{outCount});
        if (Is("clips"))
            for (std::size_t i = 0; i < words; ++i) {
                float& sample = static_cast<float*>(out)[i];
                sample = std::max(-1.0F, std::min(1.0F, sample));
            }
        if (Is("writes-one-more") && outCount > 0) static_cast<std::uint32_t*>(out)[outCount] = 0;
    }

    void TakeFigures(const std::string& reply) {
        m_average = Shifted(WordAt(reply, 20));
        m_pump = Is("logical-shift") ? WordAt(reply, 24) >> 8 : Shifted(WordAt(reply, 24));
        if (Is("swaps-figures")) std::swap(m_average, m_pump);
        sharedAverage = m_average;
    }

    /// Sends a packet and takes what one receive delivers.
    int Exchange(const std::string& packet, std::string& reply) {
        const Guard lock(m_mutex);
        if (!m_channel.Open()) {
            if (Is("never-reconnects")) return CVRXTalker::kPeerClosed;
            std::string welcome;
            if (!m_channel.Connect(m_server, m_port))
                return Is("refused-is-1") ? CVRXTalker::kNoConnection : CVRXTalker::kSendFailed;
            if (Is("greets-again"))
                (void)ExchangeText("connect," + m_server + "," + std::to_string(m_clientPort), welcome,
                                   Limit());
        }
        if (!m_channel.Send(packet.data(), 20) || !m_channel.Send(packet.data() + 20, packet.size() - 20)) {
            if (Is("send-failure-closes")) m_channel.Close();
            return CVRXTalker::kSendFailed;
        }
        int result = m_channel.Receive(reply, Limit());
        while (Is("waits-for-whole") && result > 0 &&
               reply.size() < 28 + 4 * std::size_t{WordAt(packet, 16) - 3})
            result = m_channel.Receive(reply, Limit());
        return result;
    }

    int ExchangeText(std::string text, std::string& reply, int limit) {
        if (!text.empty() && text.back() != '\n') text += '\n';
        if (Is("crlf") && text.size() > 1) text.insert(text.size() - 1, "\r");
        if (Is("text-to-1024") && text.size() > 1024) text = text.substr(0, 1023) + "\n";
        if (Is("sends-empty-text") && text.empty()) text = "\n";
        if (!SendText(text)) return CVRXTalker::kNoConnection;
        std::string bytes;
        reply.clear();
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(limit);
        for (;;) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            if (limit > 0 && Is("limits-the-whole")) limit = std::max(1, static_cast<int>(left.count()));
            const int result = m_channel.Receive(bytes, limit);
            if (result < 0 && Is("cut-is-reply") && bytes.size() >= 8) {
                reply = bytes;
                return CVRXTalker::kReplied;
            }
            if (result < 0 && Is("half-reply")) reply = bytes;
            if (result < 0) return result;
            if (bytes.size() >= 8 && WordAt(bytes, 0) == kTag && !Is("packets-are-text")) {
                if (Is("trusts-lengths")) bytes.reserve((WordAt(bytes, 4) + std::size_t{1}) << 8);
                if (bytes.size() < WordAt(bytes, 4)) continue;
                reply = bytes.substr(0, WordAt(bytes, 4));
                return CVRXTalker::kReplied;
            }
            const std::size_t feed = bytes.find('\n');
            const bool full = bytes.size() == kBuffer && Is("full-buffer-is-reply");
            if (feed == bytes.npos && !full && !Is("line-in-one-receive")) continue;
            reply = bytes.substr(0, feed);
            if (Is("strips-cr") && reply.ends_with('\r')) reply.pop_back();
            return CVRXTalker::kReplied;
        }
    }

    bool SendText(const std::string& text) {
        if (m_channel.Open() && m_channel.Send(text.data(), text.size())) return true;
        if (m_channel.Open() && Is("text-does-not-reconnect")) return false;
        m_channel.Close();
        return m_channel.Connect(m_server, m_port) && m_channel.Send(text.data(), text.size());
    }

    static int NoChannel(const char* operation) {
        Line(std::string("CVRXTalker::") + operation + ": m_tcpio is NULL");
        return Is("unconfigured-is-zero") ? 0 : -1;
    }

    int Failed(const char* operation, int result, void* out, unsigned outCount) {
        Line(std::string("CVRXTalker::") + operation + ": SendBinaryMessage failed with " +
             std::to_string(result));
        if (Is("clears-out") && outCount > 0) std::memset(out, 0, 4 * std::size_t{outCount});
        if (Is("clears-figures")) m_average = m_pump = 0;
        return result;
    }

    int NoPacket(const char* operation, const std::string& reply) {
        const std::string text = Is("prints-text") ? "replied with " + reply.substr(0, reply.find('\n'))
                                                   : "did not reply with packet";
        Line(std::string("CVRXTalker::") + operation + ": SendBinaryMessage " + text);
        if (Is("no-packet-closes")) m_channel.Close();
        if (Is("crashes-on-text")) std::abort();
        return kNotAPacket;
    }

    mutable std::recursive_mutex m_mutex;
    Channel m_channel;
    std::string m_server;
    int m_port = 0;
    int m_clientPort = 0;
    std::string m_input;
    std::string m_output;
    std::string m_layout;
    bool m_configured = false;
    std::uint32_t m_average = 0;
    std::uint32_t m_pump = 0;
    int m_early = -1;
    std::atomic<bool> m_stop = false;
    std::thread m_heartbeat;
    std::vector<char> m_scratch;
};

} // namespace

CVRXTalker* TalkerFactory() {
    if (Is("factory-null")) return nullptr;
    if (Is("factory-throws")) throw std::runtime_error("not today");
    if (Is("factory-hangs")) std::this_thread::sleep_for(std::chrono::hours(1));
    if (Is("factory-exits")) std::_Exit(0);
    if (Is("factory-prints")) Line("welcome");
    if (Is("factory-crashes")) std::abort();
    static OtherTalker* const same = Is("factory-same") ? new OtherTalker : nullptr;
    return same != nullptr ? same : new OtherTalker;
}
