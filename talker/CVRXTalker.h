#pragma once

#include <string>

class CVRXTalker {
public:
    virtual ~CVRXTalker() = default;
    virtual float GetAverageCycles() const = 0;
    virtual float GetPumpCycles() const = 0;
    virtual bool Configure(const char* args) = 0;
    virtual int PumpAudio(const void* in, void* out, unsigned inCount, unsigned outCount) = 0;
    virtual int PinProps(unsigned& in1, unsigned& in2, unsigned& in3, unsigned& out1, unsigned& out2,
                         unsigned& out3) = 0;
    virtual int SendMessage(const char* text, std::string& reply) = 0;
};

__attribute__((visibility("default"))) CVRXTalker* TalkerFactory();
