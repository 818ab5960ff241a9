// The HTTP exchange that opens a WebSocket connection (RFC 6455, section 4), as text.
#pragma once

#include <string>

#include "url.h"

namespace quillbrook::websocket {

// A fresh value for the header Sec-WebSocket-Key.
std::string new_key();

// The client's request, with the empty line at its end. `password` is the key that the server asks of its clients;
// empty: it asks for none.
std::string upgrade_request(const common::Url &url, const std::string &key, const std::string &password);

// Throws Failure unless `head`, the answer up to its empty line, opens a connection for that key. The failure does not
// show the password.
void check_upgrade(const std::string &head, const std::string &key, const std::string &password);

}  // namespace quillbrook::websocket
