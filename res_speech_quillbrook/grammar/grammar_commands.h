// The entries of the host's speech API for grammars. The path of a load is a small command language: docs/grammars.md.
// All run on the channel's dialplan thread and give 0, because any other result hangs up the caller: what went wrong
// shows in the log.
#pragma once

#include "../host.h"

int quillbrook_recog_load_grammar(struct ast_speech *speech, const char *grammar_name, const char *grammar_path);
int quillbrook_recog_unload_grammar(struct ast_speech *speech, const char *grammar_name);
int quillbrook_recog_activate_grammar(struct ast_speech *speech, const char *grammar_name);
int quillbrook_recog_deactivate_grammar(struct ast_speech *speech, const char *grammar_name);
