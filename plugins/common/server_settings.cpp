#include "server_settings.h"

namespace quillbrook::common {

bool ServerSettings::set(const Parameter &parameter) {
  const auto &[text, key, value] = parameter;
  if (key == "tls_verify") return truth(value, tls_verify);
  if (key == "connect_timeout") return milliseconds(value, connect_timeout);
  if (key == "answer_timeout") return milliseconds(value, answer_timeout);
  if (key == "tls_ca") {
    tls_ca = value;
    return !value.empty();
  }
  return false;
}

}  // namespace quillbrook::common
