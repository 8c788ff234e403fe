#include "tools/checks/CheckReport.h"

#include "tools/program/Numbers.h"

#include <pugixml.hpp>

#include <sstream>

namespace vrx::tool {

namespace {

/// XML holds no text but UTF-8 without control characters; what is observed may be any bytes.
std::string PlainText(const std::string& text) {
    std::string plain = text;
    for (char& c : plain) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte < 0x20 && c != '\n') || byte > 0x7E) c = '?';
    }
    return plain;
}

std::string Sentences(const Observation& what) {
    std::string text;
    if (!what.expected.empty()) text += "expected: " + what.expected + "\n";
    if (!what.got.empty()) text += "got: " + what.got + "\n";
    if (!what.means.empty()) text += "means: " + what.means + "\n";
    return PlainText(text);
}

void AddText(pugi::xml_node parent, const char* element, const char* message, const std::string& text) {
    pugi::xml_node node = parent.append_child(element);
    node.append_attribute("message") = message;
    node.append_child(pugi::node_pcdata).set_value(text.c_str());
}

void AddCase(pugi::xml_node suite, const CheckResult& result, const std::string& className) {
    pugi::xml_node testCase = suite.append_child("testcase");
    testCase.append_attribute("classname") = className.c_str();
    testCase.append_attribute("name") = result.check->name;
    testCase.append_attribute("time") = Fixed(result.seconds, 3).c_str();
    const std::string got = PlainText(result.what.got);
    const std::string text = Sentences(result.what);
    switch (result.state) {
    case CheckState::kPassed:
        break;
    case CheckState::kFailed:
        AddText(testCase, "failure", got.c_str(), text);
        break;
    case CheckState::kCrashed:
    case CheckState::kTimedOut:
        AddText(testCase, "error", got.c_str(), text);
        break;
    case CheckState::kSkipped:
        testCase.append_child("skipped").append_attribute("message") = got.c_str();
        break;
    case CheckState::kWarned:
        testCase.append_child("system-out")
            .append_child(pugi::node_pcdata)
            .set_value(("warning\n" + text).c_str());
        break;
    }
    if (!result.output.empty())
        testCase.append_child("system-err")
            .append_child(pugi::node_pcdata)
            .set_value(PlainText(result.output).c_str());
}

} // namespace

std::string CheckReport::JUnit() const {
    pugi::xml_document document;
    document.append_child(pugi::node_declaration).append_attribute("version") = "1.0";
    document.first_child().append_attribute("encoding") = "UTF-8";
    pugi::xml_node suite = document.append_child("testsuites").append_child("testsuite");
    const std::string name =
        std::string("vrx check ") + KindName(m_target.kind) + " " + PlainText(m_target.Name());
    double seconds = 0;
    for (const CheckResult& result : m_results) seconds += result.seconds;
    suite.append_attribute("name") = name.c_str();
    suite.append_attribute("tests") = static_cast<unsigned>(m_results.size());
    suite.append_attribute("failures") = static_cast<unsigned>(Count(CheckState::kFailed));
    suite.append_attribute("errors") =
        static_cast<unsigned>(Count(CheckState::kCrashed) + Count(CheckState::kTimedOut));
    suite.append_attribute("skipped") = static_cast<unsigned>(Count(CheckState::kSkipped));
    suite.append_attribute("time") = Fixed(seconds, 3).c_str();
    for (const CheckResult& result : m_results)
        AddCase(suite, result,
                std::string(KindName(m_target.kind)) + ".level" + std::to_string(result.check->level));
    std::ostringstream text;
    document.save(text, "  ");
    return text.str();
}

} // namespace vrx::tool
