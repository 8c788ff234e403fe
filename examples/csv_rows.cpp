// Writes a CSV row, reads it back and shows what happens to a broken one.
#include "base/BaseHelpers.h"

#include <cstdio>

int main() {
    string_vector track;
    track.assign({"7", "Say \"hi\", then go", "", "two\r\nlines"});
    const std::string row = track.saveToCSVString(0, false, ',', '"');
    std::printf("%s\n", row.c_str());

    string_vector fields;
    const bool whole = fields.loadFromCSVString(row.c_str(), false, ',', '"');
    std::printf("whole: %d, same: %d\n", whole, fields == track);

    // The fields in front of the broken one stay in the list.
    const bool broken = !fields.loadFromCSVString("1;'two';'never closed", true, ';', '\'');
    std::printf("broken: %d, fields: %zu\n", broken, fields.size());

    // Field by field, without a list; a trimmed field has no blanks around it.
    int status = 0;
    for (const char* cursor = "a, b ,\"c,d\""; status == 0;) {
        std::string field;
        status = String::ReadCSVField(field, cursor, true, ',', '"');
        std::printf("[%s]\n", field.c_str());
    }
}
