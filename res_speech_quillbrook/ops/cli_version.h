// The command "quillbrook show version".
#pragma once

#include "../host.h"

// Prints what the module was built from and with, and what it runs on.
void quillbrook_cli_show_version(int fd);

// Puts the pretty name of the system into `buf`, at most `size` bytes with the terminator; "Unknown" when
// /etc/os-release is missing or names none.
void quillbrook_get_os_release(char *buf, size_t size);

// The same from an open file in that format: the first line that begins with PRETTY_NAME=, without the double quotes
// around its value (os-release(5)). `buf` is left alone when there is none.
void quillbrook_read_os_release(FILE *file, char *buf, size_t size);
