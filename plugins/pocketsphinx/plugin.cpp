// The plugin's entries.
#include <string>
#include <vector>

#include "entries.h"
#include "failure.h"
#include "recognition.h"

namespace quillbrook::pocketsphinx {
namespace {

// Shared by all calls. Freed when the plugin is unloaded.
DecoderPool pool;
ChannelMemory channels;

void recognise(common::Link &link) {
  try {
    Recognition(link, pool, channels).run();
  } catch (const std::exception &error) {
    throw common::Failure(std::string("pocketsphinx: ") + error.what());
  }
}

// Parameters, the model, and words that it cannot hear.
std::vector<std::string> complaints_about(const quillbrook_context &record) {
  const Parameters parameters = Parameters::parse(record.configuration);
  std::vector<std::string> sentences = parameters.complaints;
  try {
    const bool with_hints = !Hints::is_empty(record.phrases);
    const ModelFiles files = ModelFiles::find(parameters, record.model, !with_hints);
    if (with_hints) {
      for (const std::string &word : Hints::parse(record.phrases, Dictionary(files.dictionary)).left_out) {
        sentences.push_back("phrases: '" + word + "' is not in the dictionary");
      }
    }
  } catch (const std::exception &error) {
    sentences.emplace_back(error.what());
  }
  return sentences;
}

}  // namespace
}  // namespace quillbrook::pocketsphinx

QUILLBROOK_PLUGIN_ENTRY int quillbrook_init(quillbrook_context *) {
  return 0;
}

QUILLBROOK_PLUGIN_ENTRY void *quillbrook_loop(quillbrook_context *context) {
  return quillbrook::common::run_loop(context, "pocketsphinx", quillbrook::pocketsphinx::recognise);
}

QUILLBROOK_PLUGIN_ENTRY void quillbrook_stop(quillbrook_context *context) {
  quillbrook::common::Link::stop(context);
}

QUILLBROOK_PLUGIN_ENTRY int quillbrook_check(quillbrook_context *context) {
  return quillbrook::common::run_check(context, [&] { return quillbrook::pocketsphinx::complaints_about(*context); });
}
