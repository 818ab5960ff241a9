#include "session_name.h"

#include "../result/result_file.h"
#include "../support/guard.h"

namespace {

constexpr char kPrefix[] = "QBK-";

// What stands for a name in the names of its files, where it is cut and loses characters: the path of a result file
// with the longest number.
std::string key_of(const char *name) {
  char path[kResultPathSize];
  quillbrook_result_path(path, name, INT_MAX, "json");
  return path;
}
// Of a name of this length nothing is cut there.
constexpr size_t kUncut = kResultPathSize - sizeof("/tmp/quillbrook__2147483647.json");

Mutex names_lock;  // a leaf
std::set<std::string> names QUILLBROOK_GUARDED_BY(names_lock);

// False when the name is in use.
bool take(const char *name) {
  MutexLock held(names_lock);
  return names.insert(key_of(name)).second;
}

void put_number_behind(char (&name)[kNameSize], const char *base, int number) {
  char behind[16];
  snprintf(behind, sizeof(behind), "-%d", number);
  copy_text(name, kUncut + 1 - strlen(behind), base);
  const size_t length = strlen(name);
  copy_text(name + length, kNameSize - length, behind);
}

void take_free_name(char (&name)[kNameSize]) {
  char base[kNameSize];
  copy_text(base, name);
  for (int number = 2; !take(name); ++number) {
    put_number_behind(name, base, number);
  }
}

}  // namespace

void quillbrook_name_session(quillbrook_speech_t *session, const char *tag) {
  if (tag[0]) {
    constexpr size_t kPrefixLength = sizeof(kPrefix) - 1;
    memcpy(session->name, kPrefix, kPrefixLength);
    copy_text(session->name + kPrefixLength, sizeof(session->name) - kPrefixLength, tag);
  } else {
    snprintf(session->name, sizeof(session->name), "%s%p", kPrefix, static_cast<void *>(session));
  }
  // Without memory the name is used all the same.
  guarded("quillbrook_name_session", 0, [session] {
    take_free_name(session->name);
    return 0;
  });
}

void quillbrook_free_name(const quillbrook_speech_t *session) {
  guarded("quillbrook_free_name", 0, [session] {
    MutexLock held(names_lock);
    names.erase(key_of(session->name));
    return 0;
  });
}
