#include "tools/command_line.h"

#include "tools/describe/describe.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <filesystem>
#include <iostream>
#include <kalix/client.hpp>
#include <memory>
#include <system_error>

namespace kalix::tools {
namespace {

// Octal is not read: a leading zero is somebody's padding.
std::optional<int64_t> parse_number(std::string_view text)
{
    const bool negative = text.starts_with('-');
    text.remove_prefix(negative ? 1 : 0);
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(hexadecimal ? 2 : 0);
    uint64_t value = 0; // unsigned, so that no second sign is read
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hexadecimal ? 16 : 10);
    if (error != std::errc{} || end != text.data() + text.size() || value > INT64_MAX)
        return std::nullopt;
    return negative ? -static_cast<int64_t>(value) : static_cast<int64_t>(value);
}

std::optional<std::pair<int64_t, int64_t>> parse_size(std::string_view text)
{
    const size_t cross = text.find('x', 1);
    if (cross == std::string_view::npos)
        return std::nullopt;
    const auto width = parse_number(text.substr(0, cross));
    const auto height = parse_number(text.substr(cross + 1));
    if (!width || !height)
        return std::nullopt;
    return std::pair{*width, *height};
}

void expect_within(const parameter& what, int64_t value, const std::string& text)
{
    if (value < what.least || value > what.most)
        throw CLI::ValidationError{what.name, text + " is not from " + std::to_string(what.least) + " to " +
                                                  std::to_string(what.most)};
}

void check_choice(const parameter& what, const std::string& text)
{
    if (what.choices.empty() || std::ranges::any_of(what.choices, [&](const choice& one) { return one.name == text; }))
        return;
    std::string names;
    for (const choice& one : what.choices)
        names.append(names.empty() ? "" : ", ").append(one.name);
    throw CLI::ValidationError{what.name, "there is no " + text + "; there are " + names};
}

void check(const parameter& what, const std::string& text)
{
    if (what.kind == value_kind::number) {
        const auto value = parse_number(text);
        if (!value)
            throw CLI::ValidationError{what.name, text + " is no number"};
        expect_within(what, *value, text);
    } else if (what.kind == value_kind::size) {
        const auto sides = parse_size(text);
        if (!sides)
            throw CLI::ValidationError{what.name, text + " is no size; give it as WxH, say 1024x768"};
        expect_within(what, sides->first, "the width of " + text);
        expect_within(what, sides->second, "the height of " + text);
    }
    check_choice(what, text);
}

// A JSON string. Bytes that are no ASCII pass: they are UTF-8 where the program's words and files' names are.
std::string json_string(std::string_view text)
{
    std::string out = "\"";
    for (const char c : text)
        if (static_cast<unsigned char>(c) < ' ') {
            constexpr char digits[] = "0123456789abcdef";
            out.append("\\u00").append(1, digits[c >> 4]).append(1, digits[c & 15]);
        } else
            out.append(c == '"' || c == '\\' ? "\\" : "").append(1, c);
    return out + "\"";
}

// Looked for in the words themselves: what is wrong with them may be what keeps them from being read.
bool wants_json(const program& what, std::span<char* const> words)
{
    return what.json_option &&
           std::ranges::any_of(words, [&](const char* word) { return std::string_view{word} == what.json_option; });
}

// Tells on standard error what went wrong, and what may help.
int complain(const program& what, std::span<char* const> words, const std::string& text, const std::string& hint,
             int status)
{
    if (!wants_json(what, words))
        std::cerr << what.name << ": " << text << '\n' << hint << (hint.empty() ? "" : "\n");
    else
        std::cerr << "{\"error\": " << json_string(text) << (hint.empty() ? "" : ", \"hint\": " + json_string(hint))
                  << ", \"status\": " << status << "}\n";
    return status;
}

// The library's own, with this program's usage line.
class formatter : public CLI::Formatter {
public:
    explicit formatter(std::string usage) : usage_{std::move(usage)} {}
    std::string make_usage(const CLI::App*, std::string) const override { return "\nUsage: " + usage_ + "\n"; }

private:
    std::string usage_;
};

std::string usage_of(const program& what, const command& of)
{
    std::string usage = std::string{what.name} + " " + of.name + " [OPTIONS]";
    for (const parameter& one : of.parameters)
        if (one.name[0] != '-')
            usage += one.required ? std::string{" "} + one.value : std::string{" ["} + one.value + "]";
    return usage;
}

std::string footer_of(const program& what)
{
    std::string text;
    for (const parameter& one : what.parameters)
        if (!one.choices.empty())
            text.append("\n").append(one.value).append("\n").append(listed(one.choices));
    for (const section& one : what.sections) {
        text.append("\n").append(one.title).append("\n  ");
        for (const char c : std::string_view{one.text})
            text.append(c == '\n' ? "\n  " : std::string{c});
        text += "\n";
    }
    text.erase(text.find_last_not_of('\n') + 1);
    return text;
}

} // namespace

