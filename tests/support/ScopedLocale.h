#pragma once

#include <clocale>
#include <gtest/gtest.h>
#include <string>

/// Sets the character classification of the process to a locale and restores the old one at the end.
/// A locale that is not installed fails the test: script/setup generates it.
class ScopedLocale {
public:
    explicit ScopedLocale(const char* name) : m_old(std::setlocale(LC_CTYPE, nullptr)) {
        EXPECT_NE(std::setlocale(LC_CTYPE, name), nullptr)
            << "the locale " << name << " is not installed; script/setup generates it";
    }
    ~ScopedLocale() { std::setlocale(LC_CTYPE, m_old.c_str()); }
    ScopedLocale(const ScopedLocale&) = delete;
    ScopedLocale& operator=(const ScopedLocale&) = delete;

    /// An 8-bit locale, in which bytes above 0x7F are letters (0xE4 is a small, 0xC4 a capital a umlaut).
    static constexpr const char* kLatin1 = "de_DE.ISO-8859-1";
    /// A multi-byte locale, in which no single byte above 0x7F is a letter.
    static constexpr const char* kUtf8 = "C.UTF-8";

private:
    std::string m_old;
};
