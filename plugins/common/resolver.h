// Host names to addresses, without standing still for the name server.
#pragma once

#include <sys/socket.h>

#include <string>
#include <vector>

#include "link.h"

namespace quillbrook::common {

struct Address {
  sockaddr_storage socket = {};
  socklen_t length = 0;
};

// Whether the host is given by its address.
bool is_address(const std::string &host);

// The addresses of a host in the order to try them, at least one. Gives the module its turns while it waits.
// Throws Failure, and Stopped.
std::vector<Address> resolve(Link &link, const std::string &host, const std::string &port, Moment deadline);

}  // namespace quillbrook::common
