// The URI "quillbrook_jsgf" of the host's HTTP server: traces its parameter `value` and answers "OK".
#pragma once

#include "../host.h"

extern ast_http_uri quillbrook_uri_jsgf;

// Answers GET, HEAD and POST on a thread of the HTTP server, any number at once. Always 0. `value` is looked for in the
// query string; a body is read and has to be a valid one, but its variables do not count.
int quillbrook_http_jsgf_callback(ast_tcptls_session_instance *ser, const ast_http_uri *urih, const char *uri,
                                  ast_http_method method, ast_variable *get_vars, ast_variable *headers);

// Links the URI, whatever the configuration says. False, after a WARNING, when the host refuses it.
bool quillbrook_jsgf_uri_link();

// Unlinks the URI if it is linked.
void quillbrook_jsgf_uri_unlink();
