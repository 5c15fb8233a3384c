// changerctl: shows what optical-disc changers do, and requests work of their server.

#include "changerctl/CommandLine.h"
#include "changerctl/Commands.h"
#include "changerctl/Failure.h"
#include "changerctl/Interruption.h"
#include "changerctl/LibraryLog.h"
#include "changerctl/PrintableText.h"

#include <clocale>
#include <csignal>
#include <cstdio>
#include <exception>
#include <map>

namespace changerctl {
namespace {

using Command = void (*)(const Options& options);

const std::map<std::string, Command> kCommands{
    {"list", List},   {"show", Show},   {"watch", Watch}, {"identify", Identify},
    {"build", Build}, {"abort", Abort}, {"mount", Mount}, {"eject", Eject}};

ExitStatus Fail(ExitStatus status, const char* message) {
    std::fprintf(stderr, "changerctl: %s\n", Printable(message).c_str());
    return status;
}

ExitStatus Run(int argc, char** argv) {
    try {
        const std::optional<Options> options = ParseCommandLine(argc, argv);
        if (!options)
            return ExitStatus::Done;
        const LibraryLog log(options->isVerbose);
        kCommands.at(options->command)(*options);
        return ExitStatus::Done;
    } catch (const Failure& failure) {
        return Fail(failure.Status(), failure.what());
    } catch (const std::exception& failure) {
        return Fail(ExitStatus::EndedOtherwise, failure.what());
    }
}

} // namespace
} // namespace changerctl

int main(int argc, char** argv) {
    // The widths of characters do not depend on the language.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    try {
        return static_cast<int>(changerctl::Run(argc, argv));
    } catch (const changerctl::Interrupted& interrupted) {
        std::signal(interrupted.signal, SIG_DFL);
        std::raise(interrupted.signal);
    }
    return static_cast<int>(changerctl::ExitStatus::EndedOtherwise);
}
