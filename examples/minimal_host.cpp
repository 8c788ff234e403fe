// A whole host: loads the talker, connects it, sends one block and shows what came back.
#include "talker/CVRXTalker.h"

#include <cstdio>
#include <dlfcn.h>
#include <memory>

int main(int argc, char** argv) {
    if (argc != 3)
        return std::puts("usage: minimal_host VRX_talker_norvo.so server=127.0.0.1,servport=PORT,..."), 1;
    void* library = dlopen(argv[1], RTLD_NOW);
    if (library == nullptr) return std::puts(dlerror()), 1;
    const auto factory = reinterpret_cast<CVRXTalker* (*)()>(dlsym(library, "_Z13TalkerFactoryv"));
    if (factory == nullptr) return std::puts(dlerror()), 1;

    const std::unique_ptr<CVRXTalker> talker(factory());
    if (!talker->Configure(argv[2])) return 3; // the talker has said why

    const float in[64] = {0.5F, -0.5F}; // 32 frames of two channels
    float out[64] = {};
    const int status = talker->PumpAudio(in, out, 64, 64);
    std::printf("status %d, first word %g\n", status, double{out[0]});
    return status < 0 ? 4 : 0;
}
