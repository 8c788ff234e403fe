#pragma once

#include "tests/support/Subprocess.h"

#include <cstdint>
#include <string>
#include <vector>

/// Runs `vrx` with these arguments and waits for its end.
inline Subprocess::Outcome Vrx(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), VRX_PROGRAM);
    return RunProgram(arguments);
}

/// A `vrx serve` with a port of the system's choice, unless `arguments` name one.
class ServeProcess {
public:
    explicit ServeProcess(std::vector<std::string> arguments = {})
        : m_process(Command(std::move(arguments))) {
        const std::string first = m_process.ReadLine();
        m_port = first.substr(first.rfind(':') + 1);
    }
    const std::string& Port() const { return m_port; }
    void Kill() {
        m_process.Signal(9);
        m_process.Wait();
    }

private:
    static std::vector<std::string> Command(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {VRX_PROGRAM, "serve", "--quiet"});
        return arguments;
    }

    Subprocess m_process;
    std::string m_port;
};

/// "\n" at the end and nowhere else.
inline bool IsOneLine(const std::string& text) {
    return !text.empty() && text.find('\n') == text.size() - 1;
}

/// The bytes of a canonical 16-bit WAV file with these samples at 8000 Hz.
inline std::string Wav16(unsigned channels, const std::vector<int>& samples) {
    std::string bytes;
    const auto u16 = [&bytes](unsigned value) {
        bytes += static_cast<char>(value & 0xFF);
        bytes += static_cast<char>(value >> 8 & 0xFF);
    };
    const auto u32 = [&u16](unsigned value) {
        u16(value & 0xFFFF);
        u16(value >> 16);
    };
    const auto dataBytes = static_cast<unsigned>(samples.size() * 2);
    bytes += "RIFF";
    u32(36 + dataBytes);
    bytes += "WAVEfmt ";
    u32(16);
    u16(1); // PCM
    u16(channels);
    u32(8000);
    u32(8000 * channels * 2);
    u16(channels * 2);
    u16(16); // bits
    bytes += "data";
    u32(dataBytes);
    for (const int sample : samples) u16(static_cast<unsigned>(sample) & 0xFFFF);
    return bytes;
}

/// `count` samples that use the whole 16-bit range and never repeat a neighbour.
inline std::vector<int> Noise(std::size_t count) {
    std::vector<int> samples(count);
    std::uint32_t state = 1;
    for (int& sample : samples) {
        state = state * 1664525 + 1013904223;
        sample = static_cast<int>(state >> 16) - 32768;
    }
    return samples;
}
