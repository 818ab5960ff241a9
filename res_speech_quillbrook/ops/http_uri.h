// What the module's two URIs on the host's HTTP server have in common.
#pragma once

#include "../host.h"

// Links a URI into the host's HTTP server. False, after a WARNING, when the host refuses it. The host keeps its URIs in
// a list through the record itself, so that linking one twice closes the list into a loop: the caller remembers what is
// linked.
bool http_uri_link(ast_http_uri &uri);

// Error replies. Nothing else may be sent for that request.
void http_reply_unsupported_method(ast_tcptls_session_instance *ser);
void http_reply_out_of_memory(ast_tcptls_session_instance *ser);
