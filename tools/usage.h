// The shape of the tools' help and of their complaints about a command line.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <utility>

namespace kalix::tools {

class usage_formatter : public CLI::Formatter {
public:
    explicit usage_formatter(std::string usage) : usage_{std::move(usage)} {}
    std::string make_usage(const CLI::App* /*app*/, std::string /*name*/) const override
    {
        return "\nUsage: " + usage_ + "\n";
    }

private:
    std::string usage_;
};

// Gives the program its own usage line in place of a generated one, and its name in front of errors.
inline void set_usage(CLI::App& app, const std::string& usage)
{
    app.formatter(std::make_shared<usage_formatter>(usage));
    app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
        return failed->get_name() + ": " + error.what() + "\nTry " + failed->get_name() + " --help.\n";
    });
}

} // namespace kalix::tools
