// `quillbrook reload`: the configuration file is read again and applied to sessions that are created from then on.
//
// The new table of engines is made aside, with its plugins open. It becomes the one of now when nothing can fail any
// more; sessions that run hold the table that they began with, and the last of them ends it (record/engine.h). So no
// lock is held, and no call waits.
#pragma once

#include "config_file.h"

// One at a time: a reload, or the unload. Who does not get the turn goes without.
class ReloadTurn {
public:
  ReloadTurn();
  ~ReloadTurn();
  ReloadTurn(const ReloadTurn &) = delete;
  ReloadTurn &operator=(const ReloadTurn &) = delete;
  bool taken() const { return taken_; }

private:
  bool taken_;
};

// Says line by line what came of it. A file of which quillbrook-check has anything to say changes nothing, and neither
// does one that the module cannot load with; with `anyway` the warnings alone do not hinder it.
void quillbrook_reload_configuration(bool anyway, const std::function<void(const std::string &)> &print);
