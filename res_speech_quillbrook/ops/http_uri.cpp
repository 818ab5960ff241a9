#include "http_uri.h"

bool http_uri_link(ast_http_uri &uri) {
  if (ast_http_uri_link(&uri) != 0) {
    ast_log(LOG_WARNING, "The HTTP server refused the URI %s\n", uri.uri);
    return false;
  }
  return true;
}

void http_reply_unsupported_method(ast_tcptls_session_instance *ser) {
  ast_http_error(ser, 501, "Not Implemented", "Attempt to use unimplemented / unsupported method");
}

void http_reply_out_of_memory(ast_tcptls_session_instance *ser) {
  ast_http_error(ser, 500, "Server Error", "Out of memory");
}
