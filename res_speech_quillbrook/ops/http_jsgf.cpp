#include "http_jsgf.h"

#include "../support/guard.h"
#include "../support/log.h"
#include "http_uri.h"
#include "../support/printable.h"

ast_http_uri quillbrook_uri_jsgf = {
    .description = "Quillbrook HTTP JSGF URI",
    .uri = "quillbrook_jsgf",
    .callback = quillbrook_http_jsgf_callback,
    .key = AST_MODULE,
};

namespace {

// Written by the load and the unload, which the host runs one at a time.
bool jsgf_uri_linked = false;

// Reads the body. False when it could not be read: the error reply has then been sent.
//
// The variables are parsed for the check alone. If they counted, a body and a query string that both hold `value` would
// need a rule on which of them wins, and a GET without a body would lose its query string.
bool accept_body(ast_tcptls_session_instance *ser, ast_variable *headers) {
  errno = 0;
  ast_variable *variables = ast_http_get_post_vars(ser, headers);
  if (variables) {
    ast_variables_destroy(variables);
    return true;
  }
  switch (errno) {
    case EFBIG:
      ast_http_error(ser, 413, "Request Entity Too Large", "Body too large");
      return false;
    case ENOMEM:
      // What is left of the body would be taken for the next request.
      ast_http_request_close_on_completion(ser);
      http_reply_out_of_memory(ser);
      return false;
    case EIO:
      ast_http_error(ser, 400, "Bad Request", "Error parsing request body");
      return false;
    default:
      return true;
  }
}

int reply_jsgf(ast_tcptls_session_instance *ser, ast_http_method method, ast_variable *get_vars,
               ast_variable *headers) {
  if (method != AST_HTTP_GET && method != AST_HTTP_HEAD && method != AST_HTTP_POST) {
    http_reply_unsupported_method(ser);
    return 0;
  }
  OwnedText reply(ast_str_create(512));
  if (!reply) {
    http_reply_out_of_memory(ser);
    return 0;
  }
  if (method != AST_HTTP_HEAD && !accept_body(ser, headers)) {
    return 0;
  }
  trace_always("  == HTTP JSGF get walue = %s.\n", Printable(ast_variable_find_in_list(get_vars, "value")).text());
  ast_str *out = reply.release();
  ast_str_append(&out, 0, "OK");
  // Takes over `out`.
  ast_http_send(ser, method, 200, nullptr, nullptr, out, 0, 0);
  return 0;
}

}  // namespace

int quillbrook_http_jsgf_callback(ast_tcptls_session_instance *ser, const ast_http_uri *, const char *,
                                  ast_http_method method, ast_variable *get_vars, ast_variable *headers) {
  return guarded("quillbrook_http_jsgf_callback", 0, [&] { return reply_jsgf(ser, method, get_vars, headers); });
}

bool quillbrook_jsgf_uri_link() {
  if (!jsgf_uri_linked) {
    jsgf_uri_linked = http_uri_link(quillbrook_uri_jsgf);
  }
  return jsgf_uri_linked;
}

void quillbrook_jsgf_uri_unlink() {
  if (jsgf_uri_linked) {
    ast_http_uri_unlink(&quillbrook_uri_jsgf);
    jsgf_uri_linked = false;
  }
}
