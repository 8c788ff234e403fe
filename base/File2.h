#pragma once

#include "base/Export.h"

#include <cstddef>
#include <cstdio>
#include <string>

VRX_EXPORT char* strNcpy(char* dst, const char* src, size_t n);

class VRX_EXPORT File2 {
public:
    File2();
    File2(FILE* fh);
    File2(const char* filename, const char* mode, int bufferSize);
    virtual ~File2();

    bool open(const char* name, const char* mode);
    void close();
    int tell();
    int seek(int offset, int whence);
    long getLength();
    bool flush();
    bool setBuffer(void* buffer, size_t size);
    int writeChar(int c);
    size_t read(void* buffer, size_t count);
    long printf(const char* format, ...) __attribute__((format(printf, 2, 3)));
    bool fgets(std::string& line, bool stripEol, bool anyLf);
};
