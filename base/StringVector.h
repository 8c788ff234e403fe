#pragma once

#include "base/Export.h"

#include <cstddef>
#include <string>
#include <vector>

class VRX_EXPORT string_vector : public std::vector<std::string> {
public:
    // Tokens and lookup (StringVector.cpp)
    void Split(const char* text, const char* delimiters, char quote);
    int find(const char* text, size_t start) const;
    int findi(const char* text, size_t start) const;
    int findwild(const char* pattern, size_t start) const;

    // Text files and texts (StringVectorLines.cpp)
    int LoadFromFile(const char* name);
    int LoadFromString(const char* text);
    bool SaveToFile(const char* name);
    bool SaveToString(std::string& out, bool crlf) const;

    // Profiles (StringVectorProfile.cpp)
    std::string GetProfileStr(const char* section, const char* key, const char* defaultValue) const;
    int GetProfileIntg(const char* section, const char* key, int defaultValue) const;
    void WriteProfileStr(const char* section, const char* key, const char* value);
    void WriteProfileIntg(const char* section, const char* key, int value);

    // CSV rows (StringVectorCsv.cpp)
    bool loadFromCSVString(const char* text, bool trim, char separator, char quote);
    std::string saveToCSVString(size_t first, bool forceQuote, char separator, char quote);

    // Stable sorts (StringVectorSort.cpp)
    void sort(size_t keep);
    void sortrev(size_t keep);
    void sorti(size_t keep);
    void sortirev(size_t keep);
};