std::string listed(std::span<const choice> choices)
{
    size_t width = 0;
    for (const choice& one : choices)
        width = std::max(width, std::string_view{one.name}.size());
    std::string text;
    for (const choice& one : choices) {
        std::string name = one.name;
        name.resize(width + 2, ' ');
        text += "  " + name + one.summary + "\n";
    }
    return text;
}

const arguments::slot& arguments::find(std::string_view name) const
{
    const auto found = std::ranges::find_if(slots_, [name](const slot& one) { return one.what->name == name; });
    if (found == slots_.end())
        throw std::logic_error{std::string{name} + " is in no table"};
    return *found;
}

std::string arguments::text(std::string_view name) const
{
    const slot& one = find(name);
    return one.given.value_or(one.what->initial);
}

int64_t arguments::number(std::string_view name) const
{
    return parse_number(text(name)).value_or(0);
}

size arguments::extent(std::string_view name) const
{
    const auto [width, height] = parse_size(text(name)).value_or(std::pair{0, 0});
    return {static_cast<uint32_t>(width), static_cast<uint32_t>(height)};
}

// The tables made into the library's objects, and one parse by them.
class command_line_reader {
public:
    command_line_reader(const program& what, std::span<char* const> given)
        : what_{what}, words_{given}, app_{std::string{what.summary} + (*what.description ? "\n\n" : "") +
                                               what.description,
                                           what.name}
    {
        app_.formatter(std::make_shared<formatter>(what.usage));
        app_.footer(footer_of(what));
        app_.set_help_flag("-h,--help", common_parameters[0].help);
        app_.set_version_flag("--version", std::string{what.name} + " " KALIX_VERSION, common_parameters[1].help);
        app_.fallthrough(); // the program's options may stand behind the command, too
        declare(app_, what.parameters, nullptr);
        for (const command& one : what.commands) {
            CLI::App* const sub = app_.add_subcommand(one.name, one.summary);
            sub->formatter(std::make_shared<formatter>(usage_of(what, one)));
            sub->footer("");
            declare(*sub, one.parameters, &one);
        }
        app_.require_subcommand(0, 1);
        app_.allow_extras(); // refused below, by name
    }

    // The exit status, when --help or --version has been answered or something is wrong.
    std::optional<int> read(int argc, char** argv)
    {
        try {
            app_.parse(what_.words ? take_words(argc, argv) : argc, argv);
        } catch (const CLI::ParseError& error) {
            return error.get_exit_code() == 0 ? app_.exit(error) : refuse(error.what());
        }
        if (const auto extra = app_.remaining(true); !extra.empty())
            return refuse_words("what is " + extra.front() + " for?");
        if (what_.words && given_.words_.empty())
            return refuse_words("no command?");
        if (!what_.commands.empty() && !chosen())
            return refuse("no command given");
        std::erase_if(given_.slots_, [this](const arguments::slot& one) { return one.of && one.of != chosen(); });
        return std::nullopt;
    }

