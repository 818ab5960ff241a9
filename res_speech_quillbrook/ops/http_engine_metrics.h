// What is counted for each engine, in the text exposition format of Prometheus, under the URI
// "quillbrook_engine_metrics" of the host's HTTP server. docs/operations.md tells each metric.
#pragma once

#include "../host.h"

extern ast_http_uri quillbrook_uri_engine_metrics;

// Answers GET and HEAD on a thread of the HTTP server, any number at once. Always 0.
int quillbrook_http_engine_metrics_callback(ast_tcptls_session_instance *ser, const ast_http_uri *urih, const char *uri,
                                            ast_http_method method, ast_variable *get_vars, ast_variable *headers);

// Links or unlinks the URI, so that it is there when it is wanted. Loading thread.
void quillbrook_http_engine_metrics_update(bool wanted);
