// The console commands that look after the configuration file.
#pragma once

#include "../host.h"

// Registers them. 0, or -1 when the host refused; none is then left registered.
int quillbrook_cli_configuration_register();
void quillbrook_cli_configuration_unregister();
