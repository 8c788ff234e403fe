// Plays noise through a running host of the plug-in and compares what comes back, frame by frame, with what went in: for
// hosts that play in real time. The server behind the plug-in turns the sign round.
//
//   noise INTO-PORT OUT-OF-PORT LATENCY SECONDS [MORE]
//
// Plays for SECONDS, and for up to MORE seconds (5) until processed sound comes back: a busy machine may take a while.
// Prints "delay 2048 frames: wet 91 %, dry 9 %, longest fade 48 frames"; ends with 1 when there is anything but processed and
// dry sound with that one delay, the latency, joined by fades of a millisecond.

#include "tests/support/JackRecorder.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    if (argc != 5 && argc != 6) {
        std::fprintf(stderr, "usage: noise INTO-PORT OUT-OF-PORT LATENCY SECONDS [MORE]\n");
        return 2;
    }
    JackRecorder recorder(argv[1], argv[2]);
    if (!recorder.Up()) {
        std::fprintf(stderr, "noise: no audio server, or no such ports\n");
        return 2;
    }
    const std::size_t latency = std::strtoul(argv[3], nullptr, 10);
    std::size_t from =
        recorder.Frames() + latency + 2 * recorder.Period(); // connections take effect with a period
    if (!recorder.Hear(std::strtoul(argv[4], nullptr, 10) * recorder.SampleRate())) return 2;

    const unsigned long mostSeconds = argc == 6 ? std::strtoul(argv[5], nullptr, 10) : 5;
    const auto heardAny = [&] { return recorder.Count(from, recorder.Frames(), latency).wet > 0; };
    for (unsigned long more = 0; more < mostSeconds && !heardAny(); ++more)
        if (!recorder.Hear(recorder.SampleRate())) return 2;

    const std::size_t to = recorder.Frames();
    while (from < to && recorder.At(from, latency) == JackRecorder::Frame::kSilence) ++from; // or later
    const JackRecorder::Counts heard = recorder.Count(from, to, latency);
    const std::size_t fade = recorder.LongestFade(from, to, latency);
    const std::size_t all = std::max<std::size_t>(to - from, 1);
    std::printf("delay %zu frames: wet %zu %%, dry %zu %%, longest fade %zu frames\n", latency,
                100 * heard.wet / all, 100 * heard.dry / all, fade);
    return heard.wet > 0 && fade <= recorder.SampleRate() / 1000 ? 0 : 1;
}
