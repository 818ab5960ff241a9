// The console command "quillbrook recognize", which tries an engine on a recording.
#pragma once

#include "../host.h"

// Registers it. 0, or -1 when the host refused; it is then not left registered.
int quillbrook_cli_recognize_register();
void quillbrook_cli_recognize_unregister();
