// Who is inside the module. The host looks at its own count of references before it unloads, but holds none while it is
// between finding an engine and calling it, nor while a function of ours returns. So a session counts from the first
// instruction of its creation to the last of its destruction, and the unload waits for what the count cannot see.
#pragma once

// A session is coming, or is gone: takes or gives back a reference on the module, and counts it. Any thread.
void quillbrook_module_enter();
void quillbrook_module_leave();

// Whether new sessions are let in: not while the module loads, so that a load that fails leaves none behind, nor once
// it has begun to fall apart. Set by load and unload; open at first.
void quillbrook_module_set_open(bool open);
bool quillbrook_module_is_open();

// Whether the module has come to rest, looked at for a fifth of a second at least: nobody was inside at the end of it,
// and nobody left meanwhile. Means something once the host knows no engine of ours any more.
bool quillbrook_module_at_rest();
