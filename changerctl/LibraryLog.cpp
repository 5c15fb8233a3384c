#include "changerctl/LibraryLog.h"

#include "changerctl/PrintableText.h"
#include "common/VErr.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

namespace changerctl {
namespace {

// Prints each line that arrives until all writers of the pipe are closed. The library opens the
// pipe for each message, so the text of a message may contain newlines but no end.
void PrintLines(int reader) {
    std::FILE* const input = fdopen(reader, "r");
    if (input == nullptr)
        return;
    std::string line;
    for (int byte = 0; (byte = std::getc(input)) != EOF;) {
        if (byte != '\n') {
            line += static_cast<char>(byte);
            continue;
        }
        std::fprintf(stderr, "changerctl: library: %s\n", Printable(line).c_str());
        line.clear();
    }
    std::fclose(input);
}

} // namespace

LibraryLog::LibraryLog(bool isVerbose) {
    InitVErrSystem();
    if (!isVerbose) {
        SetVErrLogFilePath("/dev/null");
        return;
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot create a pipe");
    writer_ = ends[1];
    SetVErrLogFilePath(("/dev/fd/" + std::to_string(writer_)).c_str());
    printer_ = std::thread(PrintLines, ends[0]);
}

LibraryLog::~LibraryLog() {
    if (printer_.joinable()) {
        close(writer_);
        printer_.join();
    }
    TermVErrSystem();
}

} // namespace changerctl
