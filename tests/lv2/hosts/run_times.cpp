// Calls a plug-in's `run` in real time and prints how long the calls took.
//
//   run_times BUNDLE CHANNELS FRAMES SECONDS     FRAMES of each call, at 48000 Hz

#include "lv2/settings/BundleSettings.h"
#include "tests/lv2/StrictHost.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: run_times BUNDLE CHANNELS FRAMES SECONDS\n");
        return 1;
    }
    using Clock = std::chrono::steady_clock;
    using Microseconds = std::chrono::duration<double, std::micro>;
    constexpr std::size_t kRate = 48000;
    const std::size_t channels = std::strtoul(argv[2], nullptr, 10);
    const std::size_t frames = std::strtoul(argv[3], nullptr, 10);
    const std::size_t calls = std::strtoul(argv[4], nullptr, 10) * kRate / frames;

    const stricthost::Library library(argv[1]);
    const LV2_Descriptor* const plugin = library.Plugin();
    const LV2_Handle instance = plugin->instantiate(plugin, kRate, library.Bundle().c_str(), nullptr);
    if (instance == nullptr) return 1;
    std::vector<float> buffer(frames, 0.5F);
    std::vector<float> controls(4);
    controls[2] = 1; // enabled
    for (std::size_t port = 0; port < 2 * channels; ++port)
        plugin->connect_port(instance, static_cast<std::uint32_t>(port), buffer.data());
    for (std::size_t i = 0; i < controls.size(); ++i)
        plugin->connect_port(instance, static_cast<std::uint32_t>(2 * channels + i), &controls[i]);
    plugin->activate(instance);

    std::vector<double> times(calls);
    const Clock::time_point start = Clock::now();
    for (std::size_t i = 0; i < calls; ++i) {
        std::this_thread::sleep_until(start + std::chrono::nanoseconds(i * frames * 1000000000 / kRate));
        const Clock::time_point begin = Clock::now();
        plugin->run(instance, static_cast<std::uint32_t>(frames));
        times[i] = Microseconds(Clock::now() - begin).count();
    }
    plugin->deactivate(instance);
    plugin->cleanup(instance);

    std::sort(times.begin(), times.end());
    const auto percentile = [&](std::size_t perMille) { return times[(calls - 1) * perMille / 1000]; };
    std::printf("%zu calls: p50 %.1f us, p99 %.1f us, p99.9 %.1f us, max %.1f us; late blocks %.0f\n", calls,
                percentile(500), percentile(990), percentile(999), times.back(),
                static_cast<double>(controls[3]));
    return 0;
}
