#include "changerctl/CommandLine.h"

#include "changerctl/Failure.h"
#include "changerctl/Identifiers.h"
#include "changerctl/Terminal.h"
#include "changerctl/Version.h"

#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <sstream>

namespace changerctl {
namespace {

constexpr int kLongestLimit = 1'000'000; // seconds, 11 days
constexpr int kLastDrive = 0xFFFE;       // on the wire, 0xFFFF is any drive

const std::map<std::string, ColourChoice> kColourChoices{
    {"auto", ColourChoice::Auto}, {"always", ColourChoice::Always}, {"never", ColourChoice::Never}};

// The help text shows the description of a validator behind the type name of its option.
CLI::Validator Undescribed(const CLI::Validator& validator) {
    return validator.description("");
}

// The usage line takes the arguments of a command from the type name of its only positional option:
// CLI11 cannot express an optional argument before a required one.
class HelpFormatter : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App* app, std::string name) const override {
        std::string usage = "usage: " + name;
        if (app->get_parent() == nullptr)
            return usage + " COMMAND [OPTION...] [ARGUMENT...]\n";
        for (const CLI::Option* option : app->get_options())
            if (option->get_positional())
                usage += " " + option->get_type_name();
        return usage + " [OPTION...]\n";
    }
    std::string make_positionals(const CLI::App*) const override {
        return "";
    }
};

// The parser, which stores the values in its Options.
class Parser {
public:
    Parser();
    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;
    // Nothing after --help and --version, whose text is printed.
    std::optional<Options> Parse(int argc, char** argv);

private:
    CLI::App* AddCommand(const char* name, const char* arguments, const char* description);
    void AddGlobalOptions();
    void AddOutputCommands();
    void AddRequestCommands();
    void AddDiscCommands();
    void AddTableOptions(CLI::App* command);
    void AddRequestOptions(CLI::App* command, const char* withdrawal);

    CLI::App app_{"Shows what optical-disc changers do, and requests work of their server."};
    Options options_;
};

Parser::Parser() {
    app_.name("changerctl");
    app_.formatter(std::make_shared<HelpFormatter>());
    app_.require_subcommand(1);
    app_.fallthrough(); // global options may follow the command
    app_.footer(
        "CHANGER is the GUID of a changer in hexadecimal; it may be left out if the server "
        "has only one.\n"
        "SLOT is a number or a range: 3, 3-7, 3-7,9.\n"
        "Exit status: 0 done, 1 refused by the server, 2 wrong usage, 3 no server, 4 no such\n"
        "changer or slot, 5 time limit passed, 6 ended otherwise. See changerctl(1).");
    AddGlobalOptions();
    AddOutputCommands();
    AddRequestCommands();
    AddDiscCommands();
}

void Parser::AddGlobalOptions() {
    app_.set_version_flag("--version", std::string("changerctl ") + kVersion);
    app_.add_flag("--verbose", options_.isVerbose,
                  "Print the messages of the connection library to standard error");
    app_.add_option_function<std::string>(
            "--color",
            [this](const std::string& when) { options_.colour = kColourChoices.at(when); },
            "Use colours: auto, always, never")
        ->check(Undescribed(CLI::IsMember({"auto", "always", "never"})))
        ->type_name("WHEN");
    app_.add_option_function<int>(
            "--timeout", [this](int limit) { options_.timeLimit = std::chrono::seconds(limit); },
            "Give up after this time")
        ->check(Undescribed(CLI::Range(1, kLongestLimit)))
        ->type_name("SECONDS");
}

CLI::App* Parser::AddCommand(const char* name, const char* arguments, const char* description) {
    CLI::App* command = app_.add_subcommand(name, description);
    command->callback([this, name] { options_.command = name; });
    if (*arguments != '\0')
        command->add_option("arguments", options_.arguments)->type_name(arguments)->expected(0, -1);
    return command;
}

void Parser::AddTableOptions(CLI::App* command) {
    command->add_flag("--json", options_.asJson, "Print JSON");
    command->add_flag("!--no-header", options_.hasHeader, "Print no heading");
    command->add_option("--columns", options_.columns, "Print these columns, separated by commas")
        ->delimiter(',')
        ->allow_extra_args(false) // a changer may follow
        ->type_name("NAMES");
}

void Parser::AddOutputCommands() {
    AddTableOptions(AddCommand("list", "", "Print a line for each changer"));
    AddTableOptions(AddCommand("show", "[CHANGER]", "Print the slots of a changer"));
    CLI::App* watch = AddCommand("watch", "[CHANGER]", "Show each change until interrupted");
    watch->add_flag("--json", options_.asJson, "Print each change as a line of JSON");
}

void Parser::AddRequestOptions(CLI::App* command, const char* withdrawal) {
    command->add_flag("--withdraw", options_.isWithdrawal, withdrawal);
    command->add_flag("--wait", options_.waits, "Wait for the end and show the progress");
}

void Parser::AddRequestCommands() {
    CLI::App* identify =
        AddCommand("identify", "[CHANGER] SLOT...", "Request the identification of discs");
    identify->add_flag("--new", options_.onlyNew, "The discs that were never identified");
    AddRequestOptions(identify, "Withdraw the requests");
    AddRequestOptions(AddCommand("build", "[CHANGER]", "Request that all directories be cached"),
                      "Withdraw the request");
    AddRequestOptions(AddCommand("abort", "[CHANGER]", "Stop the build that is under way"),
                      "Clear a request to abort that no build answers");
}

void Parser::AddDiscCommands() {
    CLI::App* mount = AddCommand("mount", "[CHANGER] SLOT", "Load a disc and print its path");
    mount->add_option("--drive", options_.drive, "Use this drive")
        ->check(Undescribed(CLI::Range(0, kLastDrive)))
        ->type_name("N");
    CLI::App* eject = AddCommand("eject", "[CHANGER] SLOT", "Send a disc back to its slot");
    eject->add_flag("--force", options_.isForced, "Even if another process uses the disc");
}

std::optional<Options> Parser::Parse(int argc, char** argv) {
    try {
        app_.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0)
            throw Failure(ExitStatus::Usage, std::string(error.what()) + "; see changerctl --help");
        std::ostringstream text;
        app_.exit(error, text, text);
        Write(text.str());
        return std::nullopt;
    }
    return std::move(options_);
}

} // namespace

std::optional<Options> ParseCommandLine(int argc, char** argv) {
    return Parser().Parse(argc, argv);
}

} // namespace changerctl
