// What the module's URIs on the host's HTTP server have in common.
#pragma once

#include "../host.h"

// A text of the host's with an owner.
struct AstFree {
  void operator()(void *memory) const { ast_free(memory); }
};
using OwnedText = std::unique_ptr<ast_str, AstFree>;

// Links a URI into the host's HTTP server. False, after a WARNING, when the host refuses it. The host keeps its URIs in
// a list through the record itself, so that linking one twice closes the list into a loop: the caller remembers what is
// linked.
bool http_uri_link(ast_http_uri &uri);

// Error replies. Nothing else may be sent for that request.
void http_reply_unsupported_method(ast_tcptls_session_instance *ser);
void http_reply_out_of_memory(ast_tcptls_session_instance *ser);
