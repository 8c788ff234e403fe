// Profile edits against a model of the list, compared after every operation.
// Input: the list's lines, each ended by LF, up to a NUL; then operations: an operation byte, followed by
// section, key and value, each up to a NUL.

#include "base/StringVector.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/Require.h"
#include "fuzz/twins/Profile.h"
#include "fuzz/twins/Tokens.h"

#include <cstdlib>
#include <string>
#include <vector>

using namespace vrx::fuzz;

namespace {

/// The list as the rules of reading and writing leave it; a null text is a null pointer.
struct Model {
    std::vector<std::string> lines;

    int ReadNumber(const char* section, const char* key, int defaultValue) const {
        const std::string text = SlowProfileStr(lines, section, key, nullptr);
        return text.empty() ? defaultValue : static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
    }

    void Write(const char* section, const char* key, const char* value) {
        if (!section || !*section) return;
        const size_t body = SlowSectionBody(lines, section);
        if (body == 0) {
            if (!key || !value) return;
            lines.push_back("[" + std::string(section) + "]");
            lines.push_back(std::string(key) + "=" + value);
        } else if (!key) {
            size_t end = body;
            while (end < lines.size() && (lines[end].empty() || lines[end][0] != '[')) ++end;
            lines.erase(At(body - 1), At(end));
        } else {
            Put(body, key, std::string(key) + "=" + (value ? value : "(null)"));
        }
    }

private:
    void Put(size_t body, const char* key, const std::string& line) {
        for (size_t i = body; i < lines.size(); ++i) {
            if (lines[i].empty() || lines[i][0] == ';') continue;
            if (lines[i][0] == '[') {
                lines.insert(At(i - 1), line);
                return;
            }
            const std::vector<std::string> parts = SlowTokens(lines[i], "=", 0);
            if (!parts.empty() && !SameText(parts[0], key)) continue;
            lines[i] = line;
            return;
        }
        lines.push_back(line);
    }

    std::vector<std::string>::iterator At(size_t i) { return lines.begin() + static_cast<ptrdiff_t>(i); }
};

/// One text argument, null if the operation byte says so.
class Argument {
public:
    Argument(FuzzInput& input, bool isNull) : m_text(isNull ? "" : input.Field()), m_isNull(isNull) {}
    const char* Text() const { return m_isNull ? nullptr : m_text.c_str(); }

private:
    std::string m_text;
    bool m_isNull;
};

void Operate(string_vector& list, Model& model, FuzzInput& input) {
    const uint8_t operation = input.Byte();
    const Argument section(input, (operation & 0x80) != 0);
    const Argument key(input, (operation & 0x40) != 0);
    const Argument value(input, (operation & 0x20) != 0);
    // Callers never pass a value without a key for a section that exists.
    const bool keyMissing =
        !key.Text() && section.Text() && SlowSectionBody(model.lines, section.Text()) != 0;

    switch (operation % 4) {
    case 0:
        RequireSame(list.GetProfileStr(section.Text(), key.Text(), value.Text()),
                    SlowProfileStr(model.lines, section.Text(), key.Text(), value.Text()), "the text read");
        break;
    case 1:
        RequireSame(list.GetProfileIntg(section.Text(), key.Text(), -operation),
                    model.ReadNumber(section.Text(), key.Text(), -operation), "the number read");
        break;
    case 2:
        if (keyMissing && value.Text()) break;
        list.WriteProfileStr(section.Text(), key.Text(), value.Text());
        model.Write(section.Text(), key.Text(), value.Text());
        break;
    case 3: {
        if (keyMissing) break;
        const int number = static_cast<int>(input.Word());
        list.WriteProfileIntg(section.Text(), key.Text(), number);
        model.Write(section.Text(), key.Text(), std::to_string(number).c_str());
        break;
    }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const std::string text = input.Field();
    FuzzInput lines(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    Model model;
    while (!lines.AtEnd()) model.lines.push_back(lines.Field('\n'));

    string_vector list;
    list.assign(model.lines.begin(), model.lines.end());
    while (!input.AtEnd()) {
        Operate(list, model, input);
        RequireSame(static_cast<const std::vector<std::string>&>(list), model.lines,
                    "the list after an operation");
    }
    return 0;
}
