#pragma once

#include "base/Export.h"

class VRX_EXPORT CWaveReader {
public:
    CWaveReader(const char* name);
    int Open();
    int Close();
    int Rewind();
    int ReadSamples(void* buffer, unsigned int frames);
};

class VRX_EXPORT CWaveWriter {
public:
    CWaveWriter(const char* name, int channels, int sampleRate, int bits, bool useFloat);
    int Open();
    int Close();
    int WriteSamples(void* buffer, unsigned int frames);
};

VRX_EXPORT int WriteSamplesEx(void* writer, void* buffer, unsigned int frames);
