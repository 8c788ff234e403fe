// Calls a plug-in's `run` in real time. Prints how long the calls took, and what they did that real-time code must not do.
//
//   run_times BUNDLE CHANNELS FRAMES SECONDS     FRAMES of each call, at 48000 Hz
//
// Ends with 1 when a call used the heap, a lock, or the system other than to wake the bridge's thread.

#include "lv2/settings/BundleSettings.h"
#include "tests/lv2/StrictHost.h"
#include "tests/support/RealTimeCounts.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::size_t kRate = 48000;

/// An instance that plays.
class Track {
public:
    Track(const char* bundle, std::size_t channels, std::size_t frames)
        : m_library(bundle), m_plugin(m_library.Plugin()),
          m_instance(m_plugin->instantiate(m_plugin, kRate, m_library.Bundle().c_str(), nullptr)),
          m_frames(static_cast<std::uint32_t>(frames)), m_sound(frames, 0.5F) {
        if (m_instance == nullptr) std::exit(1);
        for (std::size_t port = 0; port < 2 * channels; ++port) Connect(port, m_sound.data());
        for (std::size_t i = 0; i < m_controls.size(); ++i) Connect(2 * channels + i, &m_controls[i]);
        m_plugin->activate(m_instance);
    }
    ~Track() {
        m_plugin->deactivate(m_instance);
        m_plugin->cleanup(m_instance);
    }
    Track(const Track&) = delete;
    Track& operator=(const Track&) = delete;

    void Run() { m_plugin->run(m_instance, m_frames); }
    double LateBlocks() const { return m_controls[3]; }

private:
    void Connect(std::size_t port, float* data) {
        m_plugin->connect_port(m_instance, static_cast<std::uint32_t>(port), data);
    }

    const stricthost::Library m_library;
    const LV2_Descriptor* m_plugin;
    const LV2_Handle m_instance;
    const std::uint32_t m_frames;
    std::vector<float> m_sound;
    std::vector<float> m_controls{0, 0, 1, 0}; // latency, freeWheeling, enabled, late
};

/// Calls as often as a host does that plays so many frames at a time.
template <class Call>
void InRealTime(std::size_t calls, std::size_t frames, const Call& call) {
    const Clock::time_point start = Clock::now();
    for (std::size_t i = 0; i < calls; ++i) {
        std::this_thread::sleep_until(start + std::chrono::nanoseconds(i * frames * 1000000000 / kRate));
        call();
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: run_times BUNDLE CHANNELS FRAMES SECONDS\n");
        return 1;
    }
    const std::size_t channels = std::strtoul(argv[2], nullptr, 10);
    const std::size_t frames = std::strtoul(argv[3], nullptr, 10);
    const std::size_t calls = std::strtoul(argv[4], nullptr, 10) * kRate / frames;

    std::vector<double> times; // microseconds
    times.reserve(calls);
    double lateBlocks = 0;
    {
        Track track(argv[1], channels, frames);
        InRealTime(calls, frames, [&] {
            const Clock::time_point begin = Clock::now();
            track.Run();
            times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
        });
        lateBlocks = track.LateBlocks();
    }
    std::sort(times.begin(), times.end());
    const auto percentile = [&](std::size_t perMille) { return times[(calls - 1) * perMille / 1000]; };
    std::printf("%zu calls: p50 %.1f us, p99 %.1f us, p99.9 %.1f us, max %.1f us; late blocks %.0f\n", calls,
                percentile(500), percentile(990), percentile(999), times.back(), lateBlocks);
    std::fflush(stdout);

    const std::optional<RealTimeCounts> counts = CountRealTime([&] {
        Track track(argv[1], channels, frames);
        InRealTime(1000, frames, [&] {
            const Watched watched;
            track.Run();
        });
        return true;
    });
    if (!counts) {
        std::printf("not counted: this process may not trace another one\n");
        return 0;
    }
    std::printf(
        "%ld calls: %ld allocations or releases, %ld locks, %ld wakes of the bridge's thread, %ld other "
        "system calls\n",
        counts->sections, counts->allocations, counts->locks, counts->wakes, counts->otherCalls);
    return counts->allocations + counts->locks + counts->otherCalls == 0 ? 0 : 1;
}
