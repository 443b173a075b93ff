// What a command of kalixctl found out: fields and tables, printed for people or as JSON.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace kalix::ctl {

// What is more than a number or a text. JSON has it by its parts, people as they write it.
struct extent { // {"width": 4, "height": 3}; 4x3
    uint32_t width, height;
};
struct box { // {"width": 4, "height": 3, "depth": 1}; 4x3, 4x3x2
    uint32_t width, height, depth;
};
struct rectangle { // {"x": 0, "y": 0, "width": 4, "height": 3}; 4x3 at (0, 0)
    int32_t x, y;
    int64_t width, height;
};
struct pixel { // a number; 0xFF336699
    uint32_t word;
};
struct octets { // numbers; "88 66 44 22"
    std::vector<uint8_t> bytes;
};
struct unknown {}; // null; -

using value = std::variant<uint64_t, int64_t, double, bool, std::string, std::vector<uint64_t>,
                           std::vector<std::string>, extent, box, rectangle, pixel, octets, unknown>;

// A float as people wrote it: 0.1, not the double nearest to the float nearest to 0.1.
double plain(float number);

struct field {
    std::string name; // as JSON has it; people see spaces for underscores
    value content;
};
using record = std::vector<field>;

struct table {
    std::string name;
    std::vector<record> rows; // all with the same fields
};

struct report {
    record head;
    std::vector<table> tables;
    bool output_taken = false; // standard output has the picture: the report goes to standard error
    int status = 0;            // that the program exits with
};

std::string as_text(const report& what);
std::string as_json(const report& what);
std::string as_json_line(const record& what); // one object on one line

} // namespace kalix::ctl
