#include "WakeUp.h"

#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace zem::host {

WakeUp::WakeUp()
    : event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (event < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

WakeUp::~WakeUp() {
    close(event);
}

void WakeUp::wake() {
    eventfd_write(event, 1);
}

bool WakeUp::waitForInput(int descriptor) {
    pollfd either[] = {{descriptor, POLLIN, 0}, {event, POLLIN, 0}};
    while (poll(either, 2, -1) < 0 && errno == EINTR) {
    }
    if (either[1].revents != 0) {
        eventfd_t count = 0;
        eventfd_read(event, &count);
        return false;
    }
    return true;
}

} // namespace zem::host
