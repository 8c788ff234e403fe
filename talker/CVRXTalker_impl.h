#pragma once

#include "talker/CVRXTalker.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <pthread.h>
#include <string>
#include <string_view>

class CTcpIOTalk;

/// The talker that TalkerFactory makes.
class CVRXTalker_impl : public CVRXTalker {
public:
    CVRXTalker_impl();
    ~CVRXTalker_impl() override;

    CVRXTalker_impl(const CVRXTalker_impl&) = delete;
    CVRXTalker_impl& operator=(const CVRXTalker_impl&) = delete;

    float GetAverageCycles() const override;
    float GetPumpCycles() const override;
    bool Configure(const char* args) override;
    int PumpAudio(const void* in, void* out, unsigned inCount, unsigned outCount) override;
    int PinProps(unsigned& in1, unsigned& in2, unsigned& in3, unsigned& out1, unsigned& out2,
                 unsigned& out3) override;
    int SendMessage(const char* text, std::string& reply) override;

    /// Announces this client to the configured server, over the channel there is or a new one. Any reply
    /// counts as success; on failure the channel is destroyed.
    bool Connect();

private:
    friend struct CVRXTalker_implLayout;

    struct MemberText;
    struct Command;

    uint64_t PacketSize(const Command& command) const;
    void WritePacket(unsigned char* packet, uint32_t size, const Command& command) const;
    int Exchange(const char* operation, const Command& command, const unsigned char*& packet,
                 std::string& text);

    std::string m_server;
    int32_t m_servport = 0;
    int32_t m_clport = 0;
    CTcpIOTalk* m_tcpio = nullptr; // owned
    bool m_connected = false;
    std::string m_input;
    std::string m_output;
    std::string m_layout;
    std::atomic<uint32_t> m_averageCycles = 0;
    std::atomic<uint32_t> m_pumpCycles = 0;
    pthread_mutex_t m_mutex; // recursive; held around each single exchange, never around what follows it
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored                                                                               \
    "-Winvalid-offsetof" // the table of virtual functions comes first, nothing else
/// Hosts' debuggers and sibling programs rely on these offsets.
struct CVRXTalker_implLayout {
    static_assert(offsetof(CVRXTalker_impl, m_server) == 8);
    static_assert(offsetof(CVRXTalker_impl, m_servport) == 40);
    static_assert(offsetof(CVRXTalker_impl, m_clport) == 44);
    static_assert(offsetof(CVRXTalker_impl, m_tcpio) == 48);
    static_assert(offsetof(CVRXTalker_impl, m_connected) == 56);
    static_assert(offsetof(CVRXTalker_impl, m_input) == 64);
    static_assert(offsetof(CVRXTalker_impl, m_output) == 96);
    static_assert(offsetof(CVRXTalker_impl, m_layout) == 128);
    static_assert(offsetof(CVRXTalker_impl, m_averageCycles) == 160);
    static_assert(offsetof(CVRXTalker_impl, m_pumpCycles) == 164);
    static_assert(offsetof(CVRXTalker_impl, m_mutex) == 168);
    static_assert(sizeof(CVRXTalker_impl) == 208);
};
#pragma GCC diagnostic pop
