// Formatting against vsnprintf. Input: three arguments, then the format.
//
// An argument is a byte that chooses its kind, then
//   0   an int: four bytes
//   1   a long: four bytes, and a flag: whether the upper half is the same (or zero)
//   2   a text up to a NUL, 3   a null text
//   4   a double: four bytes, divided by 1000
// What the format asks of an argument that is of another kind becomes a "%%", so that every input is a call that the
// language allows.

#include "base/StringFormat.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Require.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

using namespace vrx::fuzz;

namespace {

using Argument = std::variant<int, long, const char*, double>;

constexpr size_t kArguments = 3;

/// Texts outlive the arguments that point to them.
Argument TakeArgument(FuzzInput& input, std::string& text) {
    switch (input.UpTo(4)) {
    case 0:
        return static_cast<int>(input.Word());
    case 1: {
        const uint64_t word = input.Word();
        return static_cast<long>(input.Flag() ? word << 32 | word : word);
    }
    case 2:
        text = input.Field();
        return text.c_str();
    case 3:
        return static_cast<const char*>(nullptr);
    default:
        return static_cast<int>(input.Word()) / 1000.0;
    }
}

/// The arguments by the conversions that may ask for them; "h" and the like change the meaning of the int only.
bool Fits(const Argument& argument, std::string_view length, char conversion) {
    const bool isInteger = std::string_view("dioxXuc").find(conversion) != std::string_view::npos;
    const bool isReal = std::string_view("eEfFgGaA").find(conversion) != std::string_view::npos;
    if (isReal) return std::holds_alternative<double>(argument) && length.empty();
    if (conversion == 's') return std::holds_alternative<const char*>(argument) && length.empty();
    if (!isInteger) return false;
    if (length.empty() || length == "h" || length == "hh") return std::holds_alternative<int>(argument);
    if (conversion == 'c') return false; // wide, an int of a kind of its own
    return std::holds_alternative<long>(argument) &&
           (length == "l" || length == "z" || length == "j" || length == "t");
}

/// `raw` with each conversion that does not fit its argument, or is not one, turned into "%%". Widths and precisions
/// keep two digits, so that no text is too long.
std::string Allowed(std::string_view raw, const std::array<Argument, kArguments>& arguments) {
    const auto takeWhile = [&raw](std::string_view set, size_t most) {
        size_t size = 0;
        while (size < raw.size() && size < most && set.find(raw[size]) != std::string_view::npos) ++size;
        const std::string_view taken = raw.substr(0, size);
        raw.remove_prefix(size);
        return taken;
    };
    std::string format;
    size_t used = 0;
    while (!raw.empty()) {
        const char c = raw.front();
        raw.remove_prefix(1);
        if (c != '%') {
            format += c;
            continue;
        }
        std::string modifiers(takeWhile("-+ #0'", 6));
        modifiers += takeWhile("123456789", 2);
        if (!raw.empty() && raw.front() == '.') {
            modifiers += takeWhile(".", 1);
            modifiers += takeWhile("0123456789", 2);
        }
        const std::string length(takeWhile("hlzjt", 2));
        const char conversion = raw.empty() ? '\0' : raw.front();
        const bool fits =
            used < kArguments && conversion != '\0' && Fits(arguments[used], length, conversion);
        if (!fits) {
            format += "%%";
            continue; // what stood behind it goes on as plain text
        }
        raw.remove_prefix(1);
        ++used;
        format += '%' + modifiers + length + conversion;
    }
    return format;
}

/// The C library's text up to its first NUL.
std::string Wanted(const char* format, ...) {
    std::vector<char> text(65536);
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(text.data(), text.size(), format, args);
    va_end(args);
    Require(length >= 0 && length < static_cast<int>(text.size()),
            "the format is one, and its text is short enough");
    return text.data();
}

std::string ThroughList(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = String::FormatV(format, args);
    va_end(args);
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    std::array<std::string, kArguments> texts;
    std::array<Argument, kArguments> arguments;
    for (size_t i = 0; i < kArguments; ++i) arguments[i] = TakeArgument(input, texts[i]);
    const std::string format = Allowed(input.Field(), arguments);
    if (size > 16384) return 0; // what three texts, and a format, can add up to

    std::visit(
        [&](auto first, auto second, auto third) {
            const std::string want = Wanted(format.c_str(), first, second, third);
            RequireSame(String::Format(format.c_str(), first, second, third), want, "the text");
            RequireSame(ThroughList(format.c_str(), first, second, third), want, "the text through a list");
        },
        arguments[0], arguments[1], arguments[2]);
    return 0;
}
