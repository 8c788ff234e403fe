// Fills a template and shows the problems that were found in it.
#include "base/BaseHelpers.h"

#include <cstdio>

int main() {
    string_map macros;
    macros.Split("name=World, greeting=Hello $name$, $HOME=/home/studio", 0);

    std::string text;
    std::string log = String::ExpandDelimited(text, "$greeting$! That costs 5$$.", macros, true, '$');
    std::printf("%s\n%s", text.c_str(), log.c_str());

    // Problems do not stop it: what has no value stays as it is.
    log = String::ExpandDelimited(text, "Dear $title$ $name$, $1st$ of all, $", macros, true, '$');
    std::printf("%s\n%s", text.c_str(), log.c_str());

    // Words that are keys need no delimiters here.
    text = String::ExpandIdentifier("cd $HOME && echo name", macros, nullptr);
    std::printf("%s\n", text.c_str());
}
