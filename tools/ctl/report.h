// What a command of kalixctl found out: fields and tables, printed for people or as JSON.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace kalix::ctl {

using value = std::variant<uint64_t, int64_t, double, bool, std::string, std::vector<uint64_t>>;

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
};

std::string as_text(const report& what);
std::string as_json(const report& what);

} // namespace kalix::ctl
