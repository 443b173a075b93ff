// Command lines: a program says in tables what it takes, and one reader serves them all.
//
// The tables are constants that anything may walk: the reader parses by them, --help prints them, and manual
// pages and shell completion are made of them (tools/describe/). A program's main() is one call of run(), which answers --help
// and --version itself, tells complaints with a pointer to the help that would have answered, and turns what a
// command throws into one line and an exit status; or into {"error": "...", "hint": "...", "status": 1}. The argument library is seen by command_line.cpp alone: its
// header costs every source that includes it ten seconds.
//
// One thread, once in a process.
#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kalix::tools {

// What may stand as a value. Text, file and directory are read alike; a shell completes them differently.
enum class value_kind {
    flag, // no value: it is there or not
    text,
    file,
    directory,
    number, // decimal or 0x..., within the parameter's bounds
    size,   // "WxH", each side within the bounds
};

struct choice { // a word that a text may be
    const char* name;
    const char* summary;
};
// A line for each, as help has them.
std::string listed(std::span<const choice> choices);

// An option when its name begins with dashes, else a positional argument.
struct parameter {
    const char* name;
    value_kind kind = value_kind::flag;
    bool required = false;
    bool value_optional = false; // the option may stand alone; its text then is ""
    const char* value = "";      // what help calls the value
    const char* help = "";
    const char* initial = "";             // the value that holds when none is given
    int64_t least = 0, most = UINT32_MAX; // bounds of a number or of a size's sides, both included
    const char* needs = "";               // the option without which this one means nothing
    std::span<const choice> choices = {}; // the words that it may be, when there are any
};

struct size { // pixels
    uint32_t width = 0, height = 0;
};

struct command;

// What a command line held, checked against the tables. Asking for a name that is in no table of the program and
// of the command chosen, or for a number in a type that cannot hold the parameter's, is a std::logic_error.
class arguments {
public:
    bool has(std::string_view name) const { return find(name).given.has_value(); }
    std::string text(std::string_view name) const; // as given, else the initial value
    int64_t number(std::string_view name) const;
    size extent(std::string_view name) const;
    template <std::integral integer>
    integer number(std::string_view name) const
    {
        const int64_t value = number(name);
        if (!std::in_range<integer>(value))
            throw std::logic_error{std::string{name} + " is let through beyond its reader's type"};
        return static_cast<integer>(value);
    }
    // The words behind "--", of a program that takes a command there.
    const std::vector<std::string>& words() const { return words_; }

private:
    friend class command_line_reader;
    struct slot {
        const parameter* what;
        const command* of; // null: the program's own
        std::optional<std::string> given;
    };
    const slot& find(std::string_view name) const;

    std::vector<slot> slots_; // of the program and the command chosen
    std::vector<std::string> words_;
};

// Does what was asked for and returns the exit status. May throw usage_error, std::system_error (its text goes on
// from "cannot "), or any other std::exception with a whole sentence.
using action = int (*)(const arguments& given);

// Thrown for what the tables cannot say, as that two options go together; told as they are.
struct usage_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct command {
    const char* name;
    const char* summary; // one line
    std::span<const parameter> parameters;
    action run;
};

struct section { // of the help, below the options; lines without indentation
    const char* title;
    const char* text;
};

struct program {
    const char* name;
    const char* summary;          // one line: what it does
    const char* description = ""; // paragraphs, when a line does not do
    const char* usage;            // behind "Usage: "
    std::span<const parameter> parameters;
    std::span<const command> commands = {}; // one of them is chosen, or
    action run = nullptr;                   // there are none, and this is done
    std::span<const section> sections = {};
    // What words behind "--" are called, and a sentence for who has put them elsewhere; none: not taken. They are
    // required, and reach the program as they are, dashes and all.
    const char* words = nullptr;
    const char* words_hint = "";
    bool asks_server = false;          // one that is missing or gone is told with what to look at
    const char* json_option = nullptr; // given on the command line, it makes complaints JSON objects
    int failure_status = 1;
    int usage_status = 2;
};

// Serves a command line; returns the program's exit status.
int run(const program& what, int argc, char** argv);

} // namespace kalix::tools
