#include "testbed/Terminal.h"

#include "testbed/Failure.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <cstdlib>

namespace testbed {

Terminal::Terminal(unsigned short columns, unsigned short rows)
    : controller_(open("/dev/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    Require(static_cast<bool>(controller_), "cannot create a terminal");
    Require(unlockpt(controller_.Get()) == 0, "cannot unlock a terminal");
    Resize(columns, rows);
}

void Terminal::Resize(unsigned short columns, unsigned short rows) {
    winsize size{};
    size.ws_col = columns;
    size.ws_row = rows;
    Require(ioctl(controller_.Get(), TIOCSWINSZ, &size) == 0, "cannot resize a terminal");
}

Descriptor Terminal::OpenWriter() const {
    Descriptor writer(ioctl(controller_.Get(), TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC));
    Require(static_cast<bool>(writer), "cannot open a terminal");
    return writer;
}

Descriptor Terminal::OpenReader() const {
    Descriptor reader(fcntl(controller_.Get(), F_DUPFD_CLOEXEC, 0));
    Require(static_cast<bool>(reader), "cannot duplicate a terminal");
    return reader;
}

} // namespace testbed
