#pragma once

#include "talker/CVRXTalker.h"

#include <functional>
#include <string>
#include <utility>

/// A talker whose blocks a test answers; it is always connected.
class FakeTalker : public CVRXTalker {
public:
    using Pump = std::function<int(const void* in, void* out, unsigned words)>;
    explicit FakeTalker(Pump pump) : m_pump(std::move(pump)) {}
    float GetAverageCycles() const override { return 0; }
    float GetPumpCycles() const override { return 0; }
    bool Configure(const char*) override { return true; }
    int PumpAudio(const void* in, void* out, unsigned inCount, unsigned) override {
        return m_pump(in, out, inCount);
    }
    int PinProps(unsigned&, unsigned&, unsigned&, unsigned&, unsigned&, unsigned&) override { return 0; }
    int SendMessage(const char*, std::string&) override { return 0; }

private:
    Pump m_pump;
};
