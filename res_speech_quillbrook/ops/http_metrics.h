// The counters and dates in the text exposition format of Prometheus, under the URI "quillbrook_metrics" of the host's
// HTTP server. docs/operations.md tells each metric.
#pragma once

#include "../host.h"

extern ast_http_uri quillbrook_uri_metrics;

// Answers GET and HEAD on a thread of the HTTP server, any number at once. Always 0.
int quillbrook_http_metrics_callback(ast_tcptls_session_instance *ser, const ast_http_uri *urih, const char *uri,
                                     ast_http_method method, ast_variable *get_vars, ast_variable *headers);

// Links or unlinks the URI so that quillbrook_webregged follows quillbrook_webenabled, and that of the engines' metrics
// with it. Loading thread. When the host refuses the link, quillbrook_webregged stays clear.
void quillbrook_http_update();
