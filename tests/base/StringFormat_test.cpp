#include "base/StringFormat.h"

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>

namespace {

using String::Format;
using namespace std::string_literals;

std::string ViaList(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const std::string text = String::FormatV(format, args);
    va_end(args);
    return text;
}

TEST(Format, RendersAsPrintf) {
    EXPECT_EQ(Format("%s=%s", "a", "b"), "a=b");
    EXPECT_EQ(Format("%d", -5), "-5");
    EXPECT_EQ(Format("connect,%s,%d", "10.0.0.5", 7001), "connect,10.0.0.5,7001");
    EXPECT_EQ(Format("%%%02X", 0xFFu), "%FF");
    EXPECT_EQ(Format("plain"), "plain");
    EXPECT_EQ(ViaList("%s=%d", "a", 1), "a=1");
}

TEST(Format, GivesNothingForNoFormat) {
    const char* volatile null = nullptr; // a compiler that sees it, or the empty format, would warn
    const char* volatile empty = "";
    EXPECT_EQ(Format(null, 1), "");
    EXPECT_EQ(Format(empty, 1), "");
    EXPECT_EQ(ViaList(nullptr, 1), "");
    EXPECT_EQ(ViaList("", 1), "");
}

TEST(Format, RendersANullText) {
    const char* volatile null = nullptr; // unseen by the compiler, which would warn
    EXPECT_EQ(Format("%s=%s", "key", null), "key=(null)");
}

TEST(Format, EndsAtANul) {
    EXPECT_EQ(Format("a%cb", 0), "a");
    EXPECT_EQ(Format("%c", 0), "");
}

TEST(Format, GivesWhatCouldBeRendered) {
    EXPECT_EQ(Format("a%lcb", wint_t{0x20AC}), "a"); // no such character in the default locale
}

TEST(Format, Gives65535CharactersWhole) {
    const std::string text(65'535, 'x');
    EXPECT_EQ(Format("%s", text.c_str()), text);
    EXPECT_EQ(Format("%65535d", 7), std::string(65'534, ' ') + "7");
    EXPECT_EQ(Format("%65535d%lc", 7, wint_t{0x20AC}),
              std::string(65'534, ' ') + "7"); // the second one fails
}

TEST(FormatDeathTest, EndsTheProcessOnLongerOutput) {
    const std::string text(65'536, 'x');
    const auto aborted = testing::KilledBySignal(SIGABRT);
    EXPECT_EXIT((void)Format("%s", text.c_str()), aborted, "");
    EXPECT_EXIT((void)Format("%100000d", 7), aborted, "");
    EXPECT_EXIT((void)Format("%65536d%lc", 7, wint_t{0x20AC}), aborted, ""); // the second one fails
    EXPECT_EXIT((void)Format("%70000d%lc", 1, wint_t{0x20AC}), aborted, "");
    EXPECT_EXIT((void)Format("%c%s", 0, text.c_str()), aborted, ""); // though all that shows is an empty text
    const char* volatile moreThanAnIntCounts = "%2147483648d"; // unseen by the compiler, which would warn
    EXPECT_EXIT((void)Format(moreThanAnIntCounts, 7), aborted, "");
}

#if defined(__OPTIMIZE__) && _FORTIFY_SOURCE > 0
TEST(FormatDeathTest, EndsTheProcessOnAWritableFormatThatWrites) {
    char format[] = "%n";
    int count = 0;
    EXPECT_EXIT((void)Format(format, &count), testing::KilledBySignal(SIGABRT), "");
}
#endif

TEST(Format, CountsWhatItHasPut) {
    int count = 0;
    EXPECT_EQ(Format("ab%ncd", &count), "abcd");
    EXPECT_EQ(count, 2);
}

class Times : public testing::Test {
protected:
    Times() { SetZone("UTC0"); }
    ~Times() override {
        ::unsetenv("TZ");
        ::tzset();
    }
    static void SetZone(const char* zone) { ::setenv("TZ", zone, 1); }
};

/// Seconds of a UTC date and time.
time_t Utc(int year, int month, int day, int hour, int minute, int second) {
    tm utc{};
    utc.tm_year = year - 1900;
    utc.tm_mon = month - 1;
    utc.tm_mday = day;
    utc.tm_hour = hour;
    utc.tm_min = minute;
    utc.tm_sec = second;
    return ::timegm(&utc);
}

struct TimeCase {
    int hour, minute, second;
    int flags;
    const char* want;
};

constexpr TimeCase kTimes[] = {
    {0, 0, 0, 0, "12:00:00 AM"},
    {0, 59, 59, 0, "12:59:59 AM"},
    {1, 0, 0, 0, "1:00:00 AM"},
    {7, 5, 9, 0, "7:05:09 AM"},
    {11, 59, 59, 0, "11:59:59 AM"},
    {12, 0, 0, 0, "12:00:00 AM"}, // the hour from noon on says AM: callers rely on it
    {12, 30, 0, 0, "12:30:00 AM"},
    {12, 59, 59, 0, "12:59:59 AM"},
    {13, 0, 0, 0, "1:00:00 PM"},
    {23, 59, 59, 0, "11:59:59 PM"},
    {0, 0, 0, 1, "0:00:00"},
    {7, 5, 9, 1, "7:05:09"},
    {12, 0, 0, 1, "12:00:00"},
    {17, 5, 9, 1, "17:05:09"},
    {17, 5, 9, 0xF1, "17:05:09"},
    {17, 5, 9, 0x101, "17:05:09"},
    {17, 5, 9, -15, "17:05:09"}, // ...F1
    {17, 5, 9, 2, "5:05:09 PM"},
    {17, 5, 9, 3, "5:05:09 PM"},
    {17, 5, 9, 0x10, "5:05:09 PM"},
    {17, 5, 9, -1, "5:05:09 PM"},
};

TEST_F(Times, FormatTimeHasTwoClocks) {
    for (const TimeCase& c : kTimes) {
        SCOPED_TRACE(Format("%d:%d:%d, flags %d", c.hour, c.minute, c.second, c.flags));
        EXPECT_EQ(String::FormatTime(Utc(2024, 3, 5, c.hour, c.minute, c.second), c.flags), c.want);
    }
}

struct DateCase {
    int year, month, day;
    int flags;
    const char* want;
};

constexpr DateCase kDates[] = {
    {2024, 3, 5, 0x10, "5/3/24"},      {2024, 3, 5, 0x20, "2024/3/5"},   {2024, 3, 5, 0x00, "3/5/24"},
    {2024, 3, 5, 0x30, "3/5/24"},      {2024, 3, 5, 0xF0, "3/5/24"},     {2024, 3, 5, 0x11, "5/3/24"},
    {2024, 3, 5, 0x12F, "2024/3/5"},   {2024, 3, 5, 0x01, "3/5/24"},     {2005, 1, 9, 0x10, "9/1/05"},
    {2005, 1, 9, 0x20, "2005/1/9"},    {2005, 1, 9, 0x30, "1/9/05"},     {1999, 12, 31, 0, "12/31/99"},
    {2000, 1, 1, 0, "1/1/00"},         {2100, 10, 10, 0x10, "10/10/00"}, {1900, 1, 1, 0, "1/1/00"},
    {1899, 12, 31, 0, "12/31/-1"}, // the remainder keeps its sign
    {1895, 7, 4, 0x10, "4/7/-5"},      {1850, 7, 4, 0x10, "4/7/-50"},    {1700, 7, 4, 0, "7/4/00"},
    {10'000, 1, 2, 0x20, "10000/1/2"}, {-1, 1, 2, 0x20, "-1/1/2"},
};

TEST_F(Times, FormatDateHasThreeLayouts) {
    for (const DateCase& c : kDates) {
        SCOPED_TRACE(Format("%d-%d-%d, flags 0x%X", c.year, c.month, c.day, static_cast<unsigned>(c.flags)));
        EXPECT_EQ(String::FormatDate(Utc(c.year, c.month, c.day, 12, 0, 0), c.flags), c.want);
    }
}

struct DateTimeCase {
    const char* name;
    time_t time;
    int flags;
    const char* want;
};

constexpr time_t k2To32 = 0x1'0000'0000;

constexpr DateTimeCase kDateTimes[] = {
    {"both selected", 1709658309, 0x21, "2024/3/5 17:05:09"},
    {"neither selected", 1709658309, 0x00, "3/5/24 5:05:09 PM"},
    {"day first", 1709658309, 0x10, "5/3/24 5:05:09 PM"},
    {"zero", 0, 0x21, "UNKNOWN"},
    {"zero, other flags", 0, 0x00, "UNKNOWN"},
    {"one", 1, 0x21, "1970/1/1 0:00:01"},
    {"the last second of 31 bits", 0x7FFF'FFFF, 0x21, "2038/1/19 3:14:07"},
    {"bit 31", 0x8000'0000, 0x21, "UNKNOWN"},
    {"all of 32 bits", 0xFFFF'FFFF, 0x21, "UNKNOWN"},
    {"minus one", -1, 0x21, "UNKNOWN"},
    {"2^32: only its low half is zero", k2To32, 0x21, "2106/2/7 6:28:16"},
    {"bit 31 above 2^32", k2To32 + 0x8000'0000, 0x21, "UNKNOWN"},
    {"-2^32", -k2To32, 0x21, "1833/11/24 17:31:44"},
    {"-2^31", -0x8000'0000LL, 0x21, "UNKNOWN"},
    {"negative with bit 31 clear", -0x8000'0001LL, 0x21, "1901/12/13 20:45:51"},
};

TEST_F(Times, FormatDateTimeLooksAtBit31) {
    for (const DateTimeCase& c : kDateTimes) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(String::FormatDateTime(c.time, c.flags), c.want);
    }
}

TEST_F(Times, FormatTimeAndDateTakeAnyTime) {
    EXPECT_EQ(String::FormatTime(0, 1), "0:00:00");
    EXPECT_EQ(String::FormatDate(0, 0x20), "1970/1/1");
    EXPECT_EQ(String::FormatTime(-1, 1), "23:59:59");
    EXPECT_EQ(String::FormatDate(-1, 0x20), "1969/12/31");
}

TEST_F(Times, AYearBeyondTheCLibraryIsUnknown) {
    constexpr time_t kLast = std::numeric_limits<time_t>::max() & ~time_t{0x8000'0000};
    constexpr time_t kFirst = std::numeric_limits<time_t>::min();
    for (const time_t time : {kLast, kFirst}) {
        EXPECT_EQ(String::FormatTime(time, 1), "UNKNOWN");
        EXPECT_EQ(String::FormatDate(time, 0x20), "UNKNOWN");
        EXPECT_EQ(String::FormatDateTime(time, 0x21), "UNKNOWN");
    }
    // The last year that does fit: 1900 more than an int holds.
    EXPECT_EQ(String::FormatDate(67'768'036'191'676'799, 0x20), "2147485547/12/31");
}

TEST_F(Times, FollowTheZoneOfTheMoment) {
    SetZone("EST5");
    EXPECT_EQ(String::FormatDateTime(1709658309, 0x21), "2024/3/5 12:05:09");
    SetZone("IST-5:30");
    EXPECT_EQ(String::FormatDateTime(1709658309, 0x21), "2024/3/5 22:35:09");
    EXPECT_EQ(String::FormatDate(1709658309 + 7200, 0x10), "6/3/24");
    SetZone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(String::FormatTime(1720000000, 1), "11:46:40"); // 09:46:40 UTC in summer
}

} // namespace