    int act() const
    {
        const command* const of = chosen();
        return (of ? of->run : what_.run)(given_);
    }

    // Tells a complaint, and whose help answers it: the command's once one is chosen.
    int refuse(const std::string& text) const
    {
        const command* const of = chosen();
        const std::string name = what_.name;
        return complain(what_, words_, text, "Try " + (of ? name + " " + of->name : name) + " --help.",
                        what_.usage_status);
    }

private:
    int refuse_words(const std::string& text) const
    {
        return refuse(what_.words ? text + " " + what_.words_hint : text);
    }

    const command* chosen() const
    {
        const auto found =
            std::ranges::find_if(what_.commands, [this](const command& one) { return app_.got_subcommand(one.name); });
        return found == what_.commands.end() ? nullptr : &*found;
    }

    void declare(CLI::App& to, std::span<const parameter> parameters, const command* of)
    {
        for (const parameter& one : parameters) {
            const size_t index = given_.slots_.size();
            given_.slots_.push_back({&one, of, std::nullopt});
            if (one.kind == value_kind::flag)
                to.add_flag_function(
                    one.name, [this, index](int64_t) { given_.slots_[index].given = ""; }, one.help);
            else
                declare_value(to, one, index);
        }
        for (const parameter& one : parameters)
            if (*one.needs)
                to.get_option(one.name)->needs(to.get_option(one.needs));
    }

    void declare_value(CLI::App& to, const parameter& what, size_t index)
    {
        const auto take = [this, &what, index](const CLI::results_t& results) {
            const std::string text = results.empty() ? "" : results.back();
            if (!text.empty() || !what.value_optional)
                check(what, text);
            given_.slots_[index].given = text;
            return true;
        };
        CLI::Option* const option = to.add_option(what.name, take, what.help);
        option->type_name(what.value)->default_str(what.initial)->required(what.required);
        option->expected(what.value_optional ? 0 : 1, 1);
    }

    // The words behind "--" are taken as they are; returns how many stand before it.
    int take_words(int argc, char** argv)
    {
        char** const end = argv + argc;
        char** const dashes = std::find_if(argv, end, [](const char* word) { return std::string_view{word} == "--"; });
        if (dashes != end)
            given_.words_.assign(dashes + 1, end);
        return static_cast<int>(dashes - argv);
    }

    const program& what_;
    std::span<char* const> words_; // all of them, as they were given
    CLI::App app_;
    arguments given_;
};

namespace {

std::optional<std::string> description_asked(const program& what, std::span<char* const> words)
{
    return words.size() == 3 && words[1] == describe_option ? describe(what, words[2]) : std::nullopt;
}

} // namespace

int run(const program& what, int argc, char** argv)
{
    const std::span words{argv, static_cast<size_t>(argc)};
    const auto fail = [&](const std::string& text, bool without_server = false) {
        const char* const hint = "Is a server running? KALIX_RUN_DIR names its run directory.";
        return complain(what, words, text, without_server && what.asks_server ? hint : "", what.failure_status);
    };
    try {
        if (const auto text = description_asked(what, words)) {
            std::cout << *text << std::flush;
            return std::cout.good() ? 0 : what.failure_status;
        }
        command_line_reader reader{what, words};
        if (const auto status = reader.read(argc, argv))
            return *status;
        try {
            return reader.act();
        } catch (const usage_error& error) {
            return reader.refuse(error.what());
        }
    } catch (const std::filesystem::filesystem_error& error) { // a whole sentence, unlike its base
        return fail(error.what());
    } catch (const std::system_error& error) {
        // libkalix says itself what a connection lacks; a file of the server's that is missing says no more than that.
        const bool without_server =
            error.code() == std::errc::no_such_file_or_directory && !dynamic_cast<const client::open_error*>(&error);
        return fail(std::string{"cannot "} + error.what(), without_server);
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}

} // namespace kalix::tools
