// PocketSphinx in the terms of its version 5. For the version before it, 0.8, which comes in two libraries, the names
// that it lacks are defined here.
#pragma once

#include <pocketsphinx.h>

#include <array>
#include <string>

#ifndef QUILLBROOK_POCKETSPHINX_5

extern "C" {
#include <sphinxbase/cmn.h>
#include <sphinxbase/err.h>
#include <sphinxbase/feat.h>
#include <sphinxbase/fsg_model.h>
}

inline cmd_ln_s *ps_config_init(const arg_t *settings) {
  return cmd_ln_init(nullptr, settings == nullptr ? ps_args() : settings, TRUE, nullptr);
}
inline void ps_config_free(cmd_ln_s *config) {
  cmd_ln_free_r(config);
}
// Settings were named as on a command line.
inline void ps_config_set_str(cmd_ln_s *config, const char *name, const char *value) {
  cmd_ln_set_str_r(config, ("-" + std::string(name)).c_str(), value);
}
inline void ps_config_set_bool(cmd_ln_s *config, const char *name, int value) {
  cmd_ln_set_boolean_r(config, ("-" + std::string(name)).c_str(), value);
}
inline void ps_config_set_int(cmd_ln_s *config, const char *name, long value) {
  cmd_ln_set_int_r(config, ("-" + std::string(name)).c_str(), value);
}
inline void ps_config_set_float(cmd_ln_s *config, const char *name, double value) {
  cmd_ln_set_float_r(config, ("-" + std::string(name)).c_str(), value);
}
inline double ps_config_float(cmd_ln_s *config, const char *name) {
  return cmd_ln_float_r(config, ("-" + std::string(name)).c_str());
}

inline int ps_activate_search(ps_decoder_t *decoder, const char *name) {
  return ps_set_search(decoder, name);
}
inline int ps_add_fsg(ps_decoder_t *decoder, const char *name, fsg_model_t *grammar) {
  return ps_set_fsg(decoder, name, grammar);
}
inline int ps_add_lm_file(ps_decoder_t *decoder, const char *name, const char *path) {
  return ps_set_lm_file(decoder, name, path);
}
inline int ps_add_allphone(ps_decoder_t *decoder, const char *name, ngram_model_t *model) {
  return ps_set_allphone(decoder, name, model);
}

#endif

namespace quillbrook::pocketsphinx {

// Lets the decoder normalise by means that it follows, beginning with these.
inline void set_decoder_means(ps_decoder_t *decoder, const std::array<float, 13> &means) {
#ifdef QUILLBROOK_POCKETSPHINX_5
  std::string text;
  for (float mean : means) text += (text.empty() ? "" : ",") + std::to_string(mean);
  ps_set_cmn(decoder, text.c_str());
#else
  // The model's settings ask for means of whole utterances, which are not to be had while one is spoken.
  ps_get_feat(decoder)->cmn = CMN_LIVE;
  cmn_live_set(ps_get_feat(decoder)->cmn_struct, const_cast<float *>(means.data()));
#endif
}

}  // namespace quillbrook::pocketsphinx
